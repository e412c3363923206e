#include "KQC/Exec.h"

#include "ExecChild.h"
#include "KQC/Error.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace KQC {
namespace {

using execdetail::Child;

// How long a program gets between SIGTERM and SIGKILL once over its limit.
const long long kTermGraceMs = 2000;
// While waiting for a child's exit on a kernel that cannot signal it (no
// pidfd), how often its state is checked.
const int kExitPollMs = 20;

long long nowMs()
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Splits standard output into lines for the progress handler, keeping a
// line cut between two reads until its end arrives.
class LineSplitter {
public:
    explicit LineSplitter(const std::function<void(const std::string&)>& handler) : m_handler(handler) {}

    void feed(const std::string& chunk)
    {
        if (!m_handler)
            return;
        size_t start = 0;
        for (;;) {
            size_t newline = chunk.find('\n', start);
            if (newline == std::string::npos) {
                m_partial.append(chunk, start, std::string::npos);
                return;
            }
            m_partial.append(chunk, start, newline - start);
            deliver();
            start = newline + 1;
        }
    }

    void finish()
    {
        if (m_handler && !m_partial.empty())
            deliver();
    }

private:
    void deliver()
    {
        try {
            m_handler(m_partial);
        } catch (...) {
            // A faulty handler must not abort the run and leave a child behind.
        }
        m_partial.clear();
    }

