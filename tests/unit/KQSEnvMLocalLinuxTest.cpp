// The environment manager's action entry points: each resolves the
// environment to its container, runs one control-tool action on the
// simulated host and, on success only, tells the client.
#include "KQSEnvMLocal.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// A client that keeps the notifications it is sent.
struct NotifiedClient : KQC::KQCAccessProviderPrototype {
    void notify(const std::string& event, const std::string& text) override
    {
        notifications.push_back(event + ": " + text);
    }
    std::vector<std::string> notifications;
};

class EntryPointTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --state stopped"));
        KQS::KQSEnvConfig config;
        config.setVeid(101);
        eid.generate();
        ASSERT_EQ(0, envm.putEnvConfig(eid, config)) << KQC::getErrorMessage();
    }
    // The control-tool command lines run since the last call.
    std::string newCalls()
    {
        std::string all = host.calls();
        std::string fresh = all.substr(seen);
        seen = all.size();
        return fresh;
    }

    kqtest::TempHost host;
    NotifiedClient* client = new NotifiedClient;
    KQC::KQCAccessProvider access{client};
    KQS::KQSEnvMLocal envm{access};
    KQC::KQCEID eid;
    size_t seen = 0;
};

} // namespace

TEST_F(EntryPointTest, EachEntryPointRunsItsActionAndTellsTheClient)
{
    struct Case {
        int (KQS::KQSEnvMLocal::*action)(const KQC::KQCEID&);
        const char* line;
    } cases[] = {
        {&KQS::KQSEnvMLocal::mount, "[\"kqctl\",\"mount\",\"101\"]\n"},
        {&KQS::KQSEnvMLocal::umount, "[\"kqctl\",\"umount\",\"101\"]\n"},
        {&KQS::KQSEnvMLocal::start, "[\"kqctl\",\"start\",\"101\"]\n"},
        {&KQS::KQSEnvMLocal::restart, "[\"kqctl\",\"restart\",\"101\"]\n"},
        // No daemon left to signal in the container: the suspend goes ahead.
        {&KQS::KQSEnvMLocal::suspend, "[\"kqctl\",\"exec\",\"101\",\"kill -TERM `cat /var/run/vpsd.pid`\"]\n"
                                      "[\"kqctl\",\"suspend\",\"101\"]\n"},
        {&KQS::KQSEnvMLocal::resume, "[\"kqctl\",\"resume\",\"101\"]\n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(0, (envm.*c.action)(eid)) << c.line << KQC::getErrorMessage();
        EXPECT_EQ(c.line, newCalls());
    }
    EXPECT_EQ(0, envm.stop(eid, true)) << KQC::getErrorMessage();
    EXPECT_EQ("[\"kqctl\",\"stop\",\"101\",\"--fast\"]\n", newCalls());
    EXPECT_EQ(0, envm.stop(eid, false)) << KQC::getErrorMessage();
    EXPECT_EQ("[\"kqctl\",\"stop\",\"101\"]\n", newCalls());
    EXPECT_EQ(0, envm.destroy(eid)) << KQC::getErrorMessage();
    EXPECT_EQ("[\"kqctl\",\"destroy\",\"101\"]\n", newCalls());

    ASSERT_EQ(9u, client->notifications.size());
    for (const std::string& notification : client->notifications)
        EXPECT_EQ("conf-update: ctid 101", notification);
}

TEST_F(EntryPointTest, AnUnknownEnvironmentRunsNothing)
{
    KQC::KQCEID unknown;
    unknown.generate();
    EXPECT_EQ(-8, envm.start(unknown));
    EXPECT_STREQ("can't find ctid by env", KQC::getErrorMessage());

    // Registered without a container number: just as unknown.
    KQC::KQCEID withoutVeid;
    withoutVeid.generate();
    ASSERT_EQ(0, envm.putEnvConfig(withoutVeid, KQS::KQSEnvConfig()));
    EXPECT_EQ(-8, envm.stop(withoutVeid, false));
    EXPECT_STREQ("can't find ctid by env", KQC::getErrorMessage());

    EXPECT_EQ("", host.calls());
    EXPECT_TRUE(client->notifications.empty());
}

TEST_F(EntryPointTest, AFailedActionKeepsItsResultAndTellsNobody)
{
    ASSERT_EQ(0, host.kqsim("fault kqctl start 32 'Container is locked'"));
    EXPECT_EQ(-103, envm.start(eid));
    EXPECT_STREQ("kqctl start 101 failed: Container is locked", KQC::getErrorMessage());
    EXPECT_TRUE(client->notifications.empty());
}
