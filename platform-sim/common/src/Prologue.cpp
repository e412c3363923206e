#include "KQSim/Prologue.h"

#include "KQSim/Json.h"

#include "KQC/Error.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <unistd.h>

namespace KQSim {
namespace {

std::string decodeText(const std::string& text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) {
            char next = text[++i];
            out += next == 'n' ? '\n' : next;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string encodeText(const std::string& text)
{
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

bool parseNumber(const std::string& text, long low, long high, long& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && *end == '\0' && value >= low && value <= high;
}

void sleepSeconds(double seconds)
{
    struct timespec wanted;
    wanted.tv_sec = static_cast<time_t>(seconds);
    wanted.tv_nsec = static_cast<long>((seconds - static_cast<double>(wanted.tv_sec)) * 1e9);
    while (nanosleep(&wanted, &wanted) != 0 && errno == EINTR) {
    }
}

void writeStderr(const std::string& text)
{
    if (text.empty())
        return;
    std::string line = text + "\n";
    (void)writeAll(STDERR_FILENO, line);
}

bool ruleMatches(const FaultRule& rule, const std::string& tool, const std::string& word)
{
    return (rule.tool == "*" || rule.tool == tool) && (rule.word == "*" || rule.word == word);
}

// The first rule of the file that matches, if any.
bool findRule(const SimHost& host, const std::string& tool, const std::string& word, FaultRule& found)
{
    std::string text;
    if (!pathExists(host.faultsFile()) || readFile(host.faultsFile(), text) != 0)
        return false;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        FaultRule rule;
        if (line.empty() || line[0] == '#' || parseFaultRule(line, rule) != 0)
            continue;
        if (ruleMatches(rule, tool, word)) {
            found = rule;
            return true;
        }
    }
    return false;
}

[[noreturn]] void killSelf(int number)
{
    std::signal(number, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    std::raise(number);
    // A signal that does not end a process (SIGCHLD, SIGCONT, ...): end the
    // way a shell reports a death by that signal.
    _exit(128 + number);
}

} // namespace

int parseFaultExit(const std::string& exitText, FaultRule& rule)
{
    long value;
    if (exitText.compare(0, 7, "signal:") == 0) {
        if (!parseNumber(exitText.substr(7), 1, 64, value)) {
            KQC::setErrorMessage("bad signal number in '%s'", exitText.c_str());
            return -1;
        }
        rule.kind = FaultRule::Kind::Signal;
        rule.number = static_cast<int>(value);
        return 0;
    }
    if (exitText.compare(0, 6, "sleep:") == 0) {
        std::string number = exitText.substr(6);
        char* end = nullptr;
        double seconds = number.empty() ? -1 : std::strtod(number.c_str(), &end);
        if (number.empty() || *end != '\0' || !(seconds >= 0) || seconds > 3600) {
            KQC::setErrorMessage("bad sleep time in '%s'", exitText.c_str());
            return -1;
        }
        rule.kind = FaultRule::Kind::Sleep;
        rule.seconds = seconds;
        return 0;
    }
    if (!parseNumber(exitText, 0, 255, value)) {
        KQC::setErrorMessage("bad exit '%s': a number 0..255, signal:N or sleep:S", exitText.c_str());
        return -1;
    }
    rule.kind = FaultRule::Kind::Exit;
    rule.number = static_cast<int>(value);
    return 0;
}

int parseFaultRule(const std::string& line, FaultRule& rule)
{
    std::istringstream words(line);
    std::string exitText;
    if (!(words >> rule.tool >> rule.word >> exitText)) {
        KQC::setErrorMessage("fault rule needs TOOL WORD EXIT: '%s'", line.c_str());
        return -1;
    }
    if (parseFaultExit(exitText, rule) != 0)
        return -1;
    std::string rest;
    std::getline(words, rest);
    size_t start = rest.find_first_not_of(" \t");
    rule.text = start == std::string::npos ? "" : decodeText(rest.substr(start));
    return 0;
}

std::string formatFaultRule(const FaultRule& rule)
{
    std::string exitText;
    switch (rule.kind) {
    case FaultRule::Kind::Exit: exitText = std::to_string(rule.number); break;
    case FaultRule::Kind::Signal: exitText = "signal:" + std::to_string(rule.number); break;
    case FaultRule::Kind::Sleep: {
        std::ostringstream seconds;
        seconds << "sleep:" << rule.seconds;
        exitText = seconds.str();
        break;
    }
    }
    std::string line = rule.tool + " " + rule.word + " " + exitText;
    if (!rule.text.empty())
        line += " " + encodeText(rule.text);
    return line;
}

std::string faultWord(const std::vector<std::string>& arguments)
{
    for (size_t i = 1; i < arguments.size(); ++i)
        if (arguments[i].empty() || arguments[i][0] != '-')
            return arguments[i];
    return "";
}

std::string toolName(const char* argv0)
{
    std::string name = argv0 ? argv0 : "";
    size_t slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

int runToolPrologue(int argc, char** argv, SimHost& host, int* exitCode)
{
    std::vector<std::string> arguments(argv, argv + argc);
    std::string tool = toolName(argc > 0 ? argv[0] : "");
    if (arguments.empty())
        arguments.push_back(tool);
    arguments[0] = tool;
    if (hostFromEnvironment(host) != 0) {
        writeStderr(tool + ": " + KQC::getErrorMessage());
        *exitCode = 1;
        return 1;
    }
    if (appendOnce(host.callsLog(), jsonStringArray(arguments) + "\n") != 0) {
        writeStderr(tool + ": " + KQC::getErrorMessage());
        *exitCode = 1;
        return 1;
    }
    FaultRule rule;
    if (!findRule(host, tool, faultWord(arguments), rule))
        return 0;
    writeStderr(rule.text);
    switch (rule.kind) {
    case FaultRule::Kind::Sleep:
        sleepSeconds(rule.seconds);
        return 0;
    case FaultRule::Kind::Signal:
        killSelf(rule.number);
    case FaultRule::Kind::Exit:
        break;
    }
    *exitCode = rule.number;
    return 1;
}

} // namespace KQSim
