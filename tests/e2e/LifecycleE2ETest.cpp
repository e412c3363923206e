// The first user journey on a simulated host: see every container with its
// state and transition, and drive it through the actions.
#include "E2EFixture.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class LifecycleE2ETest : public kqtest::SimulatedE2ETest {
protected:
    LifecycleE2ETest()
        : SimulatedE2ETest({"101 --state running --name web --ip 10.0.0.11/24", "102 --state stopped --name db",
                            "103 --state mounted --layout 4", "104 --state suspended"})
    {
    }

    static int state(const boost::json::object& env) { return static_cast<int>(env.at("state").as_int64()); }
};

} // namespace

// The listing's every field is checked byte for byte by the console's
// tests; here, that identifiers stay from one run to the next.
TEST_F(LifecycleE2ETest, ListsEveryContainerWithItsState)
{
    auto envs = listing();
    ASSERT_EQ(4u, envs.size());
    EXPECT_EQ(envs[101].at("eid"), listing()[101].at("eid"));
    auto running = json({"list", "--state", "6"}).json().at("envs").as_array();
    ASSERT_EQ(1u, running.size());
    EXPECT_EQ(101, running[0].as_object().at("veid").as_int64());
}

TEST_F(LifecycleE2ETest, SyncRegistersContainersTheRegistryDidNotKnow)
{
    auto before = listing();
    ASSERT_EQ(0, host.kqsim("add 105 --state running"));
    kqtest::RunResult sync = json({"sync"});
    ASSERT_EQ(0, sync.exitCode) << sync.err;
    auto after = listing();
    ASSERT_EQ(5u, after.size());
    EXPECT_EQ(6, state(after[105]));
    EXPECT_EQ(before[102].at("eid"), after[102].at("eid"));
    // The container keeps its identifier in its own private area.
    std::string eid(after[105].at("eid").as_string().c_str());
    EXPECT_EQ(eid, host.read("kq/private/105/.kqs/eid.conf"));

    // A container that is gone is forgotten.
    ASSERT_EQ(0, kqtest::run("rm -rf '" + host.path("etc/sysconfig/kq-scripts/102.conf") + "' '" +
                             host.path("kq/private/102") + "'"));
    ASSERT_EQ(0, json({"sync"}).exitCode);
    EXPECT_EQ(0u, listing().count(102));
    EXPECT_EQ(3804, json({"info", "102"}).json().at("rc").as_int64());
}

TEST_F(LifecycleE2ETest, ShowsTheTransitionOfALockedContainer)
{
    // A live process holds the lock of 102 while it "starts" it, and 106 is
    // being created: a lock but no configuration yet.
    pid_t holder = fork();
    if (holder == 0) {
        pause();
        _exit(0);
    }
    host.write("kq/lock/102.lck", std::to_string(holder) + "\nstarting");
    host.write("kq/lock/106.lck", std::to_string(holder) + "\ncreating");
    ASSERT_EQ(0, json({"sync"}).exitCode);
    auto envs = listing();
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(4, envs[102].at("transition").as_int64());
    ASSERT_EQ(1u, envs.count(106));
    EXPECT_EQ(2, envs[106].at("transition").as_int64());

    // Once the holder is gone the lock is stale and means nothing.
    EXPECT_EQ(0, listing()[102].at("transition").as_int64());
}

TEST_F(LifecycleE2ETest, ActionsChangeTheStateAndProgressGoesToStandardError)
{
    kqtest::RunResult stop = json({"stop", "101"});
    ASSERT_EQ(0, stop.exitCode) << stop.err;
    EXPECT_EQ(0, stop.json().at("rc").as_int64());
    EXPECT_NE(std::string::npos, stop.err.find("Container was stopped")) << stop.err;
    EXPECT_EQ(3, state(listing()[101]));

    std::string eid(listing()[102].at("eid").as_string().c_str());
    EXPECT_EQ(0, json({"start", eid}).exitCode);
    EXPECT_EQ(0, json({"suspend", "102"}).exitCode);
    EXPECT_EQ(5, state(listing()[102]));
    EXPECT_EQ(0, json({"resume", "102"}).exitCode);
    EXPECT_EQ(0, json({"restart", "102"}).exitCode);
    EXPECT_EQ(6, state(listing()[102]));
    EXPECT_EQ(0, json({"umount", "103"}).exitCode);
    EXPECT_EQ(0, json({"mount", "103"}).exitCode);
    EXPECT_EQ(0, json({"stop", "102", "--fast"}).exitCode);
    EXPECT_EQ(0, json({"destroy", "102"}).exitCode);
    EXPECT_EQ(0u, listing().count(102));
}

TEST_F(LifecycleE2ETest, RefusalsAndFailingToolsGiveTheirResultAndChangeNothing)
{
    std::string eid(listing()[102].at("eid").as_string().c_str());
    struct Case {
        std::vector<std::string> args;
        std::string error;
    } cases[] = {
        {{"--deny", "61", "list"}, "access denied: right 61 on all environments"},
        {{"--deny", "61", "sync"}, "access denied: right 61 on all environments"},
        {{"--deny", "61", "info", "102"}, "access denied: right 61 on " + eid},
        {{"--deny", "62", "start", "102"}, "access denied: right 62 on " + eid},
        {{"--deny", "62", "destroy", "102"}, "access denied: right 62 on " + eid},
    };
    for (const Case& c : cases) {
        kqtest::RunResult run = json(c.args);
        EXPECT_EQ(1, run.exitCode) << c.args.back();
        EXPECT_EQ(414, run.json().at("rc").as_int64()) << c.args.back();
        EXPECT_EQ(c.error, run.json().at("error").as_string()) << c.args.back();
        // Nothing of the refused request reaches the client.
        boost::json::object result = run.json();
        EXPECT_TRUE(!result.count("envs") || result.at("envs").as_array().empty()) << c.args.back();
    }
    EXPECT_EQ(std::string::npos, host.calls().find("\"start\"")) << host.calls();
    EXPECT_EQ(3, state(listing()[102]));

    // A failing tool gives its result and message, and changes nothing.
    ASSERT_EQ(0, host.kqsim("fault kqctl start 32 'Container is broken'"));
    kqtest::RunResult run = json({"start", "102"});
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ(-103, run.json().at("rc").as_int64());
    EXPECT_EQ("kqctl start 102 failed: Container is broken", run.json().at("error").as_string());
    EXPECT_EQ(3, state(listing()[102])) << "nothing changed";

    kqtest::RunResult unknown = json({"start", "{6b1d3f0e-52c4-4a8e-9d27-c0a5e3b17f42}"});
    EXPECT_EQ(-8, unknown.json().at("rc").as_int64());
    EXPECT_EQ("can't find ctid by env", unknown.json().at("error").as_string());
}
