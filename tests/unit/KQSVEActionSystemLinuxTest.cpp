// Container actions through the simulated control tool.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <chrono>

using KQS::KQSVEActionSystemLinux;
typedef KQSVEActionSystemLinux::CmdType CmdType;
typedef KQSVEActionSystemLinux::StopCmdType StopCmdType;

namespace {

// A client that keeps what the manager tells it.
struct RecordingClient : KQC::KQCAccessProviderPrototype {
    void progress(const std::string& line) override { lines.push_back(line); }
    std::vector<std::string> lines;
};

class ActionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --state stopped"));
        client = new RecordingClient;
        access = client;
    }
    int run(const CmdType& cmd, int veid = 101)
    {
        KQS::KQSEnvMLocal envm(access);
        return KQSVEActionSystemLinux::action(envm, veid, cmd);
    }

    kqtest::TempHost host;
    RecordingClient* client = nullptr;
    KQC::KQCAccessProvider access;
};

} // namespace

TEST_F(ActionTest, ToolExitCodesBecomeResultsWithTheToolsText)
{
    struct Case {
        const char* exit;
        int result;
    } cases[] = {{"31", -104}, {"32", -103}, {"78", -105}, {"1", -6}, {"signal:9", -6}};
    for (const Case& c : cases) {
        ASSERT_EQ(0, host.kqsim("fault --clear"));
        ASSERT_EQ(0, host.kqsim(std::string("fault kqctl start ") + c.exit + " 'Container is broken'"));
        EXPECT_EQ(c.result, run(CmdType(KQSVEActionSystemLinux::START, false))) << c.exit;
        std::string message = KQC::getErrorMessage();
        EXPECT_EQ(0u, message.find("kqctl start 101 failed: ")) << message;
        if (std::string(c.exit) != "signal:9") {
            EXPECT_EQ("kqctl start 101 failed: Container is broken", message);
        }
    }
}

TEST_F(ActionTest, SuspendStopsTheDaemonFirst)
{
    // No daemon to signal (the simulated exec fails): suspend goes ahead at once.
    EXPECT_EQ(0, run(CmdType(KQSVEActionSystemLinux::START, false)));
    EXPECT_FALSE(client->lines.empty()) << "the tool's output reaches the client as progress";
    EXPECT_EQ(0, run(CmdType(KQSVEActionSystemLinux::SUSPEND, false)));
    std::string calls = host.calls();
    EXPECT_NE(std::string::npos,
              calls.find("[\"kqctl\",\"exec\",\"101\",\"kill -TERM `cat /var/run/vpsd.pid`\"]\n"
                         "[\"kqctl\",\"suspend\",\"101\"]\n"))
        << calls;

    // A word "suspend" that is not the constant itself does not stop the daemon.
    std::string word = "suspend";
    EXPECT_EQ(0, run(CmdType(KQSVEActionSystemLinux::RESUME, false)));
    EXPECT_EQ(0, run(CmdType(word.c_str(), false)));
    EXPECT_EQ(calls + "[\"kqctl\",\"resume\",\"101\"]\n[\"kqctl\",\"suspend\",\"101\"]\n", host.calls());
}

TEST_F(ActionTest, ADaemonThatKeepsAnsweringBlocksTheSuspend)
{
    ASSERT_EQ(0, host.kqsim("fault kqctl exec 0"));
    auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(-6, run(CmdType(KQSVEActionSystemLinux::SUSPEND, false)));
    // A second after every answer, the last one included, before giving up.
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(3));
    EXPECT_STREQ("Can't stop vpsd in Container 101", KQC::getErrorMessage());
    std::string calls = host.calls();
    EXPECT_EQ(std::string::npos, calls.find("\"suspend\"")) << calls;
    size_t execs = 0;
    for (size_t at = calls.find("\"exec\""); at != std::string::npos; at = calls.find("\"exec\"", at + 1))
        ++execs;
    EXPECT_EQ(3u, execs);
}
