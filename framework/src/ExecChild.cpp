#include "ExecChild.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace KQC {
namespace execdetail {
namespace {

// The child's standard streams are set up with dup2 onto 0..2; a source
// descriptor below 3 would be clobbered by an earlier dup2, so every one is
// moved up first.
int moveAbove2(KQCHandle& fd)
{
    if (fd.get() > 2)
        return 0;
    int moved = ::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3);
    if (moved < 0)
        return -1;
    fd.reset(moved);
    return 0;
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

// The child's ends of its three streams.
struct ChildEnds {
    KQCHandle in, out, err;
};

// Makes the pipes; the parent's ends go into child, the others into ends.
int makeStreams(bool stdinPipe, Child& child, ChildEnds& ends)
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
    if (makePipe(child.out, ends.out) != 0 || makePipe(child.err, ends.err) != 0)
        return -1;
    if (moveAbove2(ends.in) != 0 || moveAbove2(ends.out) != 0 || moveAbove2(ends.err) != 0) {
        setErrorMessage("can't duplicate a descriptor: %m");
        return -1;
    }
    return 0;
}

// The child gets its three streams and nothing else of ours: every other
// descriptor is closed, even one somebody opened without close-on-exec.
int prepare(SpawnSetup& setup, const ChildEnds& ends)
{
    if (posix_spawn_file_actions_adddup2(&setup.actions, ends.in.get(), 0) != 0
        || posix_spawn_file_actions_adddup2(&setup.actions, ends.out.get(), 1) != 0
        || posix_spawn_file_actions_adddup2(&setup.actions, ends.err.get(), 2) != 0
        || posix_spawn_file_actions_addclosefrom_np(&setup.actions, 3) != 0 || setup.defaultSignals() != 0) {
        setErrorMessage("can't prepare a process start: out of memory");
        return -1;
    }
    return 0;
}

// The wait status of a child whose exec failed: it ends with code 127, as
// a shell reports a program it cannot run.
const int kExecFailedStatus = 127 << 8;

} // namespace

int spawnChild(const char* const* argv, const char* const* envp, bool stdinPipe, Child& child,
               int& failedStatus)
{
    failedStatus = -1;
    ChildEnds ends;
    if (makeStreams(stdinPipe, child, ends) != 0)
        return -1;
    SpawnSetup setup;
    if (prepare(setup, ends) != 0)
        return -1;
    // The child shares our memory until it has exec'd (no copy of a large
    // address space per tool run). The C library reaps a child whose exec
    // failed and hands us its errno; only a process limit keeps it from
    // being made at all.
    pid_t pid = -1;
    int rc = ::posix_spawnp(&pid, argv[0], &setup.actions, &setup.attributes, const_cast<char* const*>(argv),
                            const_cast<char* const*>(envp != nullptr ? envp : environ));
    if (rc != 0) {
        errno = rc;
        if (rc == EAGAIN) {
            setErrorMessage("can't start '%s': %m", argv[0]);
            return -1;
        }
        child.in.reset();
        child.out.reset();
        child.err.reset();
        failedStatus = kExecFailedStatus;
        setErrorMessage("can't execute '%s': %m", argv[0]);
        return -1;
    }
    child.pid = pid;
    child.exit.reset(openExitDescriptor(pid));
    ends = ChildEnds();  // the child has its copies; ours would hide its EOF
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
