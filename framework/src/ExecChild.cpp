#include "ExecChild.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KQC {
namespace execdetail {
namespace {

// Everything the child needs, made before fork: after fork in a threaded
// process the child may only make async-signal-safe calls, so nothing here
// may allocate or lock once we are in the child.
struct ChildPlan {
    const char* const* argv;
    const char* const* envp;
    int in;
    int out;
    int err;
    int report;
    int maxFd;
    struct sigaction defaultAction;
    sigset_t emptyMask;
};

// The child's standard streams are set up with dup2 onto 0..2 and the
// error-report pipe onto 3; a source descriptor below 4 would be clobbered
// by an earlier dup2, so every one is moved up first.
int moveAbove3(KQCHandle& fd)
{
    if (fd.get() > 3)
        return 0;
    int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, 4);
    if (moved < 0)
        return -1;
    fd.reset(moved);
    return 0;
}

void closeFrom(int first, int maxFd)
{
    if (::close_range(static_cast<unsigned>(first), ~0U, 0) == 0)
        return;
    // Kernels before 5.9 lack close_range: close one by one.
    for (int fd = first; fd < maxFd; ++fd)
        ::close(fd);
}

[[noreturn]] void runChild(const ChildPlan& plan)
{
    // Signals are still all blocked (the parent blocked them around fork),
    // so none of the parent's handlers can run here. Ignored signals would
    // stay ignored across exec: put every disposition back to default.
    for (int sig = 1; sig < NSIG; ++sig)
        ::sigaction(sig, &plan.defaultAction, nullptr);
    if (::dup2(plan.in, 0) >= 0 && ::dup2(plan.out, 1) >= 0 && ::dup2(plan.err, 2) >= 0
        && ::dup3(plan.report, 3, O_CLOEXEC) >= 0) {
        closeFrom(4, plan.maxFd);
        ::sigprocmask(SIG_SETMASK, &plan.emptyMask, nullptr);
        if (plan.envp != nullptr)
            ::execvpe(plan.argv[0], const_cast<char* const*>(plan.argv), const_cast<char* const*>(plan.envp));
        else
            ::execvp(plan.argv[0], const_cast<char* const*>(plan.argv));
    }
    int failure = errno;
    // The report pipe is close-on-exec: the parent reads EOF when exec
    // worked and this errno when it did not.
    ssize_t ignored = ::write(3, &failure, sizeof failure);
    (void)ignored;
    ::_exit(127);
}

int makePipe(KQCHandle& readEnd, KQCHandle& writeEnd)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        setErrorMessage("can't create a pipe: %m");
        return -1;
    }
    readEnd.reset(fds[0]);
    writeEnd.reset(fds[1]);
    return 0;
}

int setNonBlocking(const KQCHandle& fd)
{
    if (!fd.isValid())
        return 0;
    int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags | O_NONBLOCK) < 0) {
        setErrorMessage("can't make a pipe non-blocking: %m");
        return -1;
    }
    return 0;
}

int highestDescriptor()
{
    struct rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY
        && limit.rlim_cur < 1048576)
        return static_cast<int>(limit.rlim_cur);
    return 1048576;
}

// Reads the exec report: 0 when exec worked, else the child's errno.
int readExecReport(KQCHandle& report)
{
    int childErrno = 0;
    size_t got = 0;
    char* bytes = reinterpret_cast<char*>(&childErrno);
    while (got < sizeof childErrno) {
        ssize_t n = ::read(report.get(), bytes + got, sizeof childErrno - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    return got == sizeof childErrno ? childErrno : 0;
}


// One read from a ready output pipe; closes it at its end.
int drain(pid_t pid, KQCHandle& fd, std::string& into)
{
    char chunk[65536];
    ssize_t n;
    do {
        n = ::read(fd.get(), chunk, sizeof chunk);
    } while (n < 0 && errno == EINTR);
    if (n > 0) {
        into.append(chunk, static_cast<size_t>(n));
        return 0;
    }
    if (n == 0) {
        fd.reset();
        return 0;
    }
    if (errno == EAGAIN)
        return 0;
    setErrorMessage("can't read the output of process %d: %m", static_cast<int>(pid));
    fd.reset();
    return -1;
}

void feed(Child& child)
{
    size_t left = child.input.size() - child.inputPos;
    ssize_t n = writeWithoutSigpipe(child.in.get(), child.input.data() + child.inputPos, left);
    if (n > 0) {
        child.inputPos += static_cast<size_t>(n);
        return;
    }
    if (n < 0 && errno == EAGAIN)
        return;
    // EPIPE (or worse): the child does not read any more. That is its
    // right; what it did not take is dropped.
    child.inputBroken = true;
    child.in.reset();
}

bool inputPending(const Child& child) { return child.in.isValid() && child.inputPos < child.input.size(); }

// A descriptor that turns readable when the process ends, so that its end
// is seen at once rather than at the next look. Kernels before 5.3 (and
// sandboxes that filter the call) have none: invalid then.
int openExitDescriptor(pid_t pid)
{
#ifdef SYS_pidfd_open
    // The kernel makes it close-on-exec: no other child inherits it.
    long fd = ::syscall(SYS_pidfd_open, pid, 0);
    if (fd >= 0)
        return static_cast<int>(fd);
#else
    (void)pid;
#endif
    return -1;
}

// The child's ends of its three streams and of the exec report pipe.
struct ChildEnds {
    KQCHandle in, out, err, report;
};

// Makes the pipes; the parent's ends go into child, the others into ends.
int makeStreams(bool stdinPipe, Child& child, ChildEnds& ends, KQCHandle& reportRead)
{
    if (stdinPipe) {
        if (makePipe(ends.in, child.in) != 0)
            return -1;
    } else {
        ends.in.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!ends.in.isValid()) {
            setErrorMessage("can't open /dev/null: %m");
            return -1;
        }
    }
    if (makePipe(child.out, ends.out) != 0 || makePipe(child.err, ends.err) != 0
        || makePipe(reportRead, ends.report) != 0)
        return -1;
    if (moveAbove3(ends.in) != 0 || moveAbove3(ends.out) != 0 || moveAbove3(ends.err) != 0
        || moveAbove3(ends.report) != 0) {
        setErrorMessage("can't duplicate a descriptor: %m");
        return -1;
    }
    return 0;
}

ChildPlan planFor(const char* const* argv, const char* const* envp, const ChildEnds& ends)
{
    ChildPlan plan;
    plan.argv = argv;
    plan.envp = envp;
    plan.in = ends.in.get();
    plan.out = ends.out.get();
    plan.err = ends.err.get();
    plan.report = ends.report.get();
    plan.maxFd = highestDescriptor();
    std::memset(&plan.defaultAction, 0, sizeof plan.defaultAction);
    plan.defaultAction.sa_handler = SIG_DFL;
    sigemptyset(&plan.defaultAction.sa_mask);
    sigemptyset(&plan.emptyMask);
    return plan;
}

// fork with every signal blocked, so that no handler of ours runs in the
// child before it has reset them. Returns the pid, or -1 (message set).
pid_t forkChild(const ChildPlan& plan)
{
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    pid_t pid = ::fork();
    if (pid == 0)
        runChild(plan);
    int forkErrno = errno;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (pid < 0) {
        errno = forkErrno;
        setErrorMessage("can't start '%s': fork: %m", plan.argv[0]);
    }
    return pid;
}

} // namespace

