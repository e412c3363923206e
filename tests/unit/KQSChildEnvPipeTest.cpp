// The pipe to a container's own agent: refusals before anything starts,
// failures to start or configure it, and a real connection to the
// simulator's kqsvpsagent.
#include "KQSChildEnvPipe.h"

#include "TempHost.h"

#include "KQC/Error.h"
#include "KQC/Tags.h"
#include "KQS/EnvConfig.h"

#include <gtest/gtest.h>

namespace {

class KQSChildEnvPipeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --state running"));
        eid.generate();
        parent.generate();
    }

    // The container as the agent knows it; veid 0 leaves it out, and an
    // empty root leaves VE_ROOT out.
    KQC::KQCEnv env(int veid, const std::string& root) const
    {
        boost::shared_ptr<KQS::KQSEnvConfig> config(new KQS::KQSEnvConfig);
        if (veid)
            config->setVeid(veid);
        if (!root.empty())
            config->setVERootVar(root);
        KQC::KQCEnv made(eid, "corvantis");
        made.setParentEID(parent);
        made.setConfig(config);
        return made;
    }

    bool agentWasStarted() const { return host.calls().find("kqsvpsagent") != std::string::npos; }

    kqtest::TempHost host;
    KQC::KQCEID eid;
    KQC::KQCEID parent;
};

TEST_F(KQSChildEnvPipeTest, RefusesAContainerWithoutVeidOrRootBeforeStartingAnything)
{
    struct Case {
        int veid;
        std::string root;
        const char* message;
    };
    const Case cases[] = {
        {0, "/somewhere", "non valid ctid#0"},
        {-3, "/somewhere", "non valid ctid#-3"},
        {101, "", "non valid VE_ROOT for ctid#101"},
    };
    for (const Case& c : cases) {
        KQC::KQCEnv container = env(c.veid, c.root);
        KQS::KQSChildEnvPipePrototype pipe(&container);
        EXPECT_EQ(20, pipe.getStartTimeout()) << "no time-out given means 20 seconds";
        EXPECT_EQ(-1, pipe.connect(nullptr));
        EXPECT_STREQ(c.message, KQC::getErrorMessage());
        EXPECT_FALSE(pipe.isAttached());
    }
    EXPECT_FALSE(agentWasStarted());
}

TEST_F(KQSChildEnvPipeTest, AMissingAgentOrConfigurationTemplateFails)
{
    KQC::KQCEnv container = env(101, host.path("kq/root/$VEID"));
    ASSERT_EQ(0, ::rename(host.path("etc/kqagent/KQSVpsAgent.conf").c_str(), host.path("saved.conf").c_str()));
    KQS::KQSChildEnvPipePrototype noTemplate(&container);
    EXPECT_EQ(-1, noTemplate.connect(nullptr));
    EXPECT_EQ(0, std::string(KQC::getErrorMessage()).find("can't read " + host.path("etc/kqagent/KQSVpsAgent.conf") + " : "))
        << KQC::getErrorMessage();
    EXPECT_FALSE(noTemplate.isAttached());

    ASSERT_EQ(0, ::unlink(host.path("usr/lib/kqagent/kqsvpsagent").c_str()));
    KQS::KQSChildEnvPipePrototype noAgent(&container);
    EXPECT_EQ(-1, noAgent.connect(nullptr));
    EXPECT_EQ(0, std::string(KQC::getErrorMessage()).find("can't start kqsvpsagent for Container#101: "))
        << KQC::getErrorMessage();
}

TEST_F(KQSChildEnvPipeTest, ConnectsToTheContainersAgentAndHandsItItsConfiguration)
{
    ASSERT_TRUE(KQC::getChildEnvPipeFactory()->isRegistered("corvantis"));
    KQC::KQCEnv container = env(101, host.path("kq/root/$VEID"));
    boost::shared_ptr<KQC::KQCEventLoopPipePrototype> pipe =
        KQC::getChildEnvPipeFactory()->create("corvantis", &container);
    ASSERT_TRUE(pipe);
    KQC::KQCConnectivityInfo info;
    EXPECT_EQ(-4, pipe->getPeerInfo(info));

    ASSERT_EQ(0, pipe->connect(nullptr)) << KQC::getErrorMessage();
    KQC::KQCMessage ready;
    ASSERT_EQ(0, pipe->readMessage(ready, 10000)) << KQC::getErrorMessage();
    KQC::KQCMessageIterator it = ready.getIterator();
    int veid = 0;
    std::string root, own, master;
    EXPECT_EQ(0, it.getInt(KQC::TAG_VEID, veid));
    EXPECT_EQ(101, veid);
    EXPECT_EQ(0, it.getString(KQC::TAG_VE_ROOT, root));
    EXPECT_EQ(host.path("kq/root/101"), root);
    EXPECT_EQ(0, it.getString(KQC::TAG_LOCAL_EID, own));
    EXPECT_EQ(eid.toString(), own);
    EXPECT_EQ(0, it.getString(KQC::TAG_MASTER_EID, master));
    EXPECT_EQ(parent.toString(), master);
    EXPECT_TRUE(it.has(KQC::TAG_CONNECTION)) << "the master's mapping travels with the configuration";

    ASSERT_EQ(0, pipe->getPeerInfo(info));
    EXPECT_EQ("corvantis", info.className);
    EXPECT_LT(0, info.pid);
    EXPECT_NE(std::string::npos, host.calls().find("[\"kqsvpsagent\",\"101\",\"" + host.path("kq/root/101") + "\"]"))
        << host.calls();
}

} // namespace
