// kqnetstat and kqquota: the statistics tools answer from the simulated
// kernel values that kqsim set writes.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqstatTest : public simtest::SimHostTest {
protected:
    void SetUp() override
    {
        SimHostTest::SetUp();
        initHost();
    }

    void set(const std::string& key, const std::string& value)
    {
        ASSERT_EQ(kqsim({"set", root(), "101", key, value}).exitCode, 0) << key;
    }
};

TEST_F(SimToolKqstatTest, NetstatPrintsClassesInOrder)
{
    set("net.2", "10 20 30 40");
    set("net.0", "1 2 3 4");
    set("net.10", "5 6 7 8");
    RunResult result = tool("kqnetstat", {"-v", "101"});
    ASSERT_EQ(result.exitCode, 0);
    std::vector<std::string> lines = simtest::lines(result.out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1], "101 0 1 2 3 4");
    EXPECT_EQ(lines[2], "101 2 10 20 30 40");
    EXPECT_EQ(lines[3], "101 10 5 6 7 8");
    EXPECT_EQ(simtest::lines(tool("kqnetstat", {"-v", "102"}).out).size(), 1u) << "header only";
}

TEST_F(SimToolKqstatTest, QuotaRoundsBytesUpToKib)
{
    set("quota.block_usage", "1025");
    set("quota.block_soft", "2048");
    set("quota.block_hard", "1");
    set("quota.block_grace", "60");
    set("quota.inode_usage", "12");
    set("quota.inode_hard", "100");
    set("quota.ugid_a", "7");
    set("quota.ugid_b", "9");
    RunResult result = tool("kqquota", {"-b", "-q", "show", "101", "-t"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::vector<std::string> lines = simtest::lines(result.out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], " 2 2 1 60 0");
    EXPECT_EQ(lines[1], " 12 0 100 0 0");
    EXPECT_EQ(lines[3], "0 7 9");
    EXPECT_EQ(simtest::lines(tool("kqquota", {"-b", "-q", "show", "101"}).out).size(), 2u);
    EXPECT_EQ(tool("kqquota", {"show"}).exitCode, 2);
}

} // namespace
