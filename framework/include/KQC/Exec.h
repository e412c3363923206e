#pragma once
// Running programs: argument vectors, one-shot runs that capture both
// output streams, and interactive runs over pipes.
//
// How a program is started: argv[0] is looked up on the caller's PATH the
// way execvp does (a name with a slash is used as it stands). The child gets the
// saved environment (saveEnv) or, when none was saved, the caller's; its
// signal dispositions are reset to the defaults and its signal mask is
// emptied; no descriptor of ours other than its standard streams reaches
// it. When the program cannot be executed the run fails with the text
// "can't execute 'NAME': <system error>" and the child's status is an exit
// with code 127.
//
// Wait status: runs return the raw status of waitpid(2): 0 means exited
// with code 0, WEXITSTATUS/WTERMSIG decode the rest, statusText() words it.
//
// Time limit: `limit` is in hundredths of a second (80000 = 800 s); 0 means
// no limit. When it is reached the program gets SIGTERM, and SIGKILL two
// seconds later if it is still there. The run's status is then its death by
// that signal (a program that catches SIGTERM and exits anyway is reported
// as killed by SIGTERM), and the error text begins with "timed out after".
// Once the signalled program is gone the run ends, even if programs it
// started still hold its output pipes open.
//
// Error text of a failed run (non-zero status): the captured standard error
// without its trailing newlines; when that is empty, statusText(status).
// It is kept as getOutput(ERRTEXT) and set as the thread's error message
// (control characters filtered).
//
// Ownership and thread safety: an executor owns its child and pipes; one
// object is used by one thread at a time, while separate objects may run
// programs on separate threads at once (no shared state). No exception
// leaves an operation.
#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace KQC {

// An argument (or environment) vector. Texts pushed with copy=true are
// copied and owned; copy=false keeps the caller's pointer, which must stay
// valid (static text). A null text is ignored: the vector is always
// null-terminated by toArgs().
class ExecutionArgs {
public:
    ExecutionArgs() = default;
    ExecutionArgs(const ExecutionArgs& other);
    ExecutionArgs& operator=(const ExecutionArgs& other);

    void push_back(const char* text, bool copy = true);
    void push_back(const std::string& text);
    // Null-terminated; valid until the next change of this object.
    const char* const* toArgs();
    size_t size() const;
    // The words joined by blanks, for log lines.
    std::string toString() const;

private:
    std::vector<const char*> m_words;
    std::vector<std::unique_ptr<std::string>> m_copies;
    std::vector<const char*> m_argv;
};

namespace execdetail {
struct Child;
}

class GenExec {
public:
    enum Stream { OUT = 1, ERR = 2, ERRTEXT = 4 };

    GenExec();
    virtual ~GenExec();
    GenExec(const GenExec&) = delete;
    GenExec& operator=(const GenExec&) = delete;

    // Receives every standard-output line of execWithError and
    // execWithOutputError, in order, as it arrives, without its "\n"; a last
    // line without a newline is delivered at the end. Exceptions thrown by
    // the handler are swallowed.
    void setOutputHandler(std::function<void(const std::string& line)> handler);

    // Environment for the next runs ("NAME=value" texts, copied); nullptr
    // returns to inheriting the caller's environment.
    void saveEnv(const char* const* env);

    // Runs argv to its end with standard input from /dev/null, capturing
    // standard output (to the handler and getOutput(OUT)) and standard error
    // (getOutput(ERR)). Returns the wait status (an exit with code 127 when
    // the program could not be executed, -1 when no process could be made
    // at all); on a non-zero status the error text is set (see above).
    // flags: none yet, pass 0.
    int execWithError(const char* const* argv, int flags, unsigned int limit);
    // The same; when standard error is empty the error text falls back to
    // the standard output (for tools that complain there) before the status.
    int execWithOutputError(const char* const* argv, int flags, unsigned int limit);

    // Output of the last run: OUT, ERR, or ERRTEXT (empty after success).
    const std::string& getOutput(int stream) const;

    // Interactive runs: the child's standard input and output are pipes we
    // hold; its standard error is captured and shows in getOutput(ERR) once
    // the run has ended. There is no time limit.
    // Returns 0, or -1 when the program could not be started.
    int execComplexBegin(const char* const* argv, int flags);
    // One standard-output line without "\n": 0, 1 at end of output, -1 on
    // error (no interactive run, or a read failure).
    int gets(std::string& line);
    // Writes all of text to the child's standard input: 0, or -1 (the child
    // closed its input, or no interactive run).
    int puts(const std::string& text);
    // Closes the child's standard input and reads the rest of its standard
    // output into out. 0 or -1.
    int execComplexGet(std::string& out);
    // Closes the pipes (unread output is discarded) and waits for the child.
    // Returns its wait status (error text set when non-zero), -1 when no
    // interactive run was begun.
    int execComplexEnd();
    // Ends an interactive run keeping its output (as execComplexGet), then
    // waits; without one, the status of the last run (-1 if none).
    int wait();

    // "exited with code 3", "killed by signal 9 (Killed)".
    std::string statusText(int status) const;

protected:
    // Starts argv; stdinText null: /dev/null. Returns the wait status, -1
    // when the program could not be started (message set). Used by HWExec.
    int runToEnd(const char* const* argv, const char* const* env, const std::string* stdinText,
                 unsigned int limit, bool outputFallback);

private:
    int finishRun(int status, bool timedOut, unsigned int limit, bool outputFallback);
    void resetOutputs();

    std::function<void(const std::string&)> m_handler;
    bool m_haveEnv = false;
    std::vector<std::string> m_env;
    std::string m_out;
    std::string m_err;
    std::string m_errText;
    int m_lastStatus = -1;
    size_t m_outRead = 0;  // how much of an interactive run's output gets() consumed
    std::unique_ptr<execdetail::Child> m_child;
};

class HWExec : public GenExec {
public:
    // Runs argv with the environment env (nullptr: the saved or inherited
    // one) to its end, standard input from /dev/null unless setInput() gave
    // text, capturing both streams (getOutput). Returns the wait status, or
    // -1 when it could not start (message set). flags: none yet, pass 0.
    int exec(int flags, const char* const* argv, const char* const* env = nullptr);
    // Text fed to the child's standard input by the next exec() runs (e.g. a
    // password); clearInput() returns to /dev/null.
    void setInput(const std::string& text);
    void clearInput();

private:
    bool m_haveInput = false;
    std::string m_input;
};

} // namespace KQC
