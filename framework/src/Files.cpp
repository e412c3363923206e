#include "KQC/Files.h"

#include "KQC/Error.h"
#include "KQC/Handle.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <ctime>
#include <cstdlib>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <ostream>
#include <streambuf>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace KQC {
namespace {

// Keeps errno (and optionally the thread's message) across clean-up code,
// so the caller still sees the cause of the original failure.
class ErrnoKeeper {
public:
    ErrnoKeeper() : m_errno(errno) {}
    ~ErrnoKeeper() { errno = m_errno; }

private:
    int m_errno;
};


int openForReading(int dirfd, const char* name, int flags)
{
    int raw;
    do {
        raw = ::openat(dirfd, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags);
    } while (raw < 0 && errno == EINTR);
    return raw;
}

// Opens a host file for reading without blocking: a FIFO with no writer
// would otherwise hang the caller in open() itself. Reading leaves the
// access time alone where we may ask so (our own files, or as root): the
// first read of each of a host's thousands of files after a change would
// otherwise write its inode back.
int openHostFile(int dirfd, const char* name, const std::string& path, KQCHandle& fd)
{
    int raw = openForReading(dirfd, name, O_NOATIME);
    if (raw < 0 && errno == EPERM)
        raw = openForReading(dirfd, name, 0);
    fd.reset(raw);
    if (!fd.isValid()) {
        setErrorMessage("can't open '%s': %m", path.c_str());
        return -1;
    }
    return 0;
}

constexpr size_t kRandomSuffixLength = 6;  // mkostemp's "XXXXXX"

// A unique new file "<base><tag>XXXXXX" beside base; the descriptor is
// returned in fd and the name in path.
int makeUniqueSibling(const std::string& base, const char* tag, KQCHandle& fd, std::string& path)
{
    std::vector<char> name(base.begin(), base.end());
    for (const char* t = tag; *t; ++t)
        name.push_back(*t);
    name.insert(name.end(), kRandomSuffixLength, 'X');
    name.push_back('\0');
    fd.reset(::mkostemp(name.data(), O_CLOEXEC));
    if (!fd.isValid()) {
        setErrorMessage("can't create a temporary file for '%s': %m", base.c_str());
        return -1;
    }
    path.assign(name.data());
    return 0;
}

void unlinkQuietly(const std::string& path)
{
    ErrnoKeeper keep;
    ::unlink(path.c_str());
}

// Writes the stream's buffer to the descriptor; remembers the first write
// error so close() can report it with its errno.
class FdStreamBuf : public std::streambuf {
public:
    explicit FdStreamBuf(int fd) : m_fd(fd) { setp(m_buffer, m_buffer + sizeof m_buffer); }
    int failedErrno() const { return m_errno; }

protected:
    int_type overflow(int_type ch) override
    {
        if (flushBuffer() != 0)
            return traits_type::eof();
        if (!traits_type::eq_int_type(ch, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(ch);
            pbump(1);
        }
        return traits_type::not_eof(ch);
    }
    int sync() override { return flushBuffer(); }

private:
    int flushBuffer()
    {
        size_t pending = static_cast<size_t>(pptr() - pbase());
        if (m_errno != 0)
            return -1;
        if (pending > 0 && writeAll(m_fd, pbase(), pending) != 0) {
            m_errno = errno;
            return -1;
        }
        setp(m_buffer, m_buffer + sizeof m_buffer);
        return 0;
    }

    int m_fd;
    int m_errno = 0;
    char m_buffer[16384];
};

} // namespace

int writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return 0;
}

ssize_t writeWithoutSigpipe(int fd, const char* data, size_t size)
{
    sigset_t pipeOnly, old, pending;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &old);
    sigpending(&pending);
    bool wasPending = sigismember(&pending, SIGPIPE) == 1;
    ssize_t n;
    do {
        n = ::write(fd, data, size);
    } while (n < 0 && errno == EINTR);
    int writeErrno = errno;
    if (n < 0 && writeErrno == EPIPE && !wasPending) {
        struct timespec noWait = {0, 0};
        while (sigtimedwait(&pipeOnly, nullptr, &noWait) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    errno = writeErrno;
    return n;
}

int readAll(int fd, std::string& out)
{
    std::string text;
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0)
        text.reserve(static_cast<size_t>(st.st_size));
    char chunk[65536];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -1;
        }
        if (n == 0)
            break;
        text.append(chunk, static_cast<size_t>(n));
    }
    out.swap(text);
    return 0;
}

