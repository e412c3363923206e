#include "RealCalls.h"

#include <cerrno>
#include <dlfcn.h>
#include <unistd.h>

namespace kqsim {
namespace {

using OpenFn = int (*)(const char*, int, ...);
using OpenatFn = int (*)(int, const char*, int, ...);
using CloseFn = int (*)(int);
using IoctlFn = int (*)(int, unsigned long, ...);
using Dup2Fn = int (*)(int, int);
using Dup3Fn = int (*)(int, int, int);
using SyscallFn = long (*)(long, ...);

// Looked up on first use rather than in a constructor: other libraries'
// constructors may call us before ours has run.
template <typename Fn>
Fn resolved(Fn& cache, const char* name)
{
    Fn fn = __atomic_load_n(&cache, __ATOMIC_ACQUIRE);
    if (fn)
        return fn;
    fn = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
    __atomic_store_n(&cache, fn, __ATOMIC_RELEASE);
    return fn;
}

OpenFn g_open;
OpenatFn g_openat;
CloseFn g_close;
IoctlFn g_ioctl;
Dup2Fn g_dup2;
Dup3Fn g_dup3;
SyscallFn g_syscall;

int missing()
{
    errno = ENOSYS;
    return -1;
}

} // namespace

int realOpen(const char* path, int flags, mode_t mode)
{
    OpenFn fn = resolved(g_open, "open");
    return fn ? fn(path, flags, mode) : missing();
}

int realOpenat(int dirfd, const char* path, int flags, mode_t mode)
{
    OpenatFn fn = resolved(g_openat, "openat");
    return fn ? fn(dirfd, path, flags, mode) : missing();
}

int realClose(int fd)
{
    CloseFn fn = resolved(g_close, "close");
    return fn ? fn(fd) : missing();
}

int realIoctl(int fd, unsigned long request, void* arg)
{
    IoctlFn fn = resolved(g_ioctl, "ioctl");
    return fn ? fn(fd, request, arg) : missing();
}

int realDup2(int oldfd, int newfd)
{
    Dup2Fn fn = resolved(g_dup2, "dup2");
    return fn ? fn(oldfd, newfd) : missing();
}

int realDup3(int oldfd, int newfd, int flags)
{
    Dup3Fn fn = resolved(g_dup3, "dup3");
    return fn ? fn(oldfd, newfd, flags) : missing();
}

long realSyscall(long number, long a1, long a2, long a3, long a4, long a5, long a6)
{
    SyscallFn fn = resolved(g_syscall, "syscall");
    return fn ? fn(number, a1, a2, a3, a4, a5, a6) : missing();
}

ssize_t readRetrying(int fd, void* buffer, size_t size)
{
    for (;;) {
        ssize_t got = ::read(fd, buffer, size);
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

bool writeAll(int fd, const void* buffer, size_t size)
{
    const char* cursor = static_cast<const char*>(buffer);
    while (size > 0) {
        ssize_t done = ::write(fd, cursor, size);
        if (done < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        cursor += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

FileDescriptor::~FileDescriptor()
{
    if (m_fd >= 0) {
        int saved = errno;  // closing must not clobber the caller's errno
        realClose(m_fd);
        errno = saved;
    }
}

} // namespace kqsim
