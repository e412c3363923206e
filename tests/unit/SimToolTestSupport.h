#pragma once
// Shared by the simulator's tests: a fresh temporary folder per test and a
// way to run the built kqsim and tools as real child processes.
#include "TempHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <poll.h>
#include <set>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace simtest {

struct RunResult {
    int exitCode = -1;  // -1 when killed by a signal
    int signal = 0;
    std::string out;
    std::string err;
};

inline std::string kqsimPath() { return std::string(KQ_BIN_DIR) + "/kqsim"; }
inline std::string toolsDir() { return std::string(KQ_BIN_DIR) + "/kqsim-tools"; }

inline std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> result;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
        result.push_back(line);
    return result;
}

using kqtest::environmentWith;

// Starts argv[0] (an absolute path) with the given environment; the caller
// collects it with finish(). stdin is /dev/null.
struct Child {
    pid_t pid = -1;
    int out = -1;
    int err = -1;
};

inline Child start(std::vector<std::string> argv, std::vector<std::string> env)
{
    std::vector<char*> args = kqtest::cStringArray(argv);
    std::vector<char*> envp = kqtest::cStringArray(env);
    int outPipe[2], errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0)
        return {};
    int devNull = open("/dev/null", O_RDONLY | O_CLOEXEC);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(devNull, 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        execve(args[0], args.data(), envp.data());
        _exit(127);
    }
    close(devNull);
    close(outPipe[1]);
    close(errPipe[1]);
    return {pid, outPipe[0], errPipe[0]};
}

inline RunResult finish(Child child)
{
    RunResult result;
    if (child.pid < 0)
        return result;
    struct pollfd fds[2] = {{child.out, POLLIN, 0}, {child.err, POLLIN, 0}};
    std::string* sinks[2] = {&result.out, &result.err};
    int open = 2;
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            char buffer[4096];
            ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    return result;
}

// A fresh folder for each test, with a simulated host in it on demand.
class SimHostTest : public ::testing::Test {
protected:
    const std::string& dir() const { return m_temp.dir(); }
    std::string root() const { return m_temp.path("host"); }
    std::string at(const std::string& relative) const { return root() + "/" + relative; }

    RunResult kqsim(std::vector<std::string> args)
    {
        args.insert(args.begin(), kqsimPath());
        return finish(start(args, environmentWith({})));
    }

    void initHost(const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> args = {"init", root()};
        args.insert(args.end(), extra.begin(), extra.end());
        RunResult result = kqsim(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }

    void addContainer(const std::vector<std::string>& extra)
    {
        std::vector<std::string> args = {"add", root()};
        args.insert(args.end(), extra.begin(), extra.end());
        RunResult result = kqsim(args);
        ASSERT_EQ(result.exitCode, 0) << result.err;
    }

    // kqsim set ROOT VEID KEY VALUE: a simulated kernel value, which must be taken.
    void setKernel(const std::string& veid, const std::string& key, const std::string& value)
    {
        ASSERT_EQ(kqsim({"set", root(), veid, key, value}).exitCode, 0) << key;
    }

    std::vector<std::string> toolEnvironment() const
    {
        return environmentWith({{"KQ_HOST_ROOT", root()}, {"PATH", toolsDir() + ":/usr/bin:/bin"}});
    }

    Child startTool(const std::string& name, const std::vector<std::string>& args)
    {
        std::vector<std::string> argv = {toolsDir() + "/" + name};
        argv.insert(argv.end(), args.begin(), args.end());
        return start(argv, toolEnvironment());
    }

    RunResult tool(const std::string& name, const std::vector<std::string>& args)
    {
        return finish(startTool(name, args));
    }

    // Runs a bash snippet (for reading files the way the platform sources them).
    RunResult bash(const std::string& script)
    {
        return finish(start({"/bin/bash", "-c", script}, environmentWith({})));
    }

    std::vector<std::string> runningList() const { return lines(kqtest::readFile(at("var/lib/kqsim/running"))); }
    std::string mounts() const { return kqtest::readFile(at("proc/mounts")); }
    std::string rootDir(int veid) const { return root() + "/kq/root/" + std::to_string(veid); }
    std::string mountLine(int veid) const
    {
        return rootDir(veid) + " " + rootDir(veid) + " simfs rw,relatime 0 0\n";
    }

private:
    kqtest::TempDir m_temp{(std::filesystem::temp_directory_path() / "kqsim-test-").string()};
};

// A simulated host already made in the fresh folder before each test.
class SimHostReadyTest : public SimHostTest {
protected:
    void SetUp() override { initHost(); }
};

} // namespace simtest
