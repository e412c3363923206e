#include "KQC/ProcessParser.h"

#include "KQC/Error.h"

#include <algorithm>
#include <cstdlib>
#include <sys/wait.h>

namespace KQC {
namespace {

// The column sets a parser can be initialised with. The command line goes
// last: it is the only column that may hold blanks.
const std::map<std::string, std::vector<std::string>>& columnSets()
{
    static const std::map<std::string, std::vector<std::string>> sets = {
        {"ps", {"pid", "user", "stat", "time", "args"}},
        {"kq_ps", {"pid", "veid", "user", "stat", "pcpu", "pmem", "vsz", "rss", "time", "args"}},
    };
    return sets;
}

std::vector<std::string> splitList(const std::string& list)
{
    std::vector<std::string> names;
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (comma == std::string::npos)
            comma = list.size();
        if (comma > start)
            names.push_back(list.substr(start, comma - start));
        start = comma + 1;
    }
    return names;
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

// Splits `line` into exactly `count` fields, the last taking the rest of
// the line (trimmed); false when there are fewer.
bool splitFields(const std::string& line, size_t count, std::vector<std::string>& fields)
{
    fields.clear();
    size_t pos = 0;
    while (fields.size() + 1 < count) {
        while (pos < line.size() && isBlank(line[pos]))
            ++pos;
        size_t end = pos;
        while (end < line.size() && !isBlank(line[end]))
            ++end;
        if (end == pos)
            return false;
        fields.push_back(line.substr(pos, end - pos));
        pos = end;
    }
    while (pos < line.size() && isBlank(line[pos]))
        ++pos;
    size_t end = line.size();
    while (end > pos && isBlank(line[end - 1]))
        --end;
    if (end == pos)
        return false;
    fields.push_back(line.substr(pos, end - pos));
    return true;
}

long processId(const KQCProcessInfo& process)
{
    std::string text;
    if (process.get("pid", text) != 0 && process.get("vpid", text) != 0)
        return 0;
    return std::strtol(text.c_str(), nullptr, 10);
}

} // namespace

int KQCProcessInfo::get(const std::string& name, std::string& value) const
{
    auto found = m_attributes.find(name);
    if (found == m_attributes.end())
        return -1;
    value = found->second;
    return 0;
}

int KQCProcessParser::initialize(const std::string& name)
{
    auto found = columnSets().find(name);
    if (found == columnSets().end()) {
        setErrorMessage("unknown process column set '%s'", name.c_str());
        return -1;
    }
    m_columns = found->second;
    return 0;
}

std::string KQCProcessParser::getCommand()
{
    return "ps";
}

std::string KQCProcessParser::getStrParameters(const ParserOptions&)
{
    std::string list;
    for (const std::string& column : m_columns)
        list += (list.empty() ? "" : ",") + column;
    return list;
}

int KQCProcessParser::runPsProg(ExecutionArgs& argv, std::string& output)
{
    HWExec exec;
    int status = exec.exec(0, argv.toArgs());
    if (status != 0) {
        setErrorMessage("%s: %s", argv.toString().c_str(), exec.getOutput(GenExec::ERRTEXT).c_str());
        return -1;
    }
    output = exec.getOutput(GenExec::OUT);
    return 0;
}

int KQCProcessParser::fillProcessList(const std::string& output, KQCProcessList& out, const ParserOptions& options)
{
    const std::vector<std::string> names = splitList(getStrParameters(options));
    if (names.empty())
        return 0;
    std::vector<std::string> fields;
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        if (end == std::string::npos)
            end = output.size();
        if (splitFields(output.substr(start, end - start), names.size(), fields)) {
            KQCProcessInfo process;
            for (size_t i = 0; i < names.size(); ++i)
                process.set(names[i], fields[i]);
            out.push_back(process);
        }
        start = end + 1;
    }
    return 0;
}

int KQCProcessParser::optimizeProcesses(KQCProcessList& list, const ParserOptions& options)
{
    if (!options.text.empty()) {
        auto unwanted = [&](const KQCProcessInfo& process) {
            for (const auto& attribute : process.attributes())
                if (attribute.second.find(options.text) != std::string::npos)
                    return false;
            return true;
        };
        list.erase(std::remove_if(list.begin(), list.end(), unwanted), list.end());
    }
    std::stable_sort(list.begin(), list.end(), [&](const KQCProcessInfo& a, const KQCProcessInfo& b) {
        return options.flag ? processId(a) > processId(b) : processId(a) < processId(b);
    });
    if (options.number > 0 && list.size() > static_cast<size_t>(options.number))
        list.resize(static_cast<size_t>(options.number));
    return 0;
}

} // namespace KQC
