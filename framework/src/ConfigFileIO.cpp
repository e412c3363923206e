#include "ConfigFileIO.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Handle.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace KQC {
namespace ConfigFileIO {
namespace {

int fsyncRetrying(int fd)
{
    int result;
    do {
        result = ::fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Closes now rather than on destruction, so that a failing close is reported.
int closeNow(KQCHandle& fd) { return ::close(fd.release()); }

// Writes the temporary file; the caller renames or removes it.
int writeTemporary(const std::string& path, std::string& tempPath, const std::string& content)
{
    std::string pattern = path + ".XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    KQCHandle fd(::mkostemp(buffer.data(), O_CLOEXEC));
    if (!fd.isValid()) {
        setErrorMessage("can't create temporary file for '%s' : %m", path.c_str());
        return -1;
    }
    tempPath = buffer.data();
    // mkostemp makes the file 0600; configuration files are world-readable.
    ::fchmod(fd.get(), 0644);
    if (writeAll(fd.get(), content.data(), content.size()) != 0 || fsyncRetrying(fd.get()) != 0 ||
        closeNow(fd) != 0) {
        setErrorMessage("can't write '%s' : %m", tempPath.c_str());
        return -1;
    }
    return 0;
}

} // namespace

int readWholeFile(const std::string& path, std::string& content)
{
    int raw;
    do {
        raw = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    } while (raw < 0 && errno == EINTR);
    KQCHandle fd(raw);
    if (!fd.isValid()) {
        setErrorMessage("can't open '%s' : %m", path.c_str());
        return -1;
    }
    if (readAll(fd.get(), content) != 0) {
        setErrorMessage("can't read '%s' : %m", path.c_str());
        return -1;
    }
    return 0;
}

int replaceFile(const std::string& path, const std::string& content)
{
    std::string tempPath;
    if (writeTemporary(path, tempPath, content) != 0) {
        if (!tempPath.empty())
            ::unlink(tempPath.c_str());
        return -1;
    }
    if (::rename(tempPath.c_str(), path.c_str()) != 0) {
        setErrorMessage("can't rename '%s' to '%s' : %m", tempPath.c_str(), path.c_str());
        ::unlink(tempPath.c_str());
        return -1;
    }
    return 0;
}

long long modificationTime(const std::string& path)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        return -1;
    return static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
}

} // namespace ConfigFileIO
} // namespace KQC
