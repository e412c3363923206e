#include "KQC/Computer.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"

#include <cerrno>
#include <map>
#include <sstream>
#include <sys/utsname.h>

namespace KQC {
namespace {

// One value of an os-release file: unquoted, with the backslash escapes of
// double-quoted values undone.
std::string releaseValue(const std::string& raw)
{
    if (raw.size() >= 2 && raw.front() == '\'' && raw.back() == '\'')
        return raw.substr(1, raw.size() - 2);
    if (raw.size() < 2 || raw.front() != '"' || raw.back() != '"')
        return raw;
    std::string value;
    for (size_t i = 1; i + 1 < raw.size(); ++i) {
        if (raw[i] == '\\' && i + 2 < raw.size())
            ++i;
        value += raw[i];
    }
    return value;
}

// KEY=VALUE lines; comments and anything else are skipped.
std::map<std::string, std::string> parseRelease(const std::string& text)
{
    std::map<std::string, std::string> values;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#')
            continue;
        size_t equals = line.find('=', start);
        if (equals == std::string::npos)
            continue;
        std::string raw = line.substr(equals + 1);
        while (!raw.empty() && (raw.back() == ' ' || raw.back() == '\t' || raw.back() == '\r'))
            raw.pop_back();
        values[line.substr(start, equals - start)] = releaseValue(raw);
    }
    return values;
}

void setIfGiven(KQCOptionalProperty<std::string>& field, const std::map<std::string, std::string>& values,
                const char* key)
{
    auto it = values.find(key);
    if (it != values.end() && !it->second.empty())
        field.set(it->second);
}

} // namespace

int KQCComputerMLocal::getSystem(KQCSystemInfo& info)
{
    info = KQCSystemInfo();
    struct utsname system;
    if (::uname(&system) != 0) {
        setErrorMessage("can't get the system's name: %m");
        return -1;
    }
    info.os.platform.set(system.sysname);
    info.os.kernel.set(system.release);
    info.architecture = system.machine;

    const std::string path = hostPath("/etc/os-release");
    std::string text;
    if (file2str(path, text) != 0) {
        setErrorMessage("can't read the release file '%s': %m", path.c_str());
        return -1;
    }
    std::map<std::string, std::string> values = parseRelease(text);
    setIfGiven(info.os.distribution, values, "ID");
    setIfGiven(info.os.version, values, "VERSION_ID");
    return 0;
}

} // namespace KQC