int fentryExists(const std::string& path, int followLinks)
{
    ErrnoKeeper keep;
    struct stat st;
    int rc = followLinks ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st);
    return rc == 0 ? 1 : 0;
}

namespace {

// What readHostFd does, with the file's status handed back.
int readOpenHostFile(int fd, const std::string& path, std::string& out, size_t limit, struct stat& st)
{
    if (::fstat(fd, &st) != 0) {
        setErrorMessage("can't read '%s': %m", path.c_str());
        return -1;
    }
    if (S_ISDIR(st.st_mode)) {
        errno = EISDIR;
        setErrorMessage("can't read '%s': %m", path.c_str());
        return -1;
    }
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        setErrorMessage("can't read '%s': not a regular file", path.c_str());
        return -1;
    }
    // st_size may lie (files in /proc report 0, a file may grow while it is
    // read): the cap is enforced on what is actually read.
    std::string text;
    if (st.st_size > 0)
        text.reserve(std::min(static_cast<size_t>(st.st_size), limit) + 1);
    char chunk[65536];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            setErrorMessage("can't read '%s': %m", path.c_str());
            return -1;
        }
        if (n == 0)
            break;
        if (text.size() + static_cast<size_t>(n) > limit) {
            errno = EFBIG;
            setErrorMessage("can't read '%s': larger than %zu bytes", path.c_str(), limit);
            return -1;
        }
        text.append(chunk, static_cast<size_t>(n));
        // A short read that brings the text to the size the file had is its
        // end: hosts have thousands of small files, and asking once more
        // for the end of each costs a call apiece. Files whose size says
        // nothing (0 in /proc, a page in /sys) are read to the end.
        if (static_cast<size_t>(n) < sizeof chunk && st.st_size > 0 && text.size() == static_cast<size_t>(st.st_size))
            break;
    }
    out.swap(text);
    return 0;
}

} // namespace

int readHostFd(int fd, const std::string& path, std::string& out, size_t limit)
{
    struct stat st;
    return readOpenHostFile(fd, path, out, limit, st);
}

int file2str(const std::string& path, std::string& out, int /*flags*/, size_t limit)
{
    return file2strAt(AT_FDCWD, path.c_str(), path, out, nullptr, limit);
}

int file2strAt(int dirfd, const char* name, const std::string& path, std::string& out, struct stat* st, size_t limit)
{
    KQCHandle fd;
    if (openHostFile(dirfd, name, path, fd) != 0)
        return -1;
    struct stat seen;
    if (readOpenHostFile(fd.get(), path, out, limit, seen) != 0)
        return -1;
    if (st)
        *st = seen;
    return 0;
}

int writeFileAtomic(const std::string& path, const std::string& data, mode_t mode)
{
    TemporaryFile tmp(path);
    if (!tmp.isValid())
        return -1;
    if (writeAll(tmp.fd(), data.data(), data.size()) != 0) {
        setErrorMessage("can't write '%s': %m", tmp.getpath().c_str());
        return -1;
    }
    // mkostemp makes 0600 files; the result must carry the caller's mode.
    if (::fchmod(tmp.fd(), mode & 07777) != 0) {
        setErrorMessage("can't set the mode of '%s': %m", tmp.getpath().c_str());
        return -1;
    }
    return tmp.commit();
}

int str2file(const std::string& path, const std::string& data)
{
    struct stat st;
    mode_t mode = 0644;
    {
        ErrnoKeeper keep;
        if (::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode))
            mode = st.st_mode & 07777;
    }
    return writeFileAtomic(path, data, mode);
}

int copyFile(const std::string& from, const std::string& to)
{
    struct stat st;
    std::string data;
    if (file2strAt(AT_FDCWD, from.c_str(), from, data, &st) != 0)
        return -1;
    return writeFileAtomic(to, data, st.st_mode & 07777);
}

bool isTemporaryName(const std::string& name)
{
    const size_t tagLength = sizeof kTemporaryTag - 1;
    if (name.size() <= tagLength + kRandomSuffixLength)
        return false;
    const size_t tagAt = name.size() - kRandomSuffixLength - tagLength;
    if (name.compare(tagAt, tagLength, kTemporaryTag) != 0)
        return false;
    // mkostemp fills the suffix with letters and digits only.
    for (size_t i = tagAt + tagLength; i < name.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        if (!std::isalnum(c))
            return false;
    }
    return true;
}

