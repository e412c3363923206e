#include "kqctl/kqctl.h"

#include "SimHost.h"

#include <cerrno>
#include <string>
#include <unistd.h>

namespace {

pid_t failWith(int code, int* error)
{
    if (error)
        *error = code;
    errno = code;
    return -1;
}

// In the child: only descriptor moves, a directory change and the caller's
// function, which is what running "inside the container" means here.
[[noreturn]] void runInside(const char* directory, kqctl_env_exec_fn fn, void* data, int stdinFd, int stdoutFd)
{
    if (stdinFd >= 0 && stdinFd != STDIN_FILENO && ::dup2(stdinFd, STDIN_FILENO) < 0)
        _exit(127);
    if (stdoutFd >= 0 && stdoutFd != STDOUT_FILENO && ::dup2(stdoutFd, STDOUT_FILENO) < 0)
        _exit(127);
    if (directory && ::chdir(directory) != 0)
        _exit(127);
    _exit(fn(data) & 0xff);
}

} // namespace

extern "C" pid_t kqctl_env_exec_fn_async(int veid, const char* root, kqctl_env_exec_fn fn, void* data, int stdin_fd,
                                         int stdout_fd, int timeout, int flags, int* error)
{
    try {
        if (!fn || flags != 0)
            return failWith(EINVAL, error);
        // The host (VEID 0) is always there; a container must be running.
        if (veid != 0 && !kqsim::isVeidRunning(veid))
            return failWith(ESRCH, error);
        std::string directory;
        if (veid == 0)
            directory = kqsim::simHostRoot().empty() ? "/" : kqsim::simHostRoot();
        else if (!kqsim::containerRootDir(veid, directory))
            directory.clear();
        // Prepared before the fork: the child must not allocate.
        const char* target = !directory.empty() && ::access(directory.c_str(), X_OK) == 0 ? directory.c_str() : nullptr;
        pid_t pid = ::fork();
        if (pid < 0)
            return failWith(errno, error);
        if (pid == 0)
            runInside(target, fn, data, stdin_fd, stdout_fd);
        if (error)
            *error = 0;
        return pid;
    } catch (...) {
        return failWith(ENOMEM, error);
    }
}
