#include "KQSim/Fs.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace KQSim {
namespace fs = std::filesystem;

FileDescriptor::~FileDescriptor()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = other.release();
    }
    return *this;
}

int FileDescriptor::release()
{
    int fd = m_fd;
    m_fd = -1;
    return fd;
}

int FileDescriptor::close()
{
    int fd = release();
    if (fd >= 0 && ::close(fd) != 0 && errno != EINTR) {
        KQC::setErrorMessage("close: %m");
        return -1;
    }
    return 0;
}

int writeAll(int fd, const std::string& data)
{
    if (KQC::writeAll(fd, data.data(), data.size()) != 0) {
        KQC::setErrorMessage("write: %m");
        return -1;
    }
    return 0;
}

int readFile(const std::string& path, std::string& content)
{
    FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        KQC::setErrorMessage("open '%s': %m", path.c_str());
        return -1;
    }
    if (KQC::readAll(fd.get(), content) != 0) {
        KQC::setErrorMessage("read '%s': %m", path.c_str());
        return -1;
    }
    return 0;
}

namespace {

// The temporary file is removed unless the rename took it away.
struct TemporaryPath {
    std::string path;
    bool keep = false;
    ~TemporaryPath()
    {
        if (!path.empty() && !keep)
            ::unlink(path.c_str());
    }
};

} // namespace

int writeFileAtomic(const std::string& path, const std::string& content, unsigned mode)
{
    std::string pattern = path + ".XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    FileDescriptor fd(::mkostemp(name.data(), O_CLOEXEC));
    if (!fd.valid()) {
        KQC::setErrorMessage("create a temporary file beside '%s': %m", path.c_str());
        return -1;
    }
    TemporaryPath temporary{name.data()};
    if (::fchmod(fd.get(), mode) != 0) {
        KQC::setErrorMessage("chmod '%s': %m", temporary.path.c_str());
        return -1;
    }
    if (writeAll(fd.get(), content) != 0)
        return -1;
    if (::fsync(fd.get()) != 0) {
        KQC::setErrorMessage("flush '%s': %m", temporary.path.c_str());
        return -1;
    }
    if (fd.close() != 0)
        return -1;
    if (::rename(temporary.path.c_str(), path.c_str()) != 0) {
        KQC::setErrorMessage("rename '%s' -> '%s': %m", temporary.path.c_str(), path.c_str());
        return -1;
    }
    temporary.keep = true;
    return 0;
}

int appendOnce(const std::string& path, const std::string& content)
{
    FileDescriptor fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!fd.valid()) {
        KQC::setErrorMessage("open '%s': %m", path.c_str());
        return -1;
    }
    // One write call: O_APPEND makes the seek-and-write atomic for regular
    // files, so lines of concurrent tools never mix.
    for (;;) {
        ssize_t n = ::write(fd.get(), content.data(), content.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            KQC::setErrorMessage("append to '%s': %m", path.c_str());
            return -1;
        }
        if (static_cast<size_t>(n) != content.size()) {
            KQC::setErrorMessage("append to '%s': short write", path.c_str());
            return -1;
        }
        return fd.close();
    }
}

int makeDirs(const std::string& path, unsigned mode)
{
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        KQC::setErrorMessage("mkdir '%s': %s", path.c_str(), error.message().c_str());
        return -1;
    }
    ::chmod(path.c_str(), mode);
    return 0;
}

int removeTree(const std::string& path)
{
    std::error_code error;
    fs::remove_all(path, error);
    if (error) {
        KQC::setErrorMessage("remove '%s': %s", path.c_str(), error.message().c_str());
        return -1;
    }
    return 0;
}

int copyTree(const std::string& source, const std::string& target)
{
    if (makeDirs(target) != 0)
        return -1;
    std::error_code error;
    fs::copy(source, target,
             fs::copy_options::recursive | fs::copy_options::copy_symlinks
                 | fs::copy_options::overwrite_existing,
             error);
    if (error) {
        KQC::setErrorMessage("copy '%s' -> '%s': %s", source.c_str(), target.c_str(),
                             error.message().c_str());
        return -1;
    }
    return 0;
}

bool pathExists(const std::string& path)
{
    struct stat info;
    return ::stat(path.c_str(), &info) == 0;
}

bool entryExists(const std::string& path)
{
    struct stat info;
    return ::lstat(path.c_str(), &info) == 0;
}

bool isDirectory(const std::string& path)
{
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

int listDirectory(const std::string& path, std::vector<std::string>& names)
{
    names.clear();
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(path.c_str()), ::closedir);
    if (!dir) {
        KQC::setErrorMessage("open folder '%s': %m", path.c_str());
        return -1;
    }
    while (struct dirent* entry = ::readdir(dir.get())) {
        std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return 0;
}

std::string absolutePath(const std::string& path)
{
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    if (error)
        return path;
    std::string text = absolute.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

} // namespace KQSim
