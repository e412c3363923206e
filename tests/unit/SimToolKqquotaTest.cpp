// kqquota: disk quota from the simulated kernel values kqsim set writes.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqquotaTest : public simtest::SimHostTest {
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

TEST_F(SimToolKqquotaTest, QuotaRoundsBytesUpToKib)
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