int removeStaleTemporaries(const std::string& dir, long maxAgeSeconds)
{
    KQCHandle dirFd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.isValid()) {
        if (errno == ENOENT)
            return 0;
        setErrorMessage("can't open directory '%s': %m", dir.c_str());
        return -1;
    }
    OpenDir entries(dir);
    if (!entries)
        return -1;
    const time_t now = ::time(nullptr);
    int removed = 0;
    while (entries.read()) {
        const std::string name = entries.name();
        if (!isTemporaryName(name))
            continue;
        struct stat st;
        // Relative to the opened directory and without following links: a
        // link planted under our naming must not steer the removal elsewhere.
        if (::fstatat(dirFd.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode))
            continue;
        if (now - st.st_mtime <= maxAgeSeconds)
            continue;
        if (::unlinkat(dirFd.get(), name.c_str(), 0) == 0)
            ++removed;
    }
    return removed;
}

int removeFile(const std::string& path)
{
    int rc = ::unlink(path.c_str());
    if (rc != 0 && errno == EISDIR)
        rc = ::rmdir(path.c_str());
    if (rc != 0) {
        setErrorMessage("can't remove '%s': %m", path.c_str());
        return -1;
    }
    return 0;
}

int renameFile(const std::string& from, const std::string& to)
{
    if (::rename(from.c_str(), to.c_str()) != 0) {
        setErrorMessage("can't rename '%s' to '%s': %m", from.c_str(), to.c_str());
        return -1;
    }
    return 0;
}

