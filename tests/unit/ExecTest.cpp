#include "KQC/Exec.h"

#include "KQC/Error.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <regex>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using KQC::GenExec;

// Runs a shell command line through execWithError.
int runShell(GenExec& exec, const std::string& script, unsigned int limit = 0)
{
    const char* argv[] = {"/bin/sh", "-c", script.c_str(), nullptr};
    return exec.execWithError(argv, 0, limit);
}

// Runs a script whose time limit only proves something once the script is
// past its set-up (a trap, a first line): under load the shell may start
// later than a short limit. A run whose signal came before `ready()` held
// is run again with twice the limit.
template <class Ready>
int runShellOnceReady(GenExec& exec, const std::string& script, unsigned int limit, Ready ready)
{
    int status = -1;
    for (int attempt = 0; attempt < 6; ++attempt, limit *= 2) {
        status = runShell(exec, script, limit);
        if (ready())
            return status;
    }
    ADD_FAILURE() << "never got past its set-up: " << script;
    return status;
}

TEST(ExecutionArgsTest, BuildsNullTerminatedVectorsThatOwnTheirTexts)
{
    KQC::ExecutionArgs args;
    static const char kStatic[] = "kqctl";
    args.push_back(kStatic, false);
    std::string veid = "101";
    args.push_back(veid.c_str(), true);
    veid = "999";  // the copy must not follow the caller's buffer
    args.push_back(std::string("--fast"));
    args.push_back(nullptr);  // callers end their lists with a null entry
    const char* const* argv = args.toArgs();
    ASSERT_EQ(args.size(), 3u);
    EXPECT_EQ(argv[0], kStatic);
    EXPECT_STREQ(argv[1], "101");
    EXPECT_STREQ(argv[2], "--fast");
    EXPECT_EQ(argv[3], nullptr);
    EXPECT_EQ(args.toString(), "kqctl 101 --fast");

    // Copies own their texts.
    std::unique_ptr<KQC::ExecutionArgs> original(new KQC::ExecutionArgs);
    original->push_back("start", false);
    original->push_back(std::string("101"));
    KQC::ExecutionArgs copy(*original);
    original.reset();
    argv = copy.toArgs();
    EXPECT_STREQ(argv[0], "start");
    EXPECT_STREQ(argv[1], "101");
    EXPECT_EQ(argv[2], nullptr);
}

// How a run ended, and what the caller is told about it.
TEST(ExecTest, ExitStatusAndErrorText)
{
    struct Case {
        const char* script;
        bool outputError;  // execWithOutputError: standard output explains a failure
        int code;          // the exit code, or
        int signal;        // the signal that ended it
        const char* message;
        const char* errText;  // nullptr: not checked
    } cases[] = {
        {"echo fine", false, 0, 0, nullptr, ""},
        {"echo 'bad veid' >&2; echo more >&2; exit 32", false, 32, 0, "bad veid\nmore", "bad veid\nmore"},
        {"echo on stdout; exit 3", false, 3, 0, "exited with code 3", nullptr},
        {"echo 'complaint on stdout'; exit 2", true, 2, 0, "complaint on stdout", nullptr},
        {"echo 'complaint on stdout'; exit 2", false, 2, 0, "exited with code 2", nullptr},
        // Control characters are filtered from the message, not the output.
        {"printf 'bad\\033[2Jthing' >&2; exit 1", false, 1, 0, "bad?[2Jthing", "bad\033[2Jthing"},
        // No exit code: callers map it to their generic failure.
        {"kill -9 $$", false, 0, SIGKILL, "killed by signal 9 (Killed)", nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        GenExec exec;
        const char* argv[] = {"sh", "-c", c.script, nullptr};  // found on PATH
        int status = c.outputError ? exec.execWithOutputError(argv, 0, 0) : exec.execWithError(argv, 0, 0);
        if (c.signal) {
            ASSERT_TRUE(WIFSIGNALED(status));
            EXPECT_EQ(WTERMSIG(status), c.signal);
        } else {
            ASSERT_TRUE(WIFEXITED(status));
            EXPECT_EQ(WEXITSTATUS(status), c.code);
        }
        EXPECT_EQ((status & 0xFF00) >> 8, c.code);
        if (c.message) {
            EXPECT_STREQ(KQC::getErrorMessage(), c.message);
        }
        if (c.errText) {
            EXPECT_EQ(exec.getOutput(GenExec::ERRTEXT), c.errText);
        }
    }

    GenExec exec;
    ASSERT_EQ(runShell(exec, "echo fine; echo line >&2; exit 1"), 1 << 8);
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "fine\n");
    EXPECT_EQ(exec.getOutput(GenExec::ERR), "line\n");
    const char* fail[] = {"/bin/false", nullptr};
    EXPECT_NE(exec.execWithError(fail, 0, 0), 0);
    EXPECT_EQ(exec.wait(), exec.execWithError(fail, 0, 0));

    EXPECT_EQ(exec.statusText(0), "exited with code 0");
    EXPECT_EQ(exec.statusText(SIGTERM), "killed by signal 15 (Terminated)");
    EXPECT_EQ(exec.statusText(-1), "could not be started");
    GenExec unused;
    KQC::setErrorMessage("%s", "");
    EXPECT_EQ(unused.wait(), -1) << "nothing was run";
    EXPECT_NE(std::string(KQC::getErrorMessage()), "");
}

