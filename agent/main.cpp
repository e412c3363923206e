// kqagent: the console that loads the plug-in and drives it, as the host
// agent does for one client.
#include "Console.h"
#include "Output.h"
#include "PluginLoader.h"
#include "SimRoot.h"

#include "KQC/HostPaths.h"
#include "KQC/Log.h"
#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"

#include <iostream>
#include <sys/stat.h>

namespace {

const char* const kUsage =
    "kqagent [--root DIR] [--json] [--deny RIGHTS] [--plugin PATH] [-v] COMMAND [ARGS...]\n"
    "commands: list, info, sync, start, stop, restart, mount, umount, destroy, suspend, resume,\n"
    "          veid allocate, private get|put, batch";

struct GlobalOptions {
    std::string root;
    bool json = false;
    std::set<int> denied;
    std::string plugin;
    bool verbose = false;
    bool help = false;
    std::vector<std::string> command;
};

std::set<int> parseRights(const std::string& text)
{
    std::set<int> rights;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        std::string word = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        rights.insert(static_cast<int>(kqagent::parseNumber(word, "right")));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return rights;
}

GlobalOptions parseGlobalOptions(int argc, char** argv)
{
    GlobalOptions options;
    int i = 1;
    for (; i < argc; ++i) {
        std::string word = argv[i];
        auto value = [&](const char* name) {
            if (i + 1 >= argc)
                throw kqagent::UsageError(std::string("option ") + name + " needs a value");
            return std::string(argv[++i]);
        };
        if (word == "--root")
            options.root = value("--root");
        else if (word == "--json")
            options.json = true;
        else if (word == "--deny")
            options.denied = parseRights(value("--deny"));
        else if (word == "--plugin")
            options.plugin = value("--plugin");
        else if (word == "-v" || word == "--verbose")
            options.verbose = true;
        else if (word == "--help" || word == "-h")
            options.help = true;
        else if (!word.empty() && word[0] == '-')
            throw kqagent::UsageError("unknown option '" + word + "'");
        else
            break;
    }
    for (; i < argc; ++i)
        options.command.push_back(argv[i]);
    if (options.command.empty() && !options.help)
        throw kqagent::UsageError("no command given (kqagent --help lists the commands)");
    return options;
}

// The agent's log: a file in its base folder when that folder exists,
// standard error too with -v.
void setUpLogging(bool verbose)
{
    std::string base = KQC::KQCInstanceFolders::base();
    struct stat st;
    if (::stat(base.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        KQC::LogSettings::setFile(base + "/kqagent.log");
    KQC::LogSettings::setStderr(verbose);
    KQC::LogSettings::setThreshold(verbose ? 4 : 3);
}

bool runOne(kqagent::Session& session, const kqagent::Runner& runner, bool json)
{
    kqagent::Outcome outcome;
    try {
        outcome = runner(session);
    } catch (const std::exception& e) {
        outcome.rc = -1;
        outcome.error = e.what();
    }
    kqagent::printOutcome(outcome, json);
    return outcome.rc == 0;
}

// One command per line of standard input, in this one process.
int runBatch(kqagent::Session& session, bool json)
{
    bool allGood = true;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::vector<std::string> words;
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        try {
            if (KQS::splitShellWords(line, words) != 0)
                throw kqagent::UsageError(KQC::getErrorMessage());
            if (!words.empty() && words[0] == "batch")
                throw kqagent::UsageError("batch does not nest");
            kqagent::Runner runner = kqagent::parseCommand(words);
            allGood = runOne(session, runner, json) && allGood;
        } catch (const kqagent::UsageError& e) {
            kqagent::printUsageError(e.what(), json);
            allGood = false;
        }
    }
    return allGood ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    GlobalOptions options;
    kqagent::Runner runner;
    bool batch = false;
    try {
        options = parseGlobalOptions(argc, argv);
        if (options.help) {
            std::cout << "usage: " << kUsage << "\n";
            return 0;
        }
        batch = options.command[0] == "batch";
        if (batch && options.command.size() > 1)
            throw kqagent::UsageError("batch takes no arguments");
        if (!batch)
            runner = kqagent::parseCommand(options.command);
    } catch (const kqagent::UsageError& e) {
        kqagent::printUsageError(e.what(), false);
        return 2;
    }

    std::string error;
    if (!options.root.empty() && kqagent::arrangeHostRoot(options.root, argv, error) != 0) {
        std::cerr << "kqagent: " << error << "\n";
        return 1;
    }
    setUpLogging(options.verbose);

    kqagent::PluginLoader plugin;
    if (plugin.load(options.plugin.empty() ? kqagent::PluginLoader::defaultPath() : options.plugin, error) != 0) {
        std::cerr << "kqagent: " << error << "\n";
        return 1;
    }
    int status;
    {
        kqagent::Session session(options.denied, options.verbose);
        status = batch ? runBatch(session, options.json) : (runOne(session, runner, options.json) ? 0 : 1);
    }
    plugin.unload();
    return status;
}
