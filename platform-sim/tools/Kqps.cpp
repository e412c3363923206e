// kqps [xawh] [-E VEID] -eo COLUMNS: processes of one container (-E) or of
// the whole host, from the simulated process lists
// (ROOT/var/lib/kqsim/proc/<VEID>, lines "VPID HOSTPID COMMAND"). Without
// -E the machine's real processes are listed, as the host sees them. Columns are separated by one blank;
// "h" among the BSD options drops the header.
#include "Tools.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"

#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <sstream>

namespace KQSim {
namespace {

struct Process {
    int veid = 0;
    int vpid = 0;
    int hostPid = 0;
    std::string command;
};

std::string commandName(const std::string& command)
{
    std::string first = command.substr(0, command.find(' '));
    size_t slash = first.rfind('/');
    return slash == std::string::npos ? first : first.substr(slash + 1);
}

// The text of one column, or false for a column this tool does not know.
bool columnValue(const std::string& column, const Process& process, std::string& text)
{
    static const std::map<std::string, std::string> fixed = {
        {"user", "root"},    {"euser", "root"}, {"ruser", "root"},  {"uid", "0"},       {"euid", "0"},
        {"ruid", "0"},       {"gid", "0"},      {"group", "root"},  {"stat", "S"},      {"state", "S"},
        {"s", "S"},          {"rss", "0"},      {"rsz", "0"},       {"vsz", "0"},       {"vsize", "0"},
        {"sz", "0"},         {"pcpu", "0.0"},   {"%cpu", "0.0"},    {"pmem", "0.0"},    {"%mem", "0.0"},
        {"time", "00:00:00"}, {"cputime", "00:00:00"}, {"etime", "00:00"}, {"tty", "?"}, {"tt", "?"},
        {"nice", "0"},       {"ni", "0"},       {"pri", "20"},      {"priority", "20"}, {"nlwp", "1"},
        {"thcount", "1"},    {"start", "00:00"}, {"stime", "00:00"}, {"start_time", "00:00"},
        {"lstart", "Thu Jan  1 00:00:00 2026"}, {"ppid", "0"}, {"wchan", "-"}, {"flags", "0"}, {"f", "0"},
    };
    auto known = fixed.find(column);
    if (known != fixed.end())
        text = known->second;
    else if (column == "pid" || column == "lwp" || column == "tid" || column == "pgid" || column == "sid")
        text = std::to_string(process.hostPid);
    else if (column == "vpid")
        text = std::to_string(process.vpid);
    else if (column == "veid" || column == "ctid")
        text = std::to_string(process.veid);
    else if (column == "comm" || column == "ucomm" || column == "ucmd")
        text = commandName(process.command);
    else if (column == "args" || column == "command" || column == "cmd")
        text = process.command;
    else
        return false;
    if (text.empty())
        text = "-";
    return true;
}

void readProcesses(const SimHost& host, int veid, std::vector<Process>& processes)
{
    std::string text;
    if (readFile(host.processList(veid), text) != 0)
        return;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        Process process;
        process.veid = veid;
        std::istringstream fields(line);
        if (!(fields >> process.vpid >> process.hostPid))
            continue;
        std::getline(fields >> std::ws, process.command);
        processes.push_back(process);
    }
}

// Every container's registered processes, then the machine's real
// processes that no container claims, as the host's own (VEID 0).
void readAllProcesses(const SimHost& host, std::vector<Process>& processes)
{
    std::set<int> claimed;
    for (int veid : numberedEntries(host.stateDir() + "/proc"))
        readProcesses(host, veid, processes);
    for (const Process& process : processes)
        claimed.insert(process.hostPid);
    for (int pid : numberedEntries("/proc")) {
        if (claimed.count(pid))
            continue;
        Process process;
        process.vpid = pid;
        process.hostPid = pid;
        std::string cmdline;
        // A process may end while we look; it is then simply left out.
        if (readFile("/proc/" + std::to_string(pid) + "/cmdline", cmdline) != 0)
            continue;
        for (char& c : cmdline)
            c = c == '\0' ? ' ' : c;
        while (!cmdline.empty() && cmdline.back() == ' ')
            cmdline.pop_back();
        if (cmdline.empty() && readFile("/proc/" + std::to_string(pid) + "/comm", cmdline) == 0)
            cmdline = "[" + cmdline.substr(0, cmdline.find('\n')) + "]";
        process.command = cmdline;
        processes.push_back(process);
    }
}

std::vector<std::string> splitColumns(const std::string& list)
{
    std::vector<std::string> columns;
    std::istringstream stream(list);
    std::string column;
    while (std::getline(stream, column, ','))
        if (!column.empty())
            columns.push_back(column.substr(0, column.find('=')));
    return columns;
}

struct Query {
    bool header = true;
    bool oneContainer = false;
    int veid = 0;
    std::vector<std::string> columns = {"pid", "tty", "stat", "time", "command"};
};

int parseQuery(const ToolArguments& args, Query& query)
{
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-E" && i + 1 < args.size() && parseInt(args[i + 1], query.veid)) {
            query.oneContainer = true;
            ++i;
        } else if ((arg == "-eo" || arg == "-o") && i + 1 < args.size()) {
            query.columns = splitColumns(args[++i]);
        } else if (!arg.empty() && arg[0] != '-') {
            query.header = query.header && arg.find('h') == std::string::npos;
        } else if (arg != "-e" && arg != "-A") {
            std::fprintf(stderr, "kqps: unsupported option '%s'\n", arg.c_str());
            return 1;
        }
    }
    Process probe;
    for (const std::string& column : query.columns) {
        std::string ignored;
        if (!columnValue(column, probe, ignored)) {
            std::fprintf(stderr, "kqps: error: unknown user-defined format specifier \"%s\"\n", column.c_str());
            return 1;
        }
    }
    return 0;
}

std::string headerLine(const std::vector<std::string>& columns)
{
    std::string line;
    for (const std::string& column : columns) {
        std::string title = column;
        for (char& c : title)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        line += (line.empty() ? "" : " ") + title;
    }
    return line + "\n";
}

std::string processLine(const std::vector<std::string>& columns, const Process& process)
{
    std::string line;
    for (size_t i = 0; i < columns.size(); ++i) {
        std::string value;
        columnValue(columns[i], process, value);
        line += (i ? " " : "") + value;
    }
    return line + "\n";
}

} // namespace

int runKqps(const SimHost& host, const ToolArguments& args)
{
    Query query;
    if (int status = parseQuery(args, query))
        return status;
    std::vector<Process> processes;
    if (query.oneContainer)
        readProcesses(host, query.veid, processes);
    else
        readAllProcesses(host, processes);
    std::string text = query.header ? headerLine(query.columns) : "";
    for (const Process& process : processes)
        text += processLine(query.columns, process);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}

} // namespace KQSim