int spawnChild(const char* const* argv, const char* const* envp, bool stdinPipe, Child& child,
               int& failedStatus)
{
    failedStatus = -1;
    ChildEnds ends;
    KQCHandle reportRead;
    if (makeStreams(stdinPipe, child, ends, reportRead) != 0)
        return -1;
    pid_t pid = forkChild(planFor(argv, envp, ends));
    if (pid < 0)
        return -1;
    child.pid = pid;
    child.exit.reset(openExitDescriptor(pid));
    ends = ChildEnds();  // the child has its copies; ours would hide its EOF

    int execErrno = readExecReport(reportRead);
    if (execErrno != 0) {
        child.in.reset();
        child.out.reset();
        child.err.reset();
        if (reapChild(child, true) == 1)
            failedStatus = child.status;
        errno = execErrno;
        setErrorMessage("can't execute '%s': %m", argv[0]);
        return -1;
    }
    if (setNonBlocking(child.in) != 0 || setNonBlocking(child.out) != 0 || setNonBlocking(child.err) != 0) {
        signalChild(child, SIGKILL);
        reapChild(child, true);
        return -1;
    }
    return 0;
}

bool pipesOpen(const Child& child)
{
    return child.out.isValid() || child.err.isValid() || inputPending(child);
}

bool canWatchExit(const Child& child) { return child.exit.isValid() && !child.reaped; }

int pumpStep(Child& child, int timeoutMs, bool watchExit)
{
    if (child.in.isValid() && child.closeInputWhenWritten && !inputPending(child))
        child.in.reset();  // all given: the child sees the end of its input
    struct pollfd fds[4];
    KQCHandle* owners[4];
    nfds_t count = 0;
    if (watchExit && canWatchExit(child)) {
        fds[count] = {child.exit.get(), POLLIN, 0};
        owners[count++] = &child.exit;
    }
    if (inputPending(child)) {
        fds[count] = {child.in.get(), POLLOUT, 0};
        owners[count++] = &child.in;
    }
    if (child.out.isValid()) {
        fds[count] = {child.out.get(), POLLIN, 0};
        owners[count++] = &child.out;
    }
    if (child.err.isValid()) {
        fds[count] = {child.err.get(), POLLIN, 0};
        owners[count++] = &child.err;
    }
    if (count == 0 && timeoutMs < 0)
        return 0;  // nothing could ever wake us
    int ready = ::poll(count ? fds : nullptr, count, timeoutMs);
    if (ready < 0) {
        if (errno == EINTR)
            return 0;
        setErrorMessage("can't wait for the pipes of process %d: %m", static_cast<int>(child.pid));
        return -1;
    }
    int rc = 0;
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].revents == 0 || owners[i] == &child.exit)
            continue;  // an ended child is reaped by the caller
        if (owners[i] == &child.in)
            feed(child);
        else if (drain(child.pid, *owners[i], owners[i] == &child.out ? child.outData : child.errData) != 0)
            rc = -1;
    }
    if (child.in.isValid() && child.closeInputWhenWritten && !inputPending(child))
        child.in.reset();
    return rc;
}

int reapChild(Child& child, bool block)
{
    if (child.reaped)
        return 1;
    int status = 0;
    pid_t rc;
    do {
        rc = ::waitpid(child.pid, &status, block ? 0 : WNOHANG);
    } while (rc < 0 && errno == EINTR);
    if (rc == 0)
        return 0;
    if (rc < 0) {
        // ECHILD: the host ignores SIGCHLD and the kernel reaped it for us.
        setErrorMessage("can't wait for process %d: %m", static_cast<int>(child.pid));
        child.reaped = true;
        child.status = -1;
        return -1;
    }
    child.reaped = true;
    child.status = status;
    child.exit.reset();
    return 1;
}

void signalChild(Child& child, int sig)
{
    if (!child.reaped && child.pid > 0)
        ::kill(child.pid, sig);
}

} // namespace execdetail
} // namespace KQC
