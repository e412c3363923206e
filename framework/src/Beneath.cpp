#include "KQC/Beneath.h"

#include "KQC/Error.h"
#include "KQC/Handle.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace KQC {
namespace {

int refuse(int err, const char* format, const std::string& what)
{
    setErrorMessage(format, what.c_str());
    errno = err;
    return -1;
}

// The message is the system's text alone: callers put their context first.
int systemFailure()
{
    int err = errno;
    setErrorMessage("%s", std::strerror(err));
    errno = err;
    return -1;
}

int splitName(const std::string& name, std::vector<std::string>& parts)
{
    if (name.empty())
        return refuse(EINVAL, "'%s' is no file name", name);
    if (name[0] == '/')
        return refuse(EINVAL, "'%s' is not relative to its folder", name);
    // The system would end the name at a NUL: "..\0" would then be "..".
    if (name.find('\0') != std::string::npos)
        return refuse(EINVAL, "'%s' holds a NUL character", name);
    size_t begin = 0;
    for (;;) {
        size_t slash = name.find('/', begin);
        std::string part = name.substr(begin, slash == std::string::npos ? std::string::npos : slash - begin);
        // "." and empty parts are refused as well as "..": a name that
        // needs them is not one a client means honestly.
        if (part.empty() || part == "." || part == "..")
            return refuse(EINVAL, "'%s' may only name something inside its folder", name);
        parts.push_back(part);
        if (slash == std::string::npos)
            return 0;
        begin = slash + 1;
    }
}

// Why an O_NOFOLLOW open of `part` in `dir` failed: a link gets a sentence
// of its own, anything else the system's text.
int openFailure(int dir, const std::string& part, const std::string& shown)
{
    int err = errno;
    struct stat st;
    if ((err == ELOOP || err == ENOTDIR) && ::fstatat(dir, part.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISLNK(st.st_mode))
        return refuse(ELOOP, "'%s' is a symbolic link", shown);
    errno = err;
    return systemFailure();
}

int openFolder(int dir, const char* path)
{
    int fd;
    do {
        fd = ::openat(dir, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// Opens the folder that holds the last part of `name`, one part at a time,
// creating missing folders when `create` is set. `leaf` gets the last part
// and `shown` the full path, for messages.
int openParent(const std::string& base, const std::string& name, bool create, mode_t mode, KQCHandle& folder,
               std::string& leaf, std::string& shown)
{
    std::vector<std::string> parts;
    if (splitName(name, parts) != 0)
        return -1;
    folder.reset(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isValid())
        return systemFailure();
    shown = base;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
        shown += "/" + parts[i];
        if (create && ::mkdirat(folder.get(), parts[i].c_str(), mode) != 0 && errno != EEXIST)
            return systemFailure();
        KQCHandle next(openFolder(folder.get(), parts[i].c_str()));
        if (!next.isValid())
            return openFailure(folder.get(), parts[i], shown);
        folder = std::move(next);
    }
    leaf = parts.back();
    shown += "/" + leaf;
    return 0;
}

// What is at `leaf` now: 0 with `st` filled, 1 when nothing is there, -1
// on failure. A link is refused here so that nobody acts on it.
int statLeaf(int folder, const std::string& leaf, const std::string& shown, struct stat& st)
{
    if (::fstatat(folder, leaf.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 1 : systemFailure();
    if (S_ISLNK(st.st_mode))
        return refuse(ELOOP, "'%s' is a symbolic link", shown);
    if (S_ISDIR(st.st_mode))
        return refuse(EISDIR, "'%s' is a folder", shown);
    if (!S_ISREG(st.st_mode))
        return refuse(EINVAL, "'%s' is not a regular file", shown);
    return 0;
}

std::string uniqueSuffix()
{
    static std::atomic<unsigned> counter{0};
    std::random_device random;
    return "~tmp" + std::to_string(::getpid()) + "." + std::to_string(counter++) + "." + std::to_string(random());
}

} // namespace

int checkBeneathName(const std::string& name)
{
    std::vector<std::string> parts;
    return splitName(name, parts);
}

int readFileBeneath(const std::string& base, const std::string& name, std::string& out, size_t limit)
{
    KQCHandle folder;
    std::string leaf, shown;
    if (openParent(base, name, false, 0, folder, leaf, shown) != 0)
        return -1;
    struct stat st;
    int there = statLeaf(folder.get(), leaf, shown, st);
    if (there > 0) {
        errno = ENOENT;
        return systemFailure();
    }
    if (there < 0)
        return -1;
    KQCHandle file;
    int fd;
    do {
        fd = ::openat(folder.get(), leaf.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    file.reset(fd);
    if (!file.isValid())
        return openFailure(folder.get(), leaf, shown);
    return readHostFd(file.get(), shown, out, limit);
}

int writeFileBeneath(const std::string& base, const std::string& name, const std::string& data, mode_t folderMode)
{
    KQCHandle folder;
    std::string leaf, shown;
    if (openParent(base, name, true, folderMode, folder, leaf, shown) != 0)
        return -1;
    struct stat st;
    int there = statLeaf(folder.get(), leaf, shown, st);
    if (there < 0)
        return -1;
    mode_t mode = there == 0 ? (st.st_mode & 07777) : 0644;

    const std::string temporary = leaf + uniqueSuffix();
    KQCHandle file(::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                            0600));
    if (!file.isValid())
        return systemFailure();
    if (writeAll(file.get(), data.data(), data.size()) != 0 || ::fchmod(file.get(), mode) != 0 ||
        ::fsync(file.get()) != 0 || ::close(file.release()) != 0 ||
        ::renameat(folder.get(), temporary.c_str(), folder.get(), leaf.c_str()) != 0) {
        int err = errno;
        ::unlinkat(folder.get(), temporary.c_str(), 0);
        errno = err;
        return systemFailure();
    }
    return 0;
}

int removeFileBeneath(const std::string& base, const std::string& name)
{
    KQCHandle folder;
    std::string leaf, shown;
    if (openParent(base, name, false, 0, folder, leaf, shown) != 0)
        return -1;
    struct stat st;
    int there = statLeaf(folder.get(), leaf, shown, st);
    // A FIFO or socket is only an entry of this folder: removing it is safe.
    if (there < 0 && errno == EINVAL)
        there = 0;
    if (there > 0) {
        errno = ENOENT;
        return systemFailure();
    }
    if (there < 0)
        return -1;
    if (::unlinkat(folder.get(), leaf.c_str(), 0) != 0)
        return systemFailure();
    return 0;
}

} // namespace KQC