TEST(ExecTest, ProgramThatDoesNotExist)
{
    GenExec exec;
    const char* argv[] = {"kq-no-such-program", "x", nullptr};
    int status = exec.execWithError(argv, 0, 80000);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 127);
    EXPECT_STREQ(KQC::getErrorMessage(), "can't execute 'kq-no-such-program': No such file or directory");
    EXPECT_EQ(exec.getOutput(GenExec::ERRTEXT), KQC::getErrorMessage());

    KQC::HWExec hw;
    EXPECT_EQ(hw.exec(0, argv), -1);
    char plainFile[] = "/tmp/kq-exec-plain-XXXXXX";
    int fd = ::mkstemp(plainFile);  // mode 0600: no execute bit for anybody
    ASSERT_GE(fd, 0);
    ::close(fd);
    const char* notExecutable[] = {plainFile, nullptr};
    EXPECT_EQ(hw.exec(0, notExecutable), -1);
    EXPECT_EQ(std::string(KQC::getErrorMessage()), "can't execute '" + std::string(plainFile) + "': Permission denied");
    ::unlink(plainFile);

    EXPECT_EQ(exec.execComplexBegin(argv, 0), -1);
    std::string line;
    EXPECT_EQ(exec.gets(line), -1);
}

TEST(ExecTest, LargeOutputOnBothStreamsAtOnce)
{
    // Both streams are written at the same time by two processes; a reader
    // that drains one pipe before the other would deadlock here.
    GenExec exec;
    const size_t size = 4 * 1024 * 1024;
    std::string script = "(head -c " + std::to_string(size) + " /dev/zero | tr '\\0' e >&2) & "
                         "head -c " + std::to_string(size) + " /dev/zero | tr '\\0' o; wait";
    ASSERT_EQ(runShell(exec, script), 0) << KQC::getErrorMessage();
    EXPECT_EQ(exec.getOutput(GenExec::OUT), std::string(size, 'o'));
    EXPECT_EQ(exec.getOutput(GenExec::ERR), std::string(size, 'e'));
}

TEST(ExecTest, LargeStandardInput)
{
    KQC::HWExec exec;
    std::string input;
    for (int i = 0; input.size() < 6 * 1024 * 1024; ++i)
        input += "line " + std::to_string(i) + "\n";
    exec.setInput(input);
    const char* cat[] = {"/bin/cat", nullptr};
    ASSERT_EQ(exec.exec(0, cat), 0);
    EXPECT_EQ(exec.getOutput(GenExec::OUT).size(), input.size());
    EXPECT_TRUE(exec.getOutput(GenExec::OUT) == input);

    // A child that does not read its input must not hurt us (no SIGPIPE).
    const char* ignoring[] = {"/bin/true", nullptr};
    EXPECT_EQ(exec.exec(0, ignoring), 0);
    exec.clearInput();
    EXPECT_EQ(exec.exec(0, cat), 0);  // /dev/null: ends at once
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "");
}

TEST(ExecTest, ProgressLinesArriveInOrder)
{
    GenExec exec;
    std::vector<std::string> lines;
    exec.setOutputHandler([&lines](const std::string& line) { lines.push_back(line); });
    ASSERT_EQ(runShell(exec, "printf 'a\\nb'; sleep 0.1; printf 'c\\n\\nd\\n'; sleep 0.1; printf tail"), 0);
    EXPECT_EQ(lines, (std::vector<std::string>{"a", "bc", "", "d", "tail"}));
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "a\nbc\n\nd\ntail");

    lines.clear();
    const char* seq[] = {"seq", "1", "100000", nullptr};
    ASSERT_EQ(exec.execWithError(seq, 0, 0), 0);
    ASSERT_EQ(lines.size(), 100000u);
    bool inOrder = true;
    for (size_t i = 0; i < lines.size(); ++i)
        inOrder = inOrder && lines[i] == std::to_string(i + 1);
    EXPECT_TRUE(inOrder);

    // A throwing handler does not abort the run.
    int calls = 0;
    exec.setOutputHandler([&calls](const std::string&) {
        ++calls;
        throw std::runtime_error("handler failure");
    });
    EXPECT_EQ(runShell(exec, "echo one; echo two"), 0);
    EXPECT_EQ(calls, 2);
}

