#pragma once
// Runs the current test again in a child process of this test program, with
// the simulated kernel preloaded and KQ_HOST_ROOT at a fresh temporary host,
// so that code issuing real control-device ioctls and beancounter calls is
// tested as it runs on a host. Each child is a new process: caches that
// live for a process start empty.
//
//   TEST_F(Fixture, Name)
//   {
//       if (kqtest::ranInPreloadedChild())
//           return;               // the parent: the child's outcome is checked
//       ...                       // the child: the test body, host at hostRoot()
//   }
//
// Extra "NAME=value" entries go into the child's environment. The child's
// output is shown when it fails. A parent that prepares the host itself and
// runs a different child test calls runPreloaded() with its own root.
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kqtest {

constexpr char kPreloadedChildRole[] = "KQ_PRELOADED_CHILD";

inline bool isPreloadedChild()
{
    return std::getenv(kPreloadedChildRole) != nullptr;
}

// The host root the child works in.
inline std::string hostRoot()
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    return root ? root : "";
}

// Runs this test program again in a child process with the simulated kernel
// preloaded, KQ_HOST_ROOT at `root` and `arguments` (which select one test)
// on its command line; its output goes to `logPath`. Extra "NAME=value"
// entries replace those of the same name in the child's environment (an
// empty value leaves the variable out).
// Records a failure, with the child's output, unless the child ran exactly
// one test and passed; returns whether it did.
inline bool runPreloaded(const std::string& root, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& extra, const std::string& logPath)
{
    std::map<std::string, std::string> changes = {
        {"LD_PRELOAD", std::string(KQ_LIB_DIR) + "/libkqsimkernel.so"},
        {"ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"},
        {"KQ_HOST_ROOT", root},
        {kPreloadedChildRole, "1"}};
    for (const std::string& entry : extra) {
        size_t equals = entry.find('=');
        changes[entry.substr(0, equals)] = equals == std::string::npos ? "" : entry.substr(equals + 1);
    }
    std::vector<std::string> environment = environmentWith(changes);
    std::vector<std::string> commandLine = {"/proc/self/exe"};
    commandLine.insert(commandLine.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv = cStringArray(commandLine);
    std::vector<char*> envp = cStringArray(environment);
    int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (log < 0) {
        ADD_FAILURE() << "can't create " << logPath;
        return false;
    }
    pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(log, 1);
        ::dup2(log, 2);
        ::execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    ::close(log);
    int status = 0;
    bool waited = pid > 0 && ::waitpid(pid, &status, 0) == pid;
    std::string output = readFile(logPath);
    bool passed = waited && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    EXPECT_TRUE(passed) << output;
    // A filter that matched nothing would pass silently.
    bool ranOne = output.find("[  PASSED  ] 1 test") != std::string::npos;
    EXPECT_TRUE(ranOne) << output;
    return passed && ranOne;
}

inline bool ranInPreloadedChild(const std::vector<std::string>& extra = {})
{
    if (isPreloadedChild())
        return false;
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "." + test->name();
    char pattern[] = "/tmp/kqpreloaded.XXXXXX";
    if (!::mkdtemp(pattern)) {
        ADD_FAILURE() << "mkdtemp failed";
        return true;
    }
    std::string root = pattern;
    std::string logPath = root + ".log";
    runPreloaded(root, {"--gtest_filter=" + name}, extra, logPath);
    std::system(("rm -rf '" + root + "' '" + logPath + "'").c_str());
    return true;
}

} // namespace kqtest
