// Processes of a container through kqagent: listing with the ids the
// container knows, and real signals to the real processes behind them.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

class ProcessesE2ETest : public kqtest::SimulatedE2ETest {
protected:
    ProcessesE2ETest() : SimulatedE2ETest({"101 --state running"}) {}
    void TearDown() override
    {
        for (pid_t pid : children) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
    }
    // A real process registered as process `vpid` of container 101.
    pid_t containerProcess(int vpid)
    {
        pid_t pid = 0;
        char sleepWord[] = "sleep", seconds[] = "300";
        char* argv[] = {sleepWord, seconds, nullptr};
        EXPECT_EQ(::posix_spawnp(&pid, "sleep", nullptr, nullptr, argv, environ), 0);
        children.push_back(pid);
        EXPECT_EQ(0, host.kqsim("proc 101 " + std::to_string(vpid) + " " + std::to_string(pid) + " 'sleep 300'"));
        return pid;
    }
    // Whether the child died of `signal` (it is reaped then).
    bool diedOf(pid_t pid, int signal)
    {
        int status = 0;
        for (int tries = 0; tries < 200; ++tries) {
            if (::waitpid(pid, &status, WNOHANG) == pid)
                return WIFSIGNALED(status) && WTERMSIG(status) == signal;
            ::usleep(10000);
        }
        return false;
    }
    std::vector<pid_t> children;
};

TEST_F(ProcessesE2ETest, ContainerListingUsesContainerIdsAndTheHostListingHostOnes)
{
    pid_t pid = containerProcess(1);
    boost::json::object result = json({"ps", "101"}).json();
    ASSERT_EQ(result["rc"].as_int64(), 0);
    const boost::json::array& processes = result["processes"].as_array();
    ASSERT_EQ(processes.size(), 1u);
    const boost::json::object& process = processes.at(0).as_object();
    EXPECT_EQ(process.at("vpid").as_string(), "1");
    EXPECT_EQ(process.at("args").as_string(), "sleep 300");
    EXPECT_FALSE(process.contains("veid"));
    EXPECT_FALSE(process.contains("pid"));
    EXPECT_NE(host.calls().find("\"-E\",\"101\",\"-eo\",\"vpid,"), std::string::npos) << host.calls();

    boost::json::object hostResult = json({"ps", "host"}).json();
    ASSERT_EQ(hostResult["rc"].as_int64(), 0);
    bool seen = false;
    for (const auto& value : hostResult["processes"].as_array()) {
        const boost::json::object& entry = value.as_object();
        if (entry.at("pid").as_string() == std::to_string(pid))
            seen = entry.at("veid").as_string() == "101";
    }
    EXPECT_TRUE(seen);
    EXPECT_NE(host.calls().find("[\"kqps\",\"xawh\",\"-eo\",\"pid,"), std::string::npos) << host.calls();
}

TEST_F(ProcessesE2ETest, KillSignalsTheRealProcessesUpToTheFirstFailure)
{
    pid_t first = containerProcess(1);
    pid_t third = containerProcess(3);
    boost::json::object result = json({"kill", "101", "1", "7", "3", "--signal", "9"}).json();
    EXPECT_EQ(result["rc"].as_int64(), -1);
    // The text is that of the error numbered like the signal (9).
    EXPECT_EQ(result["error"].as_string(), "kill pid 7 fails: Bad file descriptor");
    EXPECT_TRUE(diedOf(first, SIGKILL));
    EXPECT_EQ(::kill(third, 0), 0) << "a pid after the failing one is left alone";

    EXPECT_EQ(json({"kill", "101", "3"}).json()["rc"].as_int64(), 0);
    EXPECT_TRUE(diedOf(third, SIGTERM));
    EXPECT_EQ(json({"kill", "101"}).exitCode, 2) << "at least one PID";
}

TEST_F(ProcessesE2ETest, RefusedClientsRunNoTool)
{
    pid_t pid = containerProcess(1);
    const struct {
        const char* right;
        std::vector<std::string> command;
    } cases[] = {{"43", {"ps", "101"}}, {"44", {"kill", "101", "1"}}};
    for (const auto& c : cases) {
        std::vector<std::string> args = {"--deny", c.right};
        args.insert(args.end(), c.command.begin(), c.command.end());
        EXPECT_EQ(json(args).json()["rc"].as_int64(), 414) << c.right;
    }
    EXPECT_EQ(host.calls().find("kqps"), std::string::npos) << host.calls();
    EXPECT_EQ(::kill(pid, 0), 0);
}

} // namespace
