// The registry through the console: VEIDs, the agent's private files in a
// container, and configurations read from the control tool's text form.
#include "E2EFixture.h"
#include "AgentRecord.h"

#include "KQC/GUID.h"
#include "KQC/Message.h"
#include "KQS/EnvConfig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

class RegistryE2ETest : public kqtest::E2ETest {
protected:
    void SetUp() override
    {
        host.write("etc/sysconfig/kq", "LOCKDIR=\"" + host.path("kq/lock") + "\"\nVE_ROOT=\"" +
                                           host.path("kq/root/$VEID") + "\"\nVE_PRIVATE=\"" +
                                           host.path("kq/private/$VEID") + "\"\n");
        host.write("etc/sysconfig/kq-scripts/4242.conf",
                   "NAME=\"web\"\nVE_PRIVATE=\"" + host.path("kq/private/4242") + "\"\n");
        ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("etc/kqagent/configs") + "' '" +
                                 host.path("var/lib/kqagent") + "' '" + host.path("kq/private/4242") + "' '" +
                                 host.path("kq/lock") + "'"));
        eid.generate();
        host.write("etc/kqagent/configs/" + eid.toString(), kqtest::agentRecord(4242));
    }

    KQC::KQCEID eid;
};

TEST_F(RegistryE2ETest, AllocatesAVeidWithinTheConfiguredBounds)
{
    host.write("etc/kqagent/KQSVpsAgent.conf",
               "<message name=\"configuration\"><node key=\"data\"><node key=\"kqsenvm\"><node key=\"configuration\">"
               "<int key=\"minVeid\">300</int><int key=\"maxVeid\">310</int></node></node></node></message>\n");
    kqtest::RunResult result = json({"veid", "allocate"});
    ASSERT_EQ(0, result.exitCode) << result.out;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.out, match, std::regex("\"veid\":([0-9]+)"))) << result.out;
    int veid = std::stoi(match[1]);
    EXPECT_GE(veid, 300);
    EXPECT_LE(veid, 310);
    EXPECT_NE(std::string::npos, result.out.find("\"rc\":0"));
}

TEST_F(RegistryE2ETest, PrivateFilesByVeidAndByEidAndTheirRefusals)
{
    kqtest::RunResult put = json({"private", "put", "4242", "notes"}, "hello");
    ASSERT_EQ(0, put.exitCode) << put.out;
    EXPECT_EQ("hello", host.read("kq/private/4242/kqagent/notes"));

    kqtest::RunResult get = json({"private", "get", eid.toString(), "notes"});
    ASSERT_EQ(0, get.exitCode) << get.out;
    EXPECT_NE(std::string::npos, get.out.find("\"data\":\"hello\"")) << get.out;

    kqtest::RunResult erase = json({"private", "put", "4242", "notes"});
    ASSERT_EQ(0, erase.exitCode) << erase.out;
    EXPECT_FALSE(kqtest::exists(host.path("kq/private/4242/kqagent/notes")));

    kqtest::RunResult missing = json({"private", "get", "4242", "notes"});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_NE(std::string::npos, missing.out.find("\"rc\":-4")) << missing.out;

    // Refused without the right, for unknown containers and for bad names.
    kqtest::RunResult denied = json({"--deny", "38", "private", "get", "4242", "notes"});
    EXPECT_EQ(1, denied.exitCode);
    EXPECT_NE(std::string::npos, denied.out.find("\"rc\":414")) << denied.out;

    kqtest::RunResult unknown = json({"private", "get", "999", "notes"});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_NE(std::string::npos, unknown.out.find("\"error\":\"eid for ctid#999 not found\"")) << unknown.out;

    EXPECT_EQ(2, json({"private", "get", "not-a-ct", "notes"}).exitCode);
}

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