    const std::function<void(const std::string&)>& m_handler;
    std::string m_partial;
};

std::string withoutTrailingNewlines(const std::string& text)
{
    size_t end = text.find_last_not_of('\n');
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

bool hasProgram(const char* const* argv)
{
    if (argv != nullptr && argv[0] != nullptr)
        return true;
    errno = EINVAL;
    setErrorMessage("can't execute: no program given");
    return false;
}

// The environment vector handed to the child, built before fork.
std::vector<const char*> environmentOf(const std::vector<std::string>& saved)
{
    std::vector<const char*> envp;
    envp.reserve(saved.size() + 1);
    for (const std::string& entry : saved)
        envp.push_back(entry.c_str());
    envp.push_back(nullptr);
    return envp;
}

// The time-limit state machine of one run: running, then (over the limit)
// terminated, then killed.
class Limit {
public:
    explicit Limit(unsigned int hundredths)
        : m_deadline(hundredths ? nowMs() + static_cast<long long>(hundredths) * 10 : -1)
    {
    }
    bool timedOut() const { return m_phase != Phase::Running; }
    bool bounded() const { return m_deadline >= 0; }

    int pollTimeout(int cap) const
    {
        if (m_deadline < 0)
            return cap;
        long long left = m_deadline - nowMs();
        if (left < 0)
            left = 0;
        if (cap >= 0 && left > cap)
            left = cap;
        if (left > INT_MAX)  // limits up to 497 days do not fit poll's int
            left = INT_MAX;
        return static_cast<int>(left);
    }

    // Acts when the deadline has passed; false when the run should stop
    // waiting for its pipes (nobody left to signal).
    bool check(Child& child)
    {
        if (m_deadline < 0 || nowMs() < m_deadline)
            return true;
        if (child.reaped)
            return false;  // only descendants hold the pipes: stop waiting for them
        if (m_phase == Phase::Running) {
            execdetail::signalChild(child, SIGTERM);
            m_phase = Phase::Terminated;
            m_deadline = nowMs() + kTermGraceMs;
        } else {
            execdetail::signalChild(child, SIGKILL);
            m_phase = Phase::Killed;
            m_deadline = -1;
        }
        return true;
    }

private:
    enum class Phase { Running, Terminated, Killed };
    long long m_deadline;
    Phase m_phase = Phase::Running;
};

// Whether the child's end matters to the next wait: once its pipes are
// closed, or once it is over its limit.
bool watchesExit(const Child& child, const Limit& limit)
{
    return !child.reaped && (limit.timedOut() || !execdetail::pipesOpen(child));
}

// Up to the deadline; where the kernel cannot wake us at the child's end,
// short slices so that it is noticed soon.
int stepTimeout(const Child& child, const Limit& limit)
{
    bool slices = watchesExit(child, limit) && !execdetail::canWatchExit(child);
    return limit.pollTimeout(slices ? kExitPollMs : -1);
}

// Moves the child's data until it has ended (or, over its limit, until it
// is gone), handing standard output to lines and both streams to out/err.
// Returns 0 with the child reaped, or -1 (message set) when its output
// could not be read; the child is then killed and reaped as well.
int driveToEnd(Child& child, Limit& deadline, LineSplitter& lines, std::string& out, std::string& err)
{
    int failure = 0;
    for (;;) {
        bool open = execdetail::pipesOpen(child);
        if (!child.reaped && (deadline.timedOut() || !open)) {
            bool block = !open && !deadline.bounded();
            if (execdetail::reapChild(child, block) < 0)
                break;
        }
        // Once a child we signalled is gone, pipes still open belong to its
        // descendants: the limit is over, we do not wait for them.
        if (child.reaped && (!open || deadline.timedOut()))
            break;
        failure = execdetail::pumpStep(child, stepTimeout(child, deadline), watchesExit(child, deadline));
        out += child.outData;
        lines.feed(child.outData);
        child.outData.clear();
        err += child.errData;
        child.errData.clear();
        if (failure != 0 || !deadline.check(child))
            break;
    }
    lines.finish();
    if (failure != 0) {
        // The output is incomplete, so the run has failed whatever the
        // program does next; do not wait for it to finish on its own.
        std::string message = getErrorMessage();
        execdetail::signalChild(child, SIGKILL);
        execdetail::reapChild(child, true);
        setErrorMessage("%s", message.c_str());
        return -1;
    }
    child.out.reset();
    child.err.reset();
    child.in.reset();
    if (!child.reaped)
        execdetail::reapChild(child, true);
    return 0;
}

} // namespace

GenExec::GenExec() = default;

GenExec::~GenExec()
{
    if (!m_child)
        return;
    // An interactive run nobody ended: leave no zombie and no orphan.
    m_child->in.reset();
    m_child->out.reset();
    m_child->err.reset();
    execdetail::signalChild(*m_child, SIGKILL);
    execdetail::reapChild(*m_child, true);
}

void GenExec::setOutputHandler(std::function<void(const std::string& line)> handler)
{
    m_handler = std::move(handler);
}

void GenExec::saveEnv(const char* const* env)
{
    m_env.clear();
    m_haveEnv = env != nullptr;
    for (; env != nullptr && *env != nullptr; ++env)
        m_env.emplace_back(*env);
}

int GenExec::execWithError(const char* const* argv, int /*flags*/, unsigned int limit)
{
    int status = runToEnd(argv, nullptr, nullptr, limit, false);
    return status == -1 && m_lastStatus != -1 ? m_lastStatus : status;
}

int GenExec::execWithOutputError(const char* const* argv, int /*flags*/, unsigned int limit)
{
    int status = runToEnd(argv, nullptr, nullptr, limit, true);
    return status == -1 && m_lastStatus != -1 ? m_lastStatus : status;
}

const std::string& GenExec::getOutput(int stream) const
{
    if (stream == ERR)
        return m_err;
    if (stream == ERRTEXT)
        return m_errText;
    return m_out;
}

void GenExec::resetOutputs()
{
    if (m_child)
        execComplexEnd();
    m_out.clear();
    m_err.clear();
    m_errText.clear();
}

int GenExec::runToEnd(const char* const* argv, const char* const* env, const std::string* stdinText,
                      unsigned int limit, bool outputFallback)
{
    resetOutputs();
    m_lastStatus = -1;
    if (!hasProgram(argv)) {
        m_errText = getErrorMessage();
        return -1;
    }
    std::vector<const char*> savedEnv;
    const char* const* envp = env;
    if (envp == nullptr && m_haveEnv) {
        savedEnv = environmentOf(m_env);
        envp = savedEnv.data();
    }

    Child child;
    if (execdetail::spawnChild(argv, envp, stdinText != nullptr, child, m_lastStatus) != 0) {
        m_errText = getErrorMessage();
        return -1;
    }
    if (stdinText != nullptr) {
        child.input = *stdinText;
        child.closeInputWhenWritten = true;
    }

    LineSplitter lines(m_handler);
    Limit deadline(limit);
    int rc = driveToEnd(child, deadline, lines, m_out, m_err);
    if (rc != 0 || child.status == -1) {
        m_errText = getErrorMessage();
        return -1;
    }
    return finishRun(child.status, deadline.timedOut(), limit, outputFallback);
}

int GenExec::finishRun(int status, bool timedOut, unsigned int limit, bool outputFallback)
{
    if (timedOut && !WIFSIGNALED(status))
        status = SIGTERM;  // it ended because we told it to: report it so
    m_lastStatus = status;
    m_errText.clear();
    if (status == 0)
        return 0;
    std::string errors = withoutTrailingNewlines(m_err);
    if (timedOut) {
        char prefix[96];
        std::snprintf(prefix, sizeof prefix, "timed out after %u.%02u s (", limit / 100, limit % 100);
        m_errText = prefix + statusText(status) + ")";
        if (!errors.empty())
            m_errText += ": " + errors;
    } else if (!errors.empty()) {
        m_errText = errors;
    } else if (outputFallback && !withoutTrailingNewlines(m_out).empty()) {
        m_errText = withoutTrailingNewlines(m_out);
    } else {
        m_errText = statusText(status);
    }
    setErrorMessageFiltered("%s", m_errText.c_str());
    return status;
}

int GenExec::execComplexBegin(const char* const* argv, int /*flags*/)
{
    resetOutputs();
    m_lastStatus = -1;
    if (!hasProgram(argv)) {
        m_errText = getErrorMessage();
        return -1;
    }
    std::vector<const char*> savedEnv;
    if (m_haveEnv)
        savedEnv = environmentOf(m_env);
    std::unique_ptr<Child> child(new Child);
    if (execdetail::spawnChild(argv, m_haveEnv ? savedEnv.data() : nullptr, true, *child, m_lastStatus) != 0) {
        m_errText = getErrorMessage();
        return -1;
    }
    m_child = std::move(child);
    m_outRead = 0;
    return 0;
}

int GenExec::gets(std::string& line)
{
    if (!m_child) {
        setErrorMessage("can't read a line: no program is running");
        return -1;
    }
    Child& child = *m_child;
    for (;;) {
        size_t newline = child.outData.find('\n', m_outRead);
        if (newline != std::string::npos) {
            line.assign(child.outData, m_outRead, newline - m_outRead);
            m_outRead = newline + 1;
            return 0;
        }
        if (!child.out.isValid()) {
            if (m_outRead == child.outData.size())
                return 1;
            line.assign(child.outData, m_outRead, std::string::npos);
            m_outRead = child.outData.size();
            return 0;
        }
        if (execdetail::pumpStep(child, -1) != 0)
            return -1;
    }
}

int GenExec::puts(const std::string& text)
{
    if (!m_child || !m_child->in.isValid()) {
        errno = EPIPE;
        setErrorMessage("can't write to the program: %s", m_child ? "its input is closed" : "no program is running");
        return -1;
    }
    Child& child = *m_child;
    child.input.assign(text);
    child.inputPos = 0;
    // Its output is read meanwhile, so a child that answers while we still
    // write cannot block us both.
    while (child.in.isValid() && child.inputPos < child.input.size()) {
        if (execdetail::pumpStep(child, -1) != 0)
            return -1;
    }
    if (child.inputBroken) {
        errno = EPIPE;
        setErrorMessage("can't write to the program: it closed its input");
        return -1;
    }
    child.input.clear();
    child.inputPos = 0;
    return 0;
}

int GenExec::execComplexGet(std::string& out)
{
    if (!m_child) {
        setErrorMessage("can't read the output: no program is running");
        return -1;
    }
    Child& child = *m_child;
    child.in.reset();
    while (child.out.isValid() || child.err.isValid()) {
        if (execdetail::pumpStep(child, -1) != 0)
            return -1;
    }
    out.assign(child.outData, m_outRead, std::string::npos);
    m_outRead = child.outData.size();
    return 0;
}

int GenExec::execComplexEnd()
{
    if (!m_child) {
        setErrorMessage("can't end: no program is running");
        return -1;
    }
    std::unique_ptr<Child> child(std::move(m_child));
    child->in.reset();
    child->out.reset();
    child->err.reset();
    m_out = child->outData;
    m_err = child->errData;
    if (execdetail::reapChild(*child, true) < 0) {
        m_lastStatus = -1;
        m_errText = getErrorMessage();
        return -1;
    }
    return finishRun(child->status, false, 0, false);
}

int GenExec::wait()
{
    if (m_child) {
        std::string rest;
        if (execComplexGet(rest) != 0) {
            std::string message = getErrorMessage();
            execdetail::signalChild(*m_child, SIGKILL);
            execComplexEnd();
            setErrorMessage("%s", message.c_str());
            return -1;
        }
        return execComplexEnd();
    }
    if (m_lastStatus == -1)
        setErrorMessage("can't wait: no program has run");
    return m_lastStatus;
}

std::string GenExec::statusText(int status) const
{
    char text[128];
    if (status == -1) {
        std::snprintf(text, sizeof text, "could not be started");
    } else if (WIFEXITED(status)) {
        std::snprintf(text, sizeof text, "exited with code %d", WEXITSTATUS(status));
    } else if (WIFSIGNALED(status)) {
        const char* name = sigdescr_np(WTERMSIG(status));
        std::snprintf(text, sizeof text, "killed by signal %d (%s)", WTERMSIG(status), name ? name : "unknown signal");
    } else if (WIFSTOPPED(status)) {
        const char* name = sigdescr_np(WSTOPSIG(status));
        std::snprintf(text, sizeof text, "stopped by signal %d (%s)", WSTOPSIG(status), name ? name : "unknown signal");
    } else {
        std::snprintf(text, sizeof text, "ended with status %d", status);
    }
    return text;
}

int HWExec::exec(int /*flags*/, const char* const* argv, const char* const* env)
{
    return runToEnd(argv, env, m_haveInput ? &m_input : nullptr, 0, false);
}

void HWExec::setInput(const std::string& text)
{
    m_input = text;
    m_haveInput = true;
}

void HWExec::clearInput()
{
    m_input.clear();
    m_haveInput = false;
}

} // namespace KQC
