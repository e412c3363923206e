#pragma once
// Temporary folders and files for tests.
//
// TempHost: a fresh host root in a temporary folder for one test: KQ_HOST_ROOT points
// at it while the object lives, and the folder is removed afterwards.
// Helpers write files under it; `simulated()` turns it into a simulated
// host with the project's own kqsim.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace kqtest {

inline int run(const std::string& command) 
{
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs a shell command line and returns its standard output; `exitCode`
// (when given) gets the command's exit code, -1 when it did not exit.
inline std::string commandOutput(const std::string& command, int* exitCode = nullptr)
{
    std::string out;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) {
        if (exitCode)
            *exitCode = -1;
        return out;
    }
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, got);
    int status = ::pclose(pipe);
    if (exitCode)
        *exitCode = status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return out;
}

// What bash makes of variable `key` after sourcing the file at `path`: the
// reference reader for shell-style configuration files.
inline std::string bashValue(const std::string& path, const std::string& key, int* exitCode = nullptr)
{
    return commandOutput("bash -c 'source \"$0\"; printf %s \"$" + key + "\"' '" + path + "'", exitCode);
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& text)
{
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out)
        throw std::runtime_error("can't write " + path);
}

// Gives a file a modification time of `seconds` since the epoch, so that a
// rewrite is seen as a change even within one clock tick.
inline void setModificationTime(const std::string& path, long seconds)
{
    struct timeval times[2] = {{seconds, 0}, {seconds, 0}};
    ::utimes(path.c_str(), times);
}

// The lines of a text, without their line ends.
inline std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    for (size_t start = 0; start < text.size();) {
        size_t end = text.find('\n', start);
        result.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    return result;
}

// A pid that belonged to a process which has exited and been reaped.
inline pid_t deadPid()
{
    pid_t pid = ::fork();
    if (pid == 0)
        _exit(0);
    ::waitpid(pid, nullptr, 0);
    return pid;
}

inline bool exists(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

// The environment of this process as "NAME=value" entries, with `changes`
// applied: each named variable takes the given value, or is left out when
// the value is empty. For starting child processes.
inline std::vector<std::string> environmentWith(const std::map<std::string, std::string>& changes)
{
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) {
        std::string text = *entry;
        if (!changes.count(text.substr(0, text.find('='))))
            result.push_back(text);
    }
    for (const auto& change : changes)
        if (!change.second.empty())
            result.push_back(change.first + "=" + change.second);
    return result;
}

// A null-terminated array of pointers into `texts`, for execve's argv and
// envp; valid while `texts` is unchanged.
inline std::vector<char*> cStringArray(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(&text[0]);
    result.push_back(nullptr);
    return result;
}

// Sets an environment variable while the object lives, then puts back what
// was there before (or removes it when there was nothing).
class EnvOverride {
public:
    EnvOverride(const std::string& name, const std::string& value) : m_name(name)
    {
        const char* old = std::getenv(name.c_str());
        m_hadOld = old != nullptr;
        if (old)
            m_old = old;
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    ~EnvOverride()
    {
        if (m_hadOld)
            ::setenv(m_name.c_str(), m_old.c_str(), 1);
        else
            ::unsetenv(m_name.c_str());
    }
    EnvOverride(const EnvOverride&) = delete;
    EnvOverride& operator=(const EnvOverride&) = delete;

private:
    std::string m_name;
    std::string m_old;
    bool m_hadOld = false;
};

// A fresh folder for one test, "<prefix>XXXXXX" made unique; it is removed
// with everything in it when the object dies. The path has no symbolic
// links in it, so it compares equal to paths the code resolves.
class TempDir {
public:
    explicit TempDir(const std::string& prefix = "/tmp/kqtest.")
    {
        std::string pattern = prefix + "XXXXXX";
        if (!::mkdtemp(&pattern[0]))
            throw std::runtime_error("mkdtemp failed for " + pattern);
        char* resolved = ::realpath(pattern.c_str(), nullptr);
        m_dir = resolved ? resolved : pattern;
        std::free(resolved);
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& dir() const { return m_dir; }
    std::string path(const std::string& relative) const { return m_dir + "/" + relative; }
    void write(const std::string& relative, const std::string& text) const { writeFile(path(relative), text); }
    std::string read(const std::string& relative) const { return readFile(path(relative)); }

private:
    std::string m_dir;
};

class TempHost {
public:
    TempHost() : m_rootOverride("KQ_HOST_ROOT", m_dir.dir()) {}

    const std::string& root() const { return m_dir.dir(); }
    std::string path(const std::string& relative) const { return m_dir.path(relative); }
    void write(const std::string& relative, const std::string& text) const { m_dir.write(relative, text); }
    std::string read(const std::string& relative) const { return m_dir.read(relative); }

    // Makes this folder a simulated host (kqsim init) and puts the
    // simulator's tools first on PATH while this object lives; 0 on success.
    int simulated(const std::string& options = "")
    {
        int rc = run(std::string(KQ_BIN_DIR) + "/kqsim init '" + root() + "' " + options + " >/dev/null");
        if (rc != 0)
            return rc;
        m_pathOverride.reset();  // a second call puts the tools before the original PATH again
        const char* path = std::getenv("PATH");
        std::string tools = std::string(KQ_BIN_DIR) + "/kqsim-tools";
        m_pathOverride.reset(new EnvOverride("PATH", tools + ":" + (path ? path : "/usr/bin:/bin")));
        return 0;
    }
    // Runs kqsim with these arguments on this host; its exit code.
    int kqsim(const std::string& arguments) const
    {
        return run(std::string(KQ_BIN_DIR) + "/kqsim " + arguments.substr(0, arguments.find(' ')) + " '" + root() +
                   "'" + (arguments.find(' ') == std::string::npos ? "" : arguments.substr(arguments.find(' '))) +
                   " >/dev/null");
    }
    // The simulated tools' calls log.
    std::string calls() const { return read("var/log/kqsim/calls.log"); }

private:
    TempDir m_dir;
    EnvOverride m_rootOverride;
    std::unique_ptr<EnvOverride> m_pathOverride;
};

} // namespace kqtest
