// kqquota: disk quota from the simulated kernel values kqsim set writes.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqquotaTest : public simtest::SimHostReadyTest {};

TEST_F(SimToolKqquotaTest, QuotaRoundsBytesUpToKib)
{
    setKernel("101", "quota.block_usage", "1025");
    setKernel("101", "quota.block_soft", "2048");
    setKernel("101", "quota.block_hard", "1");
    setKernel("101", "quota.block_grace", "60");
    setKernel("101", "quota.inode_usage", "12");
    setKernel("101", "quota.inode_hard", "100");
    setKernel("101", "quota.ugid_a", "7");
    setKernel("101", "quota.ugid_b", "9");
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