// A program that ends cleanly on SIGTERM still timed out; closing its
// streams does not end the limit of a program that goes on.
TEST(ExecTest, TimeLimitEndsTheProgram)
{
    GenExec exec;
    int status = runShellOnceReady(exec, "echo started; sleep 30", 50,
                                   [&exec] { return !exec.getOutput(GenExec::OUT).empty(); });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "started\n");
    EXPECT_TRUE(std::regex_search(KQC::getErrorMessage(), std::regex("^timed out after [0-9]+\\.[0-9]{2} s")))
        << KQC::getErrorMessage();

    for (const char* script : {"trap 'exit 0' TERM; while :; do sleep 0.05; done", "exec >&- 2>&-; exec sleep 30"}) {
        status = runShell(exec, script, 30);
        ASSERT_TRUE(WIFSIGNALED(status)) << script;
        EXPECT_EQ(WTERMSIG(status), SIGTERM) << script;
    }
}

TEST(ExecTest, TimeLimitEscalatesToKill)
{
    // The shell ignores SIGTERM (and so does its sleep, which also keeps
    // the pipes open): only SIGKILL ends the run. The mark file tells that
    // the trap was in place before the signal came.
    kqtest::TempDir temp;
    const std::string mark = temp.path("trapped");
    GenExec exec;
    int status = runShellOnceReady(exec, "trap '' TERM; : >'" + mark + "'; sleep 30", 20, [&mark] {
        bool trapped = ::access(mark.c_str(), F_OK) == 0;
        ::unlink(mark.c_str());
        return trapped;
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find("killed by signal 9"), std::string::npos);
}

// A program usually closes its streams before it exits; its status must
// still be the one it exited with, with and without a time limit, and
// whether it lingers after closing them or not.
TEST(ExecTest, ExitAfterClosingStreams)
{
    struct Case {
        const char* script;
        unsigned int limit;
        int code;
    } cases[] = {
        {"exec >&- 2>&-; exit 3", 0, 3},
        {"exec >&- 2>&-; exit 3", 500, 3},
        {"exec >&- 2>&-; sleep 0.2; exit 5", 0, 5},
        {"exec >&- 2>&-; sleep 0.2; exit 5", 500, 5},
        {"echo out; exec >&- 2>&-; sleep 0.1", 500, 0},
    };
    for (const Case& c : cases) {
        GenExec exec;
        int status = runShell(exec, c.script, c.limit);
        ASSERT_TRUE(WIFEXITED(status)) << c.script << " limit " << c.limit;
        EXPECT_EQ(WEXITSTATUS(status), c.code) << c.script << " limit " << c.limit;
    }
}

TEST(ExecTest, EnvironmentPassing)
{
    GenExec exec;
    const char* env[] = {"KQ_FIRST=1", "LANG=en_US.utf8", nullptr};
    exec.saveEnv(env);
    ASSERT_EQ(runShell(exec, "echo \"$KQ_FIRST:$LANG:${HOME-unset}\""), 0);
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "1:en_US.utf8:unset\n");

    KQC::HWExec hw;
    hw.saveEnv(env);
    const char* other[] = {"KQ_SECOND=2", nullptr};
    const char* argv[] = {"/bin/sh", "-c", "echo \"${KQ_FIRST-none}:${KQ_SECOND-none}\"", nullptr};
    ASSERT_EQ(hw.exec(0, argv, other), 0);
    EXPECT_EQ(hw.getOutput(GenExec::OUT), "none:2\n");

    ::setenv("KQ_INHERITED", "yes", 1);
    exec.saveEnv(nullptr);
    ASSERT_EQ(runShell(exec, "echo ${KQ_INHERITED-no}"), 0);
    EXPECT_EQ(exec.getOutput(GenExec::OUT), "yes\n");
    ::unsetenv("KQ_INHERITED");
}

