#include "KQSim/Host.h"

#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <sys/file.h>
#include <vector>

namespace KQSim {

std::string SimHost::containerConfig(int veid) const
{
    return scriptsDir() + "/" + std::to_string(veid) + ".conf";
}

std::string SimHost::processList(int veid) const
{
    return stateDir() + "/proc/" + std::to_string(veid);
}

int hostFromEnvironment(SimHost& host)
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    if (!root || !*root) {
        KQC::setErrorMessage("KQ_HOST_ROOT is not set: this simulated tool works only on a simulated host");
        return -1;
    }
    host.root = absolutePath(root);
    if (host.root == "/")
        host.root.clear();
    return 0;
}

bool isSimulatedHost(const std::string& root)
{
    return isDirectory(root + "/etc/kqsim");
}

int readHostSettings(const SimHost& host, HostSettings& settings)
{
    ShellConfig config;
    if (config.load(host.hostSettings()) != 0)
        return -1;
    settings.veRoot = config.get("VE_ROOT");
    settings.vePrivate = config.get("VE_PRIVATE");
    settings.lockDir = config.get("LOCKDIR");
    settings.dumpDir = config.get("DUMPDIR");
    settings.templateDir = config.get("TEMPLATE");
    return 0;
}

std::string expandVeid(const std::string& pathTemplate, int veid)
{
    std::string number = std::to_string(veid);
    std::string out;
    for (size_t at = 0; at < pathTemplate.size();) {
        if (pathTemplate.compare(at, 7, "${VEID}") == 0) {
            out += number;
            at += 7;
        } else if (pathTemplate.compare(at, 5, "$VEID") == 0) {
            out += number;
            at += 5;
        } else {
            out += pathTemplate[at++];
        }
    }
    return out;
}

StateLock::StateLock(const SimHost& host)
{
    std::string path = host.stateDir() + "/state.lock";
    FileDescriptor fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd.valid()) {
        KQC::setErrorMessage("open '%s': %m", path.c_str());
        return;
    }
    while (::flock(fd.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            KQC::setErrorMessage("lock '%s': %m", path.c_str());
            return;
        }
    }
    m_fd = std::move(fd);
}

bool parseInt(const std::string& text, int& value)
{
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    long number = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || number < INT_MIN || number > INT_MAX)
        return false;
    value = static_cast<int>(number);
    return true;
}

std::vector<std::string> splitWords(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word)
        words.push_back(word);
    return words;
}

std::string joinWords(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::set<int> numberedEntries(const std::string& folder)
{
    std::vector<std::string> names;
    listDirectory(folder, names);
    std::set<int> numbers;
    for (const std::string& name : names) {
        int number = 0;
        if (parseInt(name, number))
            numbers.insert(number);
    }
    return numbers;
}

int readRunning(const SimHost& host, std::set<int>& veids)
{
    veids.clear();
    std::string text;
    if (!pathExists(host.runningList()))
        return 0;
    if (readFile(host.runningList(), text) != 0)
        return -1;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        int veid;
        if (parseInt(line, veid))
            veids.insert(veid);
    }
    return 0;
}

int writeRunning(const SimHost& host, const std::set<int>& veids)
{
    std::string text;
    for (int veid : veids)
        text += std::to_string(veid) + "\n";
    return writeFileAtomic(host.runningList(), text);
}

int setRunning(const SimHost& host, int veid, bool running)
{
    std::set<int> veids;
    if (readRunning(host, veids) != 0)
        return -1;
    bool changed = running ? veids.insert(veid).second : veids.erase(veid) > 0;
    return changed ? writeRunning(host, veids) : 0;
}

bool isRunning(const SimHost& host, int veid)
{
    std::set<int> veids;
    return readRunning(host, veids) == 0 && veids.count(veid) > 0;
}

namespace {

std::string mountPointOf(const std::string& line)
{
    std::istringstream words(line);
    std::string device, point;
    words >> device >> point;
    return point;
}

} // namespace

bool isMounted(const SimHost& host, const std::string& rootDir)
{
    std::string text;
    if (readFile(host.procMounts(), text) != 0)
        return false;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
        if (mountPointOf(line) == rootDir)
            return true;
    return false;
}

int setMounted(const SimHost& host, const std::string& rootDir, bool mounted)
{
    std::string text;
    if (pathExists(host.procMounts()) && readFile(host.procMounts(), text) != 0)
        return -1;
    std::istringstream lines(text);
    std::string line, kept;
    bool found = false;
    while (std::getline(lines, line)) {
        if (mountPointOf(line) == rootDir) {
            found = true;
            if (!mounted)
                continue;
        }
        kept += line + "\n";
    }
    if (mounted == found)
        return 0;
    if (mounted)
        kept += rootDir + " " + rootDir + " simfs rw,relatime 0 0\n";
    return writeFileAtomic(host.procMounts(), kept);
}

} // namespace KQSim
