// The entry points this library puts in front of the C library's when it is
// preloaded. Each one answers for the simulated control device or the
// beancounter call and hands everything else to the real function untouched.
#include "ControlDevice.h"
#include "ControlIoctl.h"
#include "RealCalls.h"
#include "Ubstat.h"

#include <cstdarg>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

bool takesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// The mode argument of an open call, which is only there when the flags
// create a file; reading it otherwise would read past the arguments.
mode_t modeArgument(int flags, va_list args)
{
    return takesMode(flags) ? static_cast<mode_t>(va_arg(args, int)) : 0;
}

int openPath(const char* path, int flags, mode_t mode)
{
    if (kqsim::isControlDevicePath(path))
        return kqsim::openControlDevice(flags);
    return kqsim::realOpen(path, flags, mode);
}

int openPathAt(int dirfd, const char* path, int flags, mode_t mode)
{
    // Only absolute paths can name the device; a relative one is the real
    // call's business whatever directory it is relative to.
    if (kqsim::isControlDevicePath(path))
        return kqsim::openControlDevice(flags);
    return kqsim::realOpenat(dirfd, path, flags, mode);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) int open(const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = modeArgument(flags, args);
    va_end(args);
    return openPath(path, flags, mode);
}

__attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = modeArgument(flags, args);
    va_end(args);
    return openPath(path, flags, mode);
}

// The fortified C library routes some opens through these.
__attribute__((visibility("default"))) int __open_2(const char* path, int flags)
{
    return openPath(path, flags, 0);
}

__attribute__((visibility("default"))) int __open64_2(const char* path, int flags)
{
    return openPath(path, flags, 0);
}

__attribute__((visibility("default"))) int __openat_2(int dirfd, const char* path, int flags)
{
    return openPathAt(dirfd, path, flags, 0);
}

__attribute__((visibility("default"))) int __openat64_2(int dirfd, const char* path, int flags)
{
    return openPathAt(dirfd, path, flags, 0);
}

__attribute__((visibility("default"))) int openat(int dirfd, const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = modeArgument(flags, args);
    va_end(args);
    return openPathAt(dirfd, path, flags, mode);
}

__attribute__((visibility("default"))) int openat64(int dirfd, const char* path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = modeArgument(flags, args);
    va_end(args);
    return openPathAt(dirfd, path, flags, mode);
}

__attribute__((visibility("default"))) int close(int fd)
{
    // Forget first: once closed, the number may be reused by another thread.
    kqsim::forgetDescriptor(fd);
    return kqsim::realClose(fd);
}

// dup2/dup3 close their target silently; the target stops being the device.
__attribute__((visibility("default"))) int dup2(int oldfd, int newfd) noexcept
{
    int result = kqsim::realDup2(oldfd, newfd);
    if (result >= 0 && oldfd != newfd)
        kqsim::forgetDescriptor(newfd);
    return result;
}

__attribute__((visibility("default"))) int dup3(int oldfd, int newfd, int flags) noexcept
{
    int result = kqsim::realDup3(oldfd, newfd, flags);
    if (result >= 0)
        kqsim::forgetDescriptor(newfd);
    return result;
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void* argument = va_arg(args, void*);
    va_end(args);
    if (kqsim::isControlDescriptor(fd))
        // Callers pass the request as an int; only its 32 bits mean anything.
        return kqsim::answerControlIoctl(static_cast<uint32_t>(request), argument);
    return kqsim::realIoctl(fd, request, argument);
}

__attribute__((visibility("default"))) long syscall(long number, ...) noexcept
{
    va_list args;
    va_start(args, number);
    long a[6];
    for (long& value : a)
        value = va_arg(args, long);
    va_end(args);
    if (kqsim::isUbstatCall(number, a[0]))
        return kqsim::answerUbstat(number, a[0], static_cast<unsigned long>(a[1]), static_cast<unsigned long>(a[2]),
                                   reinterpret_cast<void*>(a[3]), a[4]);
    return kqsim::realSyscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}

} // extern "C"
