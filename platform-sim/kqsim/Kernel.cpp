// kqsim set / proc: values of the simulated kernel.
#include "Commands.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"

#include "KQC/Error.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace KQSim {
namespace {

bool isUnsigned(const std::string& text)
{
    if (text.empty() || text.size() > 20)
        return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    errno = 0;
    std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0;
}

bool isDecimal(const std::string& text)
{
    size_t dot = text.find('.');
    if (dot == std::string::npos)
        return isUnsigned(text);
    return isUnsigned(text.substr(0, dot)) && isUnsigned(text.substr(dot + 1));
}

bool isNumbers(const std::string& value, size_t count, bool (*check)(const std::string&))
{
    std::vector<std::string> list = splitWords(value);
    if (list.size() != count)
        return false;
    for (const std::string& word : list)
        if (!check(word))
            return false;
    return true;
}

bool isSlmTriples(const std::string& value)
{
    if (value.empty())
        return true;
    std::istringstream stream(value);
    std::string triple;
    while (std::getline(stream, triple, ',')) {
        std::istringstream parts(triple);
        std::string a, b, number, extra;
        if (!std::getline(parts, a, ':') || !std::getline(parts, b, ':') || !std::getline(parts, number, ':')
            || std::getline(parts, extra, ':'))
            return false;
        if (!isUnsigned(a) || !isUnsigned(b) || !isUnsigned(number))
            return false;
    }
    return value.back() != ',';
}

bool isAddressList(const std::string& value)
{
    for (const std::string& address : splitWords(value))
        for (char c : address)
            if (!std::isxdigit(static_cast<unsigned char>(c)) && c != '.' && c != ':' && c != '/')
                return false;
    return true;
}

// The errno names the simulated kernel understands.
bool isErrnoName(const std::string& name)
{
    static const char* const kNames[] = {"EPERM",  "ENOENT", "ESRCH",  "EINTR",  "EIO",    "E2BIG",  "EBADF",
                                         "EAGAIN", "ENOMEM", "EACCES", "EFAULT", "EBUSY",  "EEXIST", "ENODEV",
                                         "EINVAL", "ENOTTY", "ENOSPC", "ENOSYS", "ETIMEDOUT"};
    for (const char* known : kNames)
        if (name == known)
            return true;
    return false;
}

// "ERRNO COUNT": the next COUNT ioctls fail with ERRNO.
bool isErrnoFault(const std::string& value)
{
    std::vector<std::string> list = splitWords(value);
    return list.size() == 2 && isErrnoName(list[0]) && isUnsigned(list[1]);
}

const char* const kQuotaNumberKeys[] = {
    "quota.block_usage", "quota.block_soft", "quota.block_hard",  "quota.block_grace", "quota.block_expiry",
    "quota.inode_usage", "quota.inode_soft", "quota.inode_hard",  "quota.inode_grace", "quota.inode_expiry",
    "quota.ugid_a",      "quota.ugid_b"};

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// The name between a prefix and an optional suffix: "veth.eth0.state"
// gives "eth0" for ("veth.", ".state").
bool middleName(const std::string& key, const std::string& prefix, const std::string& suffix,
                std::string& name)
{
    if (!startsWith(key, prefix) || key.size() <= prefix.size() + suffix.size())
        return false;
    if (key.compare(key.size() - suffix.size(), suffix.size(), suffix) != 0)
        return false;
    name = key.substr(prefix.size(), key.size() - prefix.size() - suffix.size());
    return name.find('/') == std::string::npos && name != "." && name != "..";
}

enum class KeyCheck { Unknown, BadValue, Container, Host };

KeyCheck checkPerContainer(const std::string& key, const std::string& value)
{
    auto verdict = [](bool good) { return good ? KeyCheck::Container : KeyCheck::BadValue; };
    for (const char* quotaKey : kQuotaNumberKeys)
        if (key == quotaKey)
            return verdict(isNumbers(value, 1, isUnsigned));
    if (key == "quota.loaded")
        return verdict(value == "0" || value == "1");
    if (key == "cpu")
        return verdict(isNumbers(value, 6, isUnsigned));
    if (key == "loadavg")
        return verdict(isNumbers(value, 3, isDecimal));
    if (key == "slm")
        return verdict(isSlmTriples(value));
    std::string name;
    if (middleName(key, "net.", "", name))
        return verdict(isNumbers(value, 4, isUnsigned));
    if (middleName(key, "veth.", ".state", name))
        return verdict(value == "up" || value == "down");
    if (middleName(key, "veth.", ".addresses", name))
        return verdict(isAddressList(value));
    return KeyCheck::Unknown;
}

KeyCheck checkKey(const std::string& key, const std::string& value)
{
    auto verdict = [](bool good) { return good ? KeyCheck::Host : KeyCheck::BadValue; };
    std::string index;
    if (key == "ubc.count")
        return verdict(isNumbers(value, 1, isUnsigned));
    if (middleName(key, "ubc.", "", index) && isUnsigned(index))
        return verdict(isNumbers(value, 8, isUnsigned));
    if (key == "fault.ioctl")
        return verdict(isErrnoFault(value));
    if (key == "fault.ubc503")
        return verdict(value == "ENOSYS");
    if (key == "fault.open")
        return verdict(isErrnoName(value));
    return checkPerContainer(key, value);
}

} // namespace

int commandSet(const Arguments& args)
{
    if (args.size() != 4)
        return fail(2, "set: ROOT VEID KEY VALUE expected");
    SimHost host{absolutePath(args[0])};
    int veid = 0;
    if (!parseInt(args[1], veid))
        return fail(2, "set: VEID must be a number, not '" + args[1] + "'");
    const std::string& key = args[2];
    const std::string& value = args[3];
    KeyCheck check = checkKey(key, value);
    if (check == KeyCheck::Unknown)
        return fail(2, "set: unknown key '" + key + "'");
    if (check == KeyCheck::BadValue)
        return fail(2, "set: bad value '" + value + "' for " + key);
    if (int status = requireSimulatedHost(host.root))
        return status;
    std::string folder = host.kernelDir(check == KeyCheck::Host ? "host" : std::to_string(veid));
    if (makeDirs(folder) != 0 || writeFileAtomic(folder + "/" + key, value) != 0)
        return failWithErrorMessage();
    return 0;
}

int commandProc(const Arguments& args)
{
    if (args.size() < 4 || args.size() > 5)
        return fail(2, "proc: ROOT VEID VPID HOSTPID [COMMAND] expected");
    SimHost host{absolutePath(args[0])};
    int veid = 0, vpid = 0, hostPid = 0;
    if (!parseInt(args[1], veid) || !parseInt(args[2], vpid) || !parseInt(args[3], hostPid) || vpid <= 0
        || hostPid <= 0)
        return fail(2, "proc: VEID, VPID and HOSTPID must be numbers (pids above 0)");
    std::string command = args.size() == 5 ? args[4] : "init";
    if (command.find('\n') != std::string::npos)
        return fail(2, "proc: COMMAND must be one line");
    if (int status = requireSimulatedHost(host.root))
        return status;
    std::string line = std::to_string(vpid) + " " + std::to_string(hostPid) + " " + command + "\n";
    if (makeDirs(host.stateDir() + "/proc") != 0 || appendOnce(host.processList(veid), line) != 0)
        return failWithErrorMessage();
    return 0;
}

} // namespace KQSim