int mkDeepDir(const std::string& path, mode_t mode, int flags)
{
    std::string wanted = path;
    if (flags & MKDIR_EXCLUDE_LAST) {
        size_t slash = wanted.find_last_of('/');
        wanted.erase(slash == std::string::npos ? 0 : slash);
    }
    size_t pos = 0;
    while (pos < wanted.size()) {
        size_t slash = wanted.find('/', pos + 1);
        if (slash == std::string::npos)
            slash = wanted.size();
        std::string prefix = wanted.substr(0, slash);
        pos = slash;
        if (prefix.empty() || prefix == "/")
            continue;
        if (::mkdir(prefix.c_str(), mode) == 0)
            continue;
        int mkdirErrno = errno;
        struct stat st;
        // An existing directory is what we want, whatever mkdir said
        // (a read-only file system reports EROFS even for existing ones).
        if (::stat(prefix.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            continue;
        errno = mkdirErrno == EEXIST ? ENOTDIR : mkdirErrno;
        setErrorMessage("can't create directory '%s': %m", prefix.c_str());
        return -1;
    }
    return 0;
}

struct TemporaryFile::State {
    std::string target;
    std::string path;
    KQCHandle fd;
    std::unique_ptr<FdStreamBuf> buffer;
    std::ostream stream{nullptr};
    bool valid = false;
    bool closed = false;
    bool committed = false;
};

TemporaryFile::TemporaryFile(const std::string& target, bool create) : m_state(new State)
{
    State& s = *m_state;
    s.target = target;
    if (makeUniqueSibling(target, kTemporaryTag, s.fd, s.path) != 0)
        return;
    s.valid = true;
    if (!create) {
        // Only the name was wanted: give the file up again, the name stays
        // unique enough for the caller to create it right away.
        unlinkQuietly(s.path);
        s.fd.reset();
        s.closed = true;
        return;
    }
    s.buffer.reset(new FdStreamBuf(s.fd.get()));
    s.stream.rdbuf(s.buffer.get());
}

TemporaryFile::~TemporaryFile()
{
    ErrnoKeeper keep;
    State& s = *m_state;
    s.stream.rdbuf(nullptr);
    s.fd.reset();
    if (s.valid && !s.committed)
        ::unlink(s.path.c_str());
}

bool TemporaryFile::isValid() const { return m_state->valid; }

const std::string& TemporaryFile::getpath() const { return m_state->path; }

const std::string& TemporaryFile::target() const { return m_state->target; }

std::ostream& TemporaryFile::stream() { return m_state->stream; }

int TemporaryFile::fd() const { return m_state->fd.get(); }

int TemporaryFile::close()
{
    State& s = *m_state;
    if (!s.valid) {
        errno = EBADF;
        setErrorMessage("can't close the temporary file for '%s': it was not created", s.target.c_str());
        return -1;
    }
    if (s.closed)
        return 0;
    s.closed = true;
    s.stream.flush();
    s.stream.rdbuf(nullptr);
    KQCHandle fd(s.fd.release());
    if (s.buffer && s.buffer->failedErrno() != 0) {
        errno = s.buffer->failedErrno();
        setErrorMessage("can't write '%s': %m", s.path.c_str());
        return -1;
    }
    if (::fsync(fd.get()) != 0) {
        setErrorMessage("can't flush '%s': %m", s.path.c_str());
        return -1;
    }
    // close() is where some file systems report delayed write errors.
    if (::close(fd.release()) != 0) {
        setErrorMessage("can't close '%s': %m", s.path.c_str());
        return -1;
    }
    return 0;
}

int TemporaryFile::commit()
{
    State& s = *m_state;
    if (close() != 0)
        return -1;
    if (renameFile(s.path, s.target) != 0)
        return -1;
    s.committed = true;
    return 0;
}

OpenDir::OpenDir(const std::string& path, int /*flags*/) : m_dir(nullptr)
{
    KQCHandle fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.isValid())
        m_dir = ::fdopendir(fd.get());
    if (m_dir == nullptr) {
        setErrorMessage("can't open directory '%s': %m", path.c_str());
        return;
    }
    fd.release();  // the DIR stream owns it now
}

OpenDir::~OpenDir()
{
    if (m_dir != nullptr) {
        ErrnoKeeper keep;
        ::closedir(m_dir);
    }
}

OpenDir::operator bool() const { return m_dir != nullptr; }

bool OpenDir::read()
{
    m_name.clear();
    if (m_dir == nullptr)
        return false;
    errno = 0;
    struct dirent* entry = ::readdir(m_dir);
    if (entry == nullptr) {
        if (errno != 0)
            setErrorMessage("can't read directory: %m");
        return false;
    }
    m_name = entry->d_name;
    return true;
}

std::string OpenDir::name() const { return m_name; }

bool OpenDir::isDots() const { return m_name == "." || m_name == ".."; }

BackupFile::~BackupFile()
{
    if (m_backup.empty())
        return;
    // Restoring runs during unwinding of a failed rewrite: keep the
    // failure's errno and message for the caller.
    ErrnoKeeper keep;
    std::string message = getErrorMessage();
    // A failed restore leaves the copy beside the file under its "~bak"
    // name, so the old contents are not lost; the caller's message says
    // what went wrong first.
    if (restore() != 0)
        message += std::string("; and the old contents stay in '") + m_backup + "': " + getErrorMessage();
    setErrorMessage("%s", message.c_str());
}

int BackupFile::backup(const std::string& path)
{
    clear();
    KQCHandle reserved;
    std::string backupPath;
    if (makeUniqueSibling(path, "~bak", reserved, backupPath) != 0)
        return -1;
    reserved.reset();
    if (copyFile(path, backupPath) != 0) {
        unlinkQuietly(backupPath);
        return -1;
    }
    m_path = path;
    m_backup = backupPath;
    return 0;
}

int BackupFile::restore()
{
    if (m_backup.empty()) {
        errno = EINVAL;
        setErrorMessage("can't restore: no backup was taken");
        return -1;
    }
    if (renameFile(m_backup, m_path) != 0)
        return -1;
    m_backup.clear();
    m_path.clear();
    return 0;
}

void BackupFile::clear()
{
    if (!m_backup.empty())
        unlinkQuietly(m_backup);
    m_backup.clear();
    m_path.clear();
}

std::string intToStr(long long v) { return std::to_string(v); }

std::string ulongToStr(unsigned long v) { return std::to_string(v); }

std::string longlongToStr(long long v) { return std::to_string(v); }

int strToUlong(const std::string& s, unsigned long& out)
{
    // strtoul alone accepts blanks, signs ("-1" wraps round) and trailing
    // garbage; a number from a file or a client must be digits only.
    bool digitsOnly = !s.empty();
    for (char c : s)
        digitsOnly = digitsOnly && c >= '0' && c <= '9';
    if (!digitsOnly) {
        errno = EINVAL;
        setErrorMessage("'%s' is not a decimal number", s.c_str());
        return -1;
    }
    errno = 0;
    unsigned long value = std::strtoul(s.c_str(), nullptr, 10);
    if (errno == ERANGE) {
        setErrorMessage("'%s' is too big a number", s.c_str());
        return -1;
    }
    out = value;
    return 0;
}

} // namespace KQC
