#include "SimHost.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace kqsim {
namespace {

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// The value of KEY=value in a shell-style file, quotes removed; false when
// the key is not there. The last assignment wins, as in the shell.
bool shellValue(const std::string& text, const std::string& key, std::string& value)
{
    std::istringstream lines(text);
    std::string line;
    bool found = false;
    while (std::getline(lines, line)) {
        line = trimmed(line);
        if (line.compare(0, key.size() + 1, key + "=") != 0)
            continue;
        std::string raw = line.substr(key.size() + 1);
        if (raw.size() >= 2 && (raw[0] == '"' || raw[0] == '\'') && raw.back() == raw[0])
            raw = raw.substr(1, raw.size() - 2);
        value = raw;
        found = true;
    }
    return found;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

} // namespace

std::string simHostRoot()
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    std::string text = root ? root : "";
    while (!text.empty() && text.back() == '/')
        text.pop_back();
    return text;
}

bool readTextFile(const std::string& path, std::string& text)
{
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    text.clear();
    char chunk[4096];
    bool complete = true;
    for (;;) {
        ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            complete = got == 0;
            break;
        }
        text.append(chunk, static_cast<size_t>(got));
    }
    int saved = errno;
    ::close(fd);
    errno = saved;
    return complete;
}

bool isVeidRunning(int veid)
{
    std::string text;
    if (!readTextFile(simHostRoot() + "/var/lib/kqsim/running", text))
        return false;
    std::istringstream words(text);
    long listed = 0;
    while (words >> listed)
        if (listed == veid)
            return true;
    return false;
}

bool readKernelValue(int veid, const std::string& key, std::string& value)
{
    std::string text;
    if (!readTextFile(simHostRoot() + "/var/lib/kqsim/kernel/" + std::to_string(veid) + "/" + key, text))
        return false;
    value = trimmed(text);
    return true;
}

bool containerRootDir(int veid, std::string& root)
{
    std::string id = std::to_string(veid);
    std::string text;
    std::string value;
    bool found = readTextFile(simHostRoot() + "/etc/sysconfig/kq-scripts/" + id + ".conf", text) &&
        shellValue(text, "VE_ROOT", value);
    if (!found)
        found = readTextFile(simHostRoot() + "/etc/sysconfig/kq", text) && shellValue(text, "VE_ROOT", value);
    if (!found || value.empty())
        return false;
    replaceAll(value, "${VEID}", id);
    replaceAll(value, "$VEID", id);
    root = value;
    return true;
}

} // namespace kqsim
