// The registry through the console: VEIDs, the agent's private files in a
// container, and configurations read from the control tool's text form.
#include "AgentRun.h"
#include "TempHost.h"

#include "KQC/GUID.h"
#include "KQC/Message.h"
#include "KQS/EnvConfig.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace {

class RegistryE2ETest : public ::testing::Test {
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
        KQS::KQSEnvConfig config;
        config.setVeid(4242);
        auto message = KQC::KQCMsgFactory::createNew();
        message->setName("packet");
        message->getIterator().putObj(KQC::TAG_ENV_CONFIG, config);
        ASSERT_EQ(0, message->save(host.path("etc/kqagent/configs/" + eid.toString())));
    }

    // Runs kqagent on this host, answering in JSON, with `input` on its standard input.
    kqtest::RunResult agent(std::vector<std::string> args, const std::string& input = "")
    {
        args.insert(args.begin(), "--json");
        return kqtest::agent(host.root(), args, input);
    }

    kqtest::TempHost host;
    KQC::KQCEID eid;
};

TEST_F(RegistryE2ETest, AllocatesAVeidWithinTheConfiguredBounds)
{
    host.write("etc/kqagent/KQSVpsAgent.conf",
               "<message name=\"configuration\"><node key=\"data\"><node key=\"kqsenvm\"><node key=\"configuration\">"
               "<int key=\"minVeid\">300</int><int key=\"maxVeid\">310</int></node></node></node></message>\n");
    kqtest::RunResult result = agent({"veid", "allocate"});
    ASSERT_EQ(0, result.exitCode) << result.out;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.out, match, std::regex("\"veid\":([0-9]+)"))) << result.out;
    int veid = std::stoi(match[1]);
    EXPECT_GE(veid, 300);
    EXPECT_LE(veid, 310);
    EXPECT_NE(std::string::npos, result.out.find("\"rc\":0"));
}

TEST_F(RegistryE2ETest, PrivateFilesByVeidAndByEid)
{
    kqtest::RunResult put = agent({"private", "put", "4242", "notes"}, "hello");
    ASSERT_EQ(0, put.exitCode) << put.out;
    EXPECT_EQ("hello", host.read("kq/private/4242/kqagent/notes"));

    kqtest::RunResult get = agent({"private", "get", eid.toString(), "notes"});
    ASSERT_EQ(0, get.exitCode) << get.out;
    EXPECT_NE(std::string::npos, get.out.find("\"data\":\"hello\"")) << get.out;

    kqtest::RunResult erase = agent({"private", "put", "4242", "notes"});
    ASSERT_EQ(0, erase.exitCode) << erase.out;
    EXPECT_FALSE(kqtest::exists(host.path("kq/private/4242/kqagent/notes")));

    kqtest::RunResult missing = agent({"private", "get", "4242", "notes"});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_NE(std::string::npos, missing.out.find("\"rc\":-4")) << missing.out;
}

TEST_F(RegistryE2ETest, PrivateFilesAreRefusedWithoutTheRight)
{
    kqtest::RunResult denied = agent({"--deny", "38", "private", "get", "4242", "notes"});
    EXPECT_EQ(1, denied.exitCode);
    EXPECT_NE(std::string::npos, denied.out.find("\"rc\":414")) << denied.out;

    kqtest::RunResult unknown = agent({"private", "get", "999", "notes"});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_NE(std::string::npos, unknown.out.find("\"error\":\"eid for ctid#999 not found\"")) << unknown.out;

    EXPECT_EQ(2, agent({"private", "get", "not-a-ct", "notes"}).exitCode);
}

TEST_F(RegistryE2ETest, ReadsANativeConfiguration)
{
    host.write("web.conf", "NAME=\"web\"\nARCH=x86_64\nIP_ADDRESS=\"10.0.0.2/24 10.0.0.3\"\nONBOOT=\"yes\"\n");
    kqtest::RunResult result = agent({"config", "virtual", host.path("web.conf")});
    ASSERT_EQ(0, result.exitCode) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"name\":\"web\"")) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"addresses\":[\"10.0.0.2/24\",\"10.0.0.3/32\"]")) << result.out;
    EXPECT_NE(std::string::npos, result.out.find("\"onboot\":true")) << result.out;

    EXPECT_EQ(2, agent({"config", "virtual", host.path("missing.conf")}).exitCode);
    EXPECT_EQ(2, agent({"config", "sideways", "x"}).exitCode);
}

} // namespace
