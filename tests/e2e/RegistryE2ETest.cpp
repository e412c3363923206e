// The registry through the console: configurations read from the control
// tool's text form, and agents racing over new containers.
#include "E2EFixture.h"
#include "AgentRecord.h"

#include "KQC/GUID.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace {

class RegistryE2ETest : public kqtest::E2ETest {};

TEST_F(RegistryE2ETest, ReadsANativeConfiguration)
{
    host.write("web.conf", "NAME=\"web\"\nARCH=x86_64\nIP_ADDRESS=\"10.0.0.2/24 10.0.0.3\"\nONBOOT=\"yes\"\n");
    kqtest::RunResult result = json({"config", "virtual", host.path("web.conf")});
    ASSERT_EQ(0, result.exitCode) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"name\":\"web\"")) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"addresses\":[\"10.0.0.2/24\",\"10.0.0.3/32\"]")) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"onboot\":true")) << result.out;

    EXPECT_EQ(2, json({"config", "virtual", host.path("missing.conf")}).exitCode);
    EXPECT_EQ(2, json({"config", "sideways", "x"}).exitCode);
}

class RegistryRaceE2ETest : public kqtest::SimulatedE2ETest {};

// Agents that see new containers for the first time at the same moment
// must still give each container one EID, the one its record names.
TEST_F(RegistryRaceE2ETest, AgentsRacingOverNewContainersGiveEachOneEid)
{
    const int agents = 8;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const int first = 101 + 2 * round;
        ASSERT_EQ(0, host.kqsim("add " + std::to_string(first)));
        ASSERT_EQ(0, host.kqsim("add " + std::to_string(first + 1)));
        std::string command = "cd '" + host.root() + "' && for k in $(seq " + std::to_string(agents) + "); do '" +
                              KQ_BIN_DIR + "/kqagent' --root . --json info " + std::to_string(first) +
                              " > out.$k 2>/dev/null & done; wait";
        ASSERT_EQ(0, kqtest::run(command));

        // Every agent answered with the same EID for the container.
        std::set<std::string> answered;
        for (int k = 1; k <= agents; ++k) {
            std::string out = host.read("out." + std::to_string(k));
            boost::json::object result = boost::json::parse(out).as_object();
            ASSERT_EQ(0, result.at("rc").as_int64()) << out;
            answered.insert(result.at("env").as_object().at("eid").as_string().c_str());
        }
        EXPECT_EQ(1u, answered.size());

        // One agent file per container, and each container's record agrees.
        kqtest::RunResult list = json({"list"});
        ASSERT_EQ(0, list.exitCode) << list.err;
        auto envs = list.json().at("envs").as_array();
        std::string files = kqtest::commandOutput("ls '" + host.path("etc/kqagent/configs") + "' | grep -c '^{'");
        EXPECT_EQ(std::to_string(first + 2 - 101) + "\n", files);
        ASSERT_EQ(static_cast<size_t>(first + 2 - 101), envs.size());
        for (const auto& value : envs) {
            const auto& env = value.as_object();
            std::string veid = std::to_string(env.at("veid").as_int64());
            EXPECT_EQ(env.at("eid").as_string().c_str(), host.read("kq/private/" + veid + "/.kqs/eid.conf")) << veid;
            if (veid == std::to_string(first)) {
                EXPECT_EQ(*answered.begin(), env.at("eid").as_string().c_str());
            }
        }
    }
}

// Left over from agents that raced before: two agent files for one
// container, its record naming the one that sorts last.
TEST_F(RegistryRaceE2ETest, SyncKeepsOneEnvironmentPerContainerAndTheRecordAgrees)
{
    ASSERT_EQ(0, host.kqsim("add 101"));
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("etc/kqagent/configs") + "'"));
    std::vector<KQC::KQCEID> eids(2);
    for (KQC::KQCEID& eid : eids) {
        eid.generate();
        host.write("etc/kqagent/configs/" + eid.toString(), kqtest::agentRecord(101));
    }
    std::sort(eids.begin(), eids.end(), KQC::KQCEnvIDComparator());
    host.write("kq/private/101/.kqs/eid.conf", eids.back().toString());

    kqtest::RunResult sync = json({"sync"});
    ASSERT_EQ(0, sync.exitCode) << sync.err;
    auto envs = sync.json().at("envs").as_array();
    ASSERT_EQ(1u, envs.size());
    std::string kept(envs[0].as_object().at("eid").as_string().c_str());
    EXPECT_EQ("1\n", kqtest::commandOutput("ls '" + host.path("etc/kqagent/configs") + "' | grep -c '^{'"));
    EXPECT_TRUE(kqtest::exists(host.path("etc/kqagent/configs/" + kept)));
    EXPECT_EQ(kept, host.read("kq/private/101/.kqs/eid.conf"));
}

} // namespace
