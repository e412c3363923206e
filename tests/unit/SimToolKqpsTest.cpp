// kqps over the simulated process lists.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqpsTest : public simtest::SimHostReadyTest {
protected:
    void SetUp() override
    {
        SimHostReadyTest::SetUp();
        ASSERT_EQ(kqsim({"proc", root(), "101", "1", "5001", "/sbin/init"}).exitCode, 0);
        ASSERT_EQ(kqsim({"proc", root(), "101", "20", "5002", "/usr/sbin/httpd -k start"}).exitCode, 0);
        ASSERT_EQ(kqsim({"proc", root(), "102", "1", "6001", "init"}).exitCode, 0);
    }
};

TEST_F(SimToolKqpsTest, ContainerListingWithColumns)
{
    RunResult result = tool("kqps", {"xawh", "-E", "101", "-eo", "vpid,pid,user,stat,comm,args"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "1 5001 root S init /sbin/init\n20 5002 root S httpd /usr/sbin/httpd -k start\n");
    // The id map that kill uses.
    EXPECT_EQ(tool("kqps", {"xawh", "-E", "102", "-eo", "vpid,pid"}).out, "1 6001\n");
    EXPECT_EQ(tool("kqps", {"xawh", "-E", "103", "-eo", "vpid,pid"}).out, "");

    RunResult unknown = tool("kqps", {"xawh", "-E", "101", "-eo", "pid,shoesize"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_NE(unknown.err.find("shoesize"), std::string::npos);
}

TEST_F(SimToolKqpsTest, HostListingCoversEveryContainerAndTheRealProcessesAndHasAHeaderWithoutH)
{
    std::string host = tool("kqps", {"xawh", "-eo", "veid,pid"}).out;
    EXPECT_EQ(host.compare(0, 27, "101 5001\n101 5002\n102 6001\n"), 0) << host;
    EXPECT_NE(host.find("\n0 " + std::to_string(::getpid()) + "\n"), std::string::npos) << host;
    EXPECT_EQ(tool("kqps", {"xaw", "-E", "102", "-eo", "pid,comm"}).out, "PID COMM\n6001 init\n");
}

} // namespace
