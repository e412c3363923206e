#pragma once
// The C library's own open/close/ioctl/syscall, found behind this preload.
//
// Everything the simulated kernel does to files goes through these, so that
// its own reads of state files never come back into the interposers.
// Thread safety: resolution is lazy and idempotent; a race only repeats a
// lookup. If a symbol cannot be found the call fails with ENOSYS.
#include <sys/types.h>

namespace kqsim {

int realOpen(const char* path, int flags, mode_t mode);
int realOpenat(int dirfd, const char* path, int flags, mode_t mode);
int realClose(int fd);
int realIoctl(int fd, unsigned long request, void* arg);
int realDup2(int oldfd, int newfd);
int realDup3(int oldfd, int newfd, int flags);
long realSyscall(long number, long a1, long a2, long a3, long a4, long a5, long a6);

// read/write that retry on EINTR; whole-buffer write. -1 with errno on failure.
ssize_t readRetrying(int fd, void* buffer, size_t size);
bool writeAll(int fd, const void* buffer, size_t size);

// Owns a descriptor opened through realOpen and closes it with realClose.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    ~FileDescriptor();
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

} // namespace kqsim
