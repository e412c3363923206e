#pragma once
// Internal to the program-execution family: starting a child process with
// pipes, moving data over them, and reaping it. Not installed; the public
// face is KQC/Exec.h.
#include "KQC/Handle.h"

#include <csignal>
#include <spawn.h>
#include <sys/types.h>

#include <string>

namespace KQC {
namespace execdetail {

// What posix_spawn needs, freed on every path.
struct SpawnSetup {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    SpawnSetup()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnSetup()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    // The child starts with every signal at its default and none blocked,
    // as from a shell: the agent's handlers and masks are not its business,
    // and ignored signals would otherwise stay ignored across exec. 0, or
    // non-zero when the attributes cannot be set.
    [[nodiscard]] int defaultSignals()
    {
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        return posix_spawnattr_setsigdefault(&attributes, &all) | posix_spawnattr_setsigmask(&attributes, &none)
               | posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
};

// A started child and the parent's ends of its pipes.
struct Child {
    pid_t pid = -1;
    KQCHandle exit;             // readable once the child has ended (invalid: the kernel has no pidfd)
    bool reaped = false;
    int status = -1;            // the wait status once reaped
    KQCHandle in;               // our end of its standard input (invalid: /dev/null or closed)
    KQCHandle out;              // its standard output (invalid once at end)
    KQCHandle err;              // its standard error (invalid once at end)
    std::string input;          // bytes still to be written to `in` from inputPos on
    size_t inputPos = 0;
    bool closeInputWhenWritten = false;
    bool inputBroken = false;   // the child closed its standard input
    std::string outData;        // standard output read so far
    std::string errData;        // standard error read so far
};

// Starts argv[0] (looked up on PATH) with envp as its environment. With
// stdinPipe the child's standard input is a pipe held in child.in, else
// /dev/null. Returns 0 when the program runs. Returns -1 when it does not:
// the message is set ("can't execute 'NAME': ..." when exec itself failed)
// and failedStatus holds the wait status of that child, already reaped
// (exit code 127), or -1 when no child was made.
int spawnChild(const char* const* argv, const char* const* envp, bool stdinPipe, Child& child,
               int& failedStatus);

// Waits up to timeoutMs (-1: without end) for the pipes to be ready and
// moves what they allow: output is appended to outData/errData, pending
// input is written. A pipe at its end is closed. With watchExit the wait
// also ends as soon as the child ends (when the kernel can tell us; without
// a pidfd the caller must bound timeoutMs itself). With nothing to wait for
// it only sleeps for timeoutMs. Returns 0, or -1 with the message set.
int pumpStep(Child& child, int timeoutMs, bool watchExit = false);

// Whether the child's end can be waited for together with its pipes.
bool canWatchExit(const Child& child);

bool pipesOpen(const Child& child);

// waitpid, resumed when interrupted. Returns 1 when reaped (child.status
// set), 0 when still running (block=false), -1 on failure (message set).
int reapChild(Child& child, bool block);

// Sends sig unless the child was already reaped (its pid may be reused).
void signalChild(Child& child, int sig);

} // namespace execdetail
} // namespace KQC
