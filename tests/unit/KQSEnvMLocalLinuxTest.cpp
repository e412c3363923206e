// The environment manager's action entry points: each resolves the
// environment to its container, runs one control-tool action on the
// simulated host and, on success only, tells the client.
#include "KQSEnvMLocal.h"

#include "TempHost.h"

#include "KQC/Boundary.h"
#include "KQC/Error.h"

#include <boost/make_shared.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace {

// A client that keeps the notifications it is sent, and may be denied
// rights or fail while it is told.
struct NotifiedClient : KQC::KQCAccessProviderPrototype {
    explicit NotifiedClient(std::set<int> denied = {})
        : KQC::KQCAccessProviderPrototype(boost::make_shared<KQC::KQCClientContext>("test", std::move(denied)))
    {
    }
    void notify(const std::string& event, const std::string& text) override
    {
        if (failing)
            throw std::bad_alloc();
        notifications.push_back(event + ": " + text);
    }
    std::vector<std::string> notifications;
    bool failing = false;
};

typedef KQS::KQSVEActionSystemLinux Actions;

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

    // Every action, through its entry point (and the repair operations'
    // direct call with the lock skipped), with the exact command line it runs.
    struct Action {
        const char* name;
        std::function<int(KQS::KQSEnvMLocal&, const KQC::KQCEID&)> call;
        const char* lines;
    };
    static std::vector<Action> actions()
    {
        using M = KQS::KQSEnvMLocal;
        return {
            {"mount", [](M& m, const KQC::KQCEID& e) { return m.mount(e); }, "[\"kqctl\",\"mount\",\"101\"]\n"},
            {"umount", [](M& m, const KQC::KQCEID& e) { return m.umount(e); }, "[\"kqctl\",\"umount\",\"101\"]\n"},
            {"start", [](M& m, const KQC::KQCEID& e) { return m.start(e); }, "[\"kqctl\",\"start\",\"101\"]\n"},
            {"restart", [](M& m, const KQC::KQCEID& e) { return m.restart(e); },
             "[\"kqctl\",\"restart\",\"101\"]\n"},
            // No daemon left to signal in the container: the suspend goes ahead.
            {"suspend", [](M& m, const KQC::KQCEID& e) { return m.suspend(e); },
             "[\"kqctl\",\"exec\",\"101\",\"kill -TERM `cat /var/run/vpsd.pid`\"]\n"
             "[\"kqctl\",\"suspend\",\"101\"]\n"},
            {"resume", [](M& m, const KQC::KQCEID& e) { return m.resume(e); }, "[\"kqctl\",\"resume\",\"101\"]\n"},
            {"stop --fast", [](M& m, const KQC::KQCEID& e) { return m.stop(e, true); },
             "[\"kqctl\",\"stop\",\"101\",\"--fast\"]\n"},
            {"stop", [](M& m, const KQC::KQCEID& e) { return m.stop(e, false); }, "[\"kqctl\",\"stop\",\"101\"]\n"},
            {"destroy", [](M& m, const KQC::KQCEID& e) { return m.destroy(e); },
             "[\"kqctl\",\"destroy\",\"101\"]\n"},
        };
    }

    kqtest::TempHost host;
    NotifiedClient* client = new NotifiedClient;
    KQC::KQCAccessProvider access{client};
    KQS::KQSEnvMLocal envm{access};
    KQC::KQCEID eid;
    size_t seen = 0;
};

} // namespace

TEST_F(EntryPointTest, EachEntryPointRunsItsExactCommandLineAndTellsTheClient)
{
    // The repair operations skip the lock they hold; a stop never does.
    EXPECT_EQ(0, Actions::action(envm, 101, Actions::CmdType(Actions::START, true)));
    EXPECT_EQ(0, Actions::action(envm, 101, Actions::StopCmdType(Actions::STOP, true)));
    EXPECT_EQ("[\"kqctl\",\"--skiplock\",\"start\",\"101\"]\n[\"kqctl\",\"stop\",\"101\",\"--fast\"]\n", newCalls());

    for (const Action& action : actions()) {
        EXPECT_EQ(0, action.call(envm, eid)) << action.name << ": " << KQC::getErrorMessage();
        EXPECT_EQ(action.lines, newCalls()) << action.name;
    }
    ASSERT_EQ(actions().size(), client->notifications.size());
    for (const std::string& notification : client->notifications)
        EXPECT_EQ("conf-update: ctid 101", notification);
}

TEST_F(EntryPointTest, EveryActionNeedsTheRightToChangeTheEnvironment)
{
    KQS::KQSEnvMLocal refused{KQC::KQCAccessProvider(new NotifiedClient({KQC::RIGHT_ENV_SET}))};
    KQC::KQCEID unknown;
    unknown.generate();
    for (const Action& action : actions()) {
        // Refused before the environment is even looked up.
        for (const KQC::KQCEID& which : {eid, unknown}) {
            EXPECT_EQ(KQC::KQC_ERR_ACCESS_DENIED, action.call(refused, which)) << action.name;
            EXPECT_EQ("access denied: right 62 on " + which.toString(), std::string(KQC::getErrorMessage()));
        }
    }
    EXPECT_EQ("", host.calls());
}

TEST_F(EntryPointTest, AnExceptionBecomesTheOperationsResultAndMessage)
{
    // The client's side fails while it is told of the change: the failure
    // stays inside the operation.
    client->failing = true;
    EXPECT_EQ(KQC::KQC_ERR_EXCEPTION, envm.start(eid));
    EXPECT_STREQ("start: out of memory", KQC::getErrorMessage());
}

TEST_F(EntryPointTest, AnUnknownEnvironmentRunsNothingAndAFailedActionTellsNobody)
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

    // A failed action keeps its result and tells nobody either.
    ASSERT_EQ(0, host.kqsim("fault kqctl start 32 'Container is locked'"));
    EXPECT_EQ(-103, envm.start(eid));
    EXPECT_STREQ("kqctl start 101 failed: Container is locked", KQC::getErrorMessage());
    EXPECT_TRUE(client->notifications.empty());
}
