#pragma once
// Shared by the simulator's tests: a fresh temporary folder per test and a
// way to run the built kqsim and tools as real child processes.
#include "KQC/Exec.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <sys/wait.h>
#include <thread>
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

using kqtest::lines;

using kqtest::environmentWith;

// Runs argv[0] (an absolute path) to its end with the given environment,
// standard input from /dev/null.
inline RunResult run(std::vector<std::string> argv, std::vector<std::string> env)
{
    std::vector<char*> args = kqtest::cStringArray(argv);
    std::vector<char*> envp = kqtest::cStringArray(env);
    KQC::HWExec exec;
    int status = exec.exec(0, args.data(), envp.data());
    RunResult result;
    if (status >= 0 && WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else if (status >= 0 && WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    result.out = exec.getOutput(KQC::GenExec::OUT);
    result.err = exec.getOutput(KQC::GenExec::ERR);
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
        return run(args, environmentWith({}));
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

    RunResult tool(const std::string& name, const std::vector<std::string>& args)
    {
        std::vector<std::string> argv = {toolsDir() + "/" + name};
        argv.insert(argv.end(), args.begin(), args.end());
        return run(argv, toolEnvironment());
    }

    // Runs the tool once for each argument list, all at the same time.
    std::vector<RunResult> toolsAtOnce(const std::string& name, const std::vector<std::vector<std::string>>& runs)
    {
        std::vector<RunResult> results(runs.size());
        std::vector<std::thread> threads;
        for (size_t i = 0; i < runs.size(); ++i)
            threads.emplace_back([&, i] { results[i] = tool(name, runs[i]); });
        for (std::thread& thread : threads)
            thread.join();
        return results;
    }

    // Runs a bash snippet (for reading files the way the platform sources them).
    RunResult bash(const std::string& script)
    {
        return run({"/bin/bash", "-c", script}, environmentWith({}));
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
