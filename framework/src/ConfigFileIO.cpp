#include "ConfigFileIO.h"

#include "KQC/Error.h"

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

// Owns one descriptor and closes it on every path out.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }
    // Closes now, so that a failing close can be reported.
    int close()
    {
        int result = ::close(m_fd);
        m_fd = -1;
        return result;
    }

private:
    int m_fd;
};

int writeAll(int fd, const std::string& content)
{
    size_t done = 0;
    while (done < content.size()) {
        ssize_t written = ::write(fd, content.data() + done, content.size() - done);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        done += static_cast<size_t>(written);
    }
    return 0;
}

int fsyncRetrying(int fd)
{
    int result;
    do {
        result = ::fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Writes the temporary file; the caller renames or removes it.
int writeTemporary(const std::string& path, std::string& tempPath, const std::string& content)
{
    std::string pattern = path + ".XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    Descriptor fd(::mkostemp(buffer.data(), O_CLOEXEC));
    if (fd.get() < 0) {
        setErrorMessage("can't create temporary file for '%s' : %m", path.c_str());
        return -1;
    }
    tempPath = buffer.data();
    // mkostemp makes the file 0600; configuration files are world-readable.
    ::fchmod(fd.get(), 0644);
    if (writeAll(fd.get(), content) != 0 || fsyncRetrying(fd.get()) != 0 || fd.close() != 0) {
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
    Descriptor fd(raw);
    if (fd.get() < 0) {
        setErrorMessage("can't open '%s' : %m", path.c_str());
        return -1;
    }
    std::string text;
    char chunk[65536];
    for (;;) {
        ssize_t got = ::read(fd.get(), chunk, sizeof chunk);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            setErrorMessage("can't read '%s' : %m", path.c_str());
            return -1;
        }
        if (got == 0)
            break;
        text.append(chunk, static_cast<size_t>(got));
    }
    content.swap(text);
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
