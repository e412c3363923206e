// kqnetstat: traffic counters from the simulated kernel values kqsim set writes.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqnetstatTest : public simtest::SimHostReadyTest {};

TEST_F(SimToolKqnetstatTest, NetstatPrintsClassesInOrder)
{
    setKernel("101", "net.2", "10 20 30 40");
    setKernel("101", "net.0", "1 2 3 4");
    setKernel("101", "net.10", "5 6 7 8");
    RunResult result = tool("kqnetstat", {"-v", "101"});
    ASSERT_EQ(result.exitCode, 0);
    std::vector<std::string> lines = simtest::lines(result.out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1], "101 0 1 2 3 4");
    EXPECT_EQ(lines[2], "101 2 10 20 30 40");
    EXPECT_EQ(lines[3], "101 10 5 6 7 8");
    EXPECT_EQ(simtest::lines(tool("kqnetstat", {"-v", "102"}).out).size(), 1u) << "header only";
}

} // namespace