TEST(ExecTest, ChildStartsWithoutLeakedDescriptorsWithDefaultSignalsAndEmptyMask)
{
    int leaky = ::open("/dev/null", O_RDONLY);  // deliberately without O_CLOEXEC
    ASSERT_GE(leaky, 0);
    int high = ::dup2(leaky, 200);
    GenExec exec;
    // ls holds one descriptor of its own (3) for the directory it lists.
    const char* argv[] = {"/bin/ls", "/proc/self/fd", nullptr};
    ASSERT_EQ(exec.execWithError(argv, 0, 0), 0);
    EXPECT_EQ(kqtest::lines(exec.getOutput(GenExec::OUT)), (std::vector<std::string>{"0", "1", "2", "3"}));
    ::close(leaky);
    ::close(high);

    // Signals are back to their defaults and the mask is empty.
    struct sigaction ignore = {}, oldAction = {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGUSR1, &ignore, &oldAction);
    sigset_t blocked, oldMask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &blocked, &oldMask);

    const char* grep[] = {"grep", "-E", "^Sig(Ign|Blk)", "/proc/self/status", nullptr};
    int status = exec.execWithError(grep, 0, 0);

    pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
    ::sigaction(SIGUSR1, &oldAction, nullptr);
    ASSERT_EQ(status, 0);
    // Signals 32 and 33 belong to the C library: it refuses to change them,
    // so whatever the test's own parent left there stays. Every other
    // signal must be back to its default.
    std::string output = exec.getOutput(GenExec::OUT);
    ASSERT_EQ(output.size(), std::string("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n").size()) << output;
    unsigned long long blockedBits = std::stoull(output.substr(8, 16), nullptr, 16);
    unsigned long long ignoredBits = std::stoull(output.substr(33, 16), nullptr, 16);
    const unsigned long long libcSignals = (1ULL << 31) | (1ULL << 32);
    EXPECT_EQ(blockedBits & ~libcSignals, 0u) << output;
    EXPECT_EQ(ignoredBits & ~libcSignals, 0u) << output;
}

TEST(ExecTest, InteractiveConversationAndLargeWriteWithoutReading)
{
    GenExec exec;
    const char* cat[] = {"/bin/cat", nullptr};
    ASSERT_EQ(exec.execComplexBegin(cat, 0), 0);
    ASSERT_EQ(exec.puts("hello\nworld\n"), 0);
    std::string line;
    ASSERT_EQ(exec.gets(line), 0);
    EXPECT_EQ(line, "hello");
    ASSERT_EQ(exec.gets(line), 0);
    EXPECT_EQ(line, "world");
    ASSERT_EQ(exec.puts("no newline"), 0);
    std::string rest;
    ASSERT_EQ(exec.execComplexGet(rest), 0);
    EXPECT_EQ(rest, "no newline");
    EXPECT_EQ(exec.gets(line), 1);
    EXPECT_EQ(exec.execComplexEnd(), 0);
    EXPECT_EQ(exec.execComplexEnd(), -1);  // nothing left to end

    // cat answers while we still write: our write must keep reading.
    ASSERT_EQ(exec.execComplexBegin(cat, 0), 0);
    std::string big(5 * 1024 * 1024, 'z');
    ASSERT_EQ(exec.puts(big), 0);
    std::string out;
    ASSERT_EQ(exec.execComplexGet(out), 0);
    EXPECT_EQ(out.size(), big.size());
    EXPECT_EQ(exec.wait(), 0);
}

// A child that stops reading must not hurt us; one left running when its
// object goes is ended and reaped.
TEST(ExecTest, InteractiveChildThatStopsReadingOrIsAbandoned)
{
    GenExec exec;
    const char* argv[] = {"/bin/sh", "-c", "echo bye; echo oops >&2; exit 4", nullptr};
    ASSERT_EQ(exec.execComplexBegin(argv, 0), 0);
    std::string line;
    ASSERT_EQ(exec.gets(line), 0);
    EXPECT_EQ(line, "bye");
    EXPECT_EQ(exec.gets(line), 1);
    EXPECT_EQ(exec.puts(std::string(256 * 1024, 'x')), -1);  // EPIPE, and we are still alive
    int status = exec.wait();
    EXPECT_EQ(WEXITSTATUS(status), 4);
    EXPECT_STREQ(KQC::getErrorMessage(), "oops");

    pid_t before = 0;
    {
        GenExec abandoned;
        const char* sleeper[] = {"/bin/sh", "-c", "echo $$; exec sleep 30", nullptr};
        ASSERT_EQ(abandoned.execComplexBegin(sleeper, 0), 0);
        ASSERT_EQ(abandoned.gets(line), 0);
        before = static_cast<pid_t>(std::stol(line));
    }
    // Reaped: the pid names no child of ours any more.
    EXPECT_EQ(::waitpid(before, nullptr, WNOHANG), -1);
}

TEST(ExecTest, SeparateObjectsRunConcurrently)
{
    const int threads = 4;
    const int runsEach = 15;
    std::vector<int> failures(threads, 0);
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t, &failures] {
            for (int i = 0; i < runsEach; ++i) {
                GenExec exec;
                std::string word = std::to_string(t) + "-" + std::to_string(i);
                std::string script = "echo " + word + "; echo err" + word + " >&2; exit " + std::to_string(t);
                int status = runShell(exec, script);
                std::string expectedError = "err" + word;
                if (WEXITSTATUS(status) != t || exec.getOutput(GenExec::OUT) != word + "\n"
                    || (t != 0 && KQC::getErrorMessage() != expectedError))
                    ++failures[t];
            }
        });
    }
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(failures, std::vector<int>(threads, 0));
}

} // namespace
