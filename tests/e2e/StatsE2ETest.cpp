// Statistics of a running container through kqagent: the simulated
// kernel's values come out with the collector's conversions.
#include "E2EFixture.h"

#include <gtest/gtest.h>

namespace {

class StatsE2ETest : public kqtest::SimulatedE2ETest {
protected:
    StatsE2ETest() : SimulatedE2ETest({"101 --state running"}) {}
    void set(const std::string& key, const std::string& value, const std::string& veid = "101")
    {
        ASSERT_EQ(0, host.kqsim("set " + veid + " " + key + " '" + value + "'"));
    }
    boost::json::object stat(const std::string& what, int expectedRc = 0)
    {
        kqtest::RunResult run = json({"stat", what, "101"});
        boost::json::object result = run.json();
        EXPECT_EQ(result["rc"].as_int64(), expectedRc) << what << ": " << run.out << run.err;
        return result;
    }
    static uint64_t number(const boost::json::value& value) { return boost::json::value_to<uint64_t>(value); }
};

TEST_F(StatsE2ETest, KernelValuesComeOutConverted)
{
    set("quota.block_usage", "1500");
    set("quota.block_hard", "1048576");
    set("quota.inode_soft", "70");
    set("quota.ugid_a", "5");
    set("quota.ugid_b", "6");
    set("cpu", "11 22 33 0 3000000000 10000000");
    set("loadavg", "0.15 2.50 1.05");
    set("net.2", "10 20 30 40");
    set("net.1", "1 2 3 4");
    set("slm", "1:10:99,2:10:5");

    boost::json::object quota = stat("quota")["quota"].as_object();
    EXPECT_EQ(number(quota["block_usage"]), 2u);
    EXPECT_EQ(number(quota["block_hard"]), 1024u);
    EXPECT_EQ(number(quota["inode_soft"]), 70u);
    EXPECT_EQ(number(quota["ugid_a"]), 5u);
    EXPECT_EQ(number(quota["ugid_b"]), 6u);

    const boost::json::array cpu = stat("cpu")["cpu"].as_array();
    const uint64_t expectedCpu[] = {33, 11, 22, 300, 1};  // the host's CPU runs at 1000 MHz
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(number(cpu.at(i)), expectedCpu[i]) << i;

    const boost::json::array load = stat("loadavg")["loadavg"].as_array();
    EXPECT_DOUBLE_EQ(load.at(0).as_double(), 0.15);
    EXPECT_DOUBLE_EQ(load.at(1).as_double(), 2.5);
    EXPECT_DOUBLE_EQ(load.at(2).as_double(), 1.05);

    const boost::json::array classes = stat("net")["classes"].as_array();
    ASSERT_EQ(classes.size(), 2u);
    EXPECT_EQ(classes.at(0).at("class").as_int64(), 1);
    EXPECT_EQ(number(classes.at(1).at("counters").at(3)), 40u);

    const boost::json::array slm = stat("slm")["slm"].as_array();
    ASSERT_EQ(slm.size(), 2u);
    EXPECT_EQ(number(slm.at(0).at("value")), 99u);
    EXPECT_EQ(slm.at(1).at("a").as_int64(), 2);

    // The readable form is for people: plain decimals, and records as a table.
    EXPECT_EQ(kqtest::agent(host.root(), {"stat", "loadavg", "101"}).out, "loadavg: 0.15 2.5 1.05\n");
    const std::string classesTable = kqtest::agent(host.root(), {"stat", "net", "101"}).out;
    EXPECT_EQ(classesTable.substr(0, classesTable.find('\n', classesTable.find('\n') + 1)),
              "classes:\nclass  counters");
}

TEST_F(StatsE2ETest, QuotaNotLoadedInTheKernelIsReadByTheToolWhoseExitTenCounts)
{
    set("quota.loaded", "0");
    set("quota.block_usage", "3000");
    set("quota.ugid_a", "8");
    boost::json::object quota = stat("quota")["quota"].as_object();
    EXPECT_EQ(number(quota["block_usage"]), 3u);
    EXPECT_EQ(number(quota["ugid_a"]), 8u);
    EXPECT_NE(host.calls().find("[\"kqquota\",\"-b\",\"-q\",\"show\",\"101\",\"-t\"]"), std::string::npos);

    const struct {
        const char* rule;
        int rc;
    } exits[] = {{"kqquota * 10 limits exceeded", 0}, {"kqquota * 3 broken", -1}, {"kqquota * signal:9", -1}};
    for (const auto& exit : exits) {
        kqtest::writeFile(host.path("etc/kqsim/faults"), std::string(exit.rule) + "\n");
        boost::json::object result = stat("quota", exit.rc);
        if (exit.rc != 0) {
            EXPECT_EQ(result["error"].as_string(), "quota might not be properly initialized in Container 101");
        }
    }
}

TEST_F(StatsE2ETest, TrafficToolFailureSaysTheQuotaMessageAndUnknownContainersAreRefused)
{
    kqtest::writeFile(host.path("etc/kqsim/faults"), "kqnetstat * 1 no counters\n");
    EXPECT_EQ(stat("net", -1)["error"].as_string(), "quota might not be properly initialized in Container 101");
    // An unknown container is the registry's answer.
    EXPECT_EQ(json({"stat", "cpu", "555"}).json()["rc"].as_int64(), 3804);
}

TEST_F(StatsE2ETest, ResourceNamesFollowTheKernelsCount)
{
    set("ubc.4", "10 20 0 8 3 0 0 0");
    const struct {
        const char* count;
        size_t names;
    } counts[] = {{"21", 21}, {"20", 20}, {"5", 5}, {"32", 21}};
    for (const auto& c : counts) {
        set("ubc.count", c.count, "0");
        boost::json::array ubc = stat("ubc")["ubc"].as_array();
        ASSERT_EQ(ubc.size(), c.names) << c.count;
        EXPECT_EQ(ubc.at(4).at("name").as_string(), "processes");
        EXPECT_EQ(number(ubc.at(4).at("average")), 5u);
        EXPECT_EQ(number(ubc.at(4).at("limit")), 20u);
        EXPECT_EQ(number(ubc.at(4).at("barrier")), 10u);
    }
    // More parameters than the kernel can have: the names cannot be trusted.
    set("ubc.count", "33", "0");
    kqtest::RunResult run = json({"stat", "ubc", "101"});
    EXPECT_NE(run.exitCode, 0);
    EXPECT_NE(run.err.find("Assertion"), std::string::npos) << run.err;
}

} // namespace
