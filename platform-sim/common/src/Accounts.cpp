#include "KQSim/Accounts.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"

#include "KQC/Error.h"

#include <crypt.h>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace KQSim {
namespace {

// A salt for crypt(3): "$6$" and 16 characters of the crypt alphabet.
std::string sha512Salt()
{
    static const char alphabet[] = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    unsigned char random[16] = {};
    FileDescriptor fd(::open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    ssize_t got = fd.valid() ? ::read(fd.get(), random, sizeof random) : -1;
    if (got != static_cast<ssize_t>(sizeof random))
        for (size_t i = 0; i < sizeof random; ++i)
            random[i] = static_cast<unsigned char>(::getpid() * 31 + i * 17);
    std::string salt = "$6$";
    for (unsigned char byte : random)
        salt += alphabet[byte % 64];
    return salt;
}

int hashPassword(const std::string& password, const std::string& setting, std::string& hash)
{
    struct crypt_data data = {};
    const char* result = crypt_r(password.c_str(), setting.c_str(), &data);
    if (!result || result[0] == '*') {
        KQC::setErrorMessage("crypt: %m");
        return -1;
    }
    hash = result;
    return 0;
}

std::vector<std::string> split(const std::string& line, char separator)
{
    std::vector<std::string> fields;
    std::string field;
    std::istringstream stream(line);
    while (std::getline(stream, field, separator))
        fields.push_back(field);
    if (!line.empty() && line.back() == separator)
        fields.push_back("");
    return fields;
}

// The fields of user's line in an account file, or empty.
std::vector<std::string> findEntry(const std::string& path, const std::string& user)
{
    std::string text;
    if (readFile(path, text) != 0)
        return {};
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields = split(line, ':');
        if (!fields.empty() && fields[0] == user)
            return fields;
    }
    return {};
}

int nextFreeId(const std::string& passwdPath)
{
    std::string text;
    readFile(passwdPath, text);
    int next = 1000;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields = split(line, ':');
        int uid = 0;
        if (fields.size() > 2 && parseInt(fields[2], uid) && uid >= next && uid < 60000)
            next = uid + 1;
    }
    return next;
}

int addUser(const std::string& etc, const std::string& user)
{
    int id = nextFreeId(etc + "/passwd");
    std::string number = std::to_string(id);
    std::string passwd, group;
    readFile(etc + "/passwd", passwd);
    readFile(etc + "/group", group);
    passwd += user + ":x:" + number + ":" + number + "::/home/" + user + ":/bin/bash\n";
    group += user + ":x:" + number + ":\n";
    if (writeFileAtomic(etc + "/passwd", passwd) != 0)
        return -1;
    return writeFileAtomic(etc + "/group", group);
}

} // namespace

int writeAccounts(const std::string& fileTree)
{
    std::string etc = fileTree + "/etc";
    std::string hash;
    if (makeDirs(etc) != 0 || hashPassword("secret", sha512Salt(), hash) != 0)
        return -1;
    std::string passwd = "root:x:0:0:root:/root:/bin/bash\n"
                         "daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin\n";
    std::string shadow = "root:" + hash + ":19700:0:99999:7:::\n"
                         "daemon:*:19700:0:99999:7:::\n";
    std::string group = "root:x:0:\ndaemon:x:1:\n";
    if (writeFileAtomic(etc + "/passwd", passwd) != 0 || writeFileAtomic(etc + "/shadow", shadow, 0600) != 0)
        return -1;
    return writeFileAtomic(etc + "/group", group);
}

int setPassword(const std::string& fileTree, const std::string& user, const std::string& password)
{
    std::string etc = fileTree + "/etc";
    if (findEntry(etc + "/passwd", user).empty() && addUser(etc, user) != 0)
        return -1;
    std::string hash;
    if (hashPassword(password, sha512Salt(), hash) != 0)
        return -1;
    std::string text, kept;
    readFile(etc + "/shadow", text);
    std::istringstream lines(text);
    std::string line;
    bool replaced = false;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields = split(line, ':');
        if (!fields.empty() && fields[0] == user) {
            fields.resize(9);
            fields[1] = hash;
            line.clear();
            for (size_t i = 0; i < fields.size(); ++i)
                line += (i ? ":" : "") + fields[i];
            replaced = true;
        }
        kept += line + "\n";
    }
    if (!replaced)
        kept += user + ":" + hash + ":19700:0:99999:7:::\n";
    return writeFileAtomic(etc + "/shadow", kept, 0600);
}

int checkPassword(const std::string& fileTree, const std::string& user, const std::string& password)
{
    std::vector<std::string> entry = findEntry(fileTree + "/etc/shadow", user);
    if (entry.empty()) {
        KQC::setErrorMessage("no such user '%s'", user.c_str());
        return -1;
    }
    if (entry.size() < 2 || entry[1].empty() || entry[1][0] == '*' || entry[1][0] == '!')
        return 1;
    std::string hash;
    if (hashPassword(password, entry[1], hash) != 0)
        return 1;
    return hash == entry[1] ? 0 : 1;
}

bool isInGroup(const std::string& fileTree, const std::string& user, int gid)
{
    std::vector<std::string> account = findEntry(fileTree + "/etc/passwd", user);
    int primary = -1;
    if (account.size() > 3 && parseInt(account[3], primary) && primary == gid)
        return true;
    std::string text;
    if (readFile(fileTree + "/etc/group", text) != 0)
        return false;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields = split(line, ':');
        int id = -1;
        if (fields.size() < 4 || !parseInt(fields[2], id) || id != gid)
            continue;
        for (const std::string& member : split(fields[3], ','))
            if (member == user)
                return true;
    }
    return false;
}

} // namespace KQSim
