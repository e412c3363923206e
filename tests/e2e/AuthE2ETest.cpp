// Container-user authentication through "kqagent auth", against real
// crypt(3) hashes in a simulated container's etc/shadow.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class AuthE2ETest : public kqtest::SimulatedE2ETest {
protected:
    AuthE2ETest() : SimulatedE2ETest({"101 --state running"}) {}

    void SetUp() override
    {
        SimulatedE2ETest::SetUp();
        if (HasFatalFailure())
            return;
        kqtest::RunResult sync = json({"sync"});
        ASSERT_EQ(0, sync.exitCode) << sync.out << sync.err;
        kqtest::RunResult info = json({"info", "101"});
        ASSERT_EQ(0, info.exitCode) << info.out;
        eidBody = std::string(info.json().at("env").at("eid").as_string().c_str());
        eidBody = eidBody.substr(1, eidBody.size() - 2);
    }

    // Gives the container a user with a password, as its own tools would.
    void addUser(const std::string& user, const std::string& password)
    {
        ASSERT_EQ(0, kqtest::run("KQ_HOST_ROOT='" + host.root() + "' '" KQ_BIN_DIR "/kqsim-tools/kqctl' set 101 --save "
                                 "--userpasswd '" + user + ":" + password + "' >/dev/null"));
    }

    std::string local(int type) const { return "S-1-0-" + std::to_string(type) + "-" + eidBody; }

    std::string eidBody;
};

std::vector<std::string> groupsOf(const boost::json::object& json)
{
    std::vector<std::string> groups;
    for (const auto& group : json.at("groups").as_array())
        groups.push_back(std::string(group.as_string().c_str()));
    return groups;
}

TEST_F(AuthE2ETest, RefusalsSayWhy)
{
    addUser("alice", "alice-pw");
    struct Case {
        std::vector<std::string> args;
        std::string password;
        int rc;
        const char* error;
    };
    const Case cases[] = {
        {{"auth", "101", "root"}, "not-the-password", -2, "invalid credentials"},
        {{"auth", "101", "nobody"}, "not-the-password", -2, "invalid credentials"},
        {{"auth", "101", "alice"}, "alice-pw", -2, "invalid credentials"},  // not in group 0
        {{"auth", "alice"}, "alice-pw", -2, "invalid domain"},               // the host
        {{"auth", "101", "morvoadmin"}, "not-the-password", -7,
         "required component is not installed: morvo not installed"},
    };
    for (const Case& c : cases) {
        kqtest::RunResult result = json(c.args, c.password + "\n");
        EXPECT_EQ(1, result.exitCode) << result.out;
        boost::json::object json = result.json();
        EXPECT_EQ(c.rc, json.at("rc").as_int64()) << result.out;
        EXPECT_EQ(c.error, std::string(json.at("error").as_string().c_str())) << result.out;
    }
}

TEST_F(AuthE2ETest, RootGroupZeroMembersAndTheControlPanelAdministratorGetTheirTokens)
{
    kqtest::RunResult root = json({"auth", "101", "root"}, "secret\n");
    ASSERT_EQ(0, root.exitCode) << root.out << root.err;
    EXPECT_EQ(local(1), std::string(root.json().at("user_sid").as_string().c_str()));
    EXPECT_EQ((std::vector<std::string>{local(2), "S-1-5-9"}), groupsOf(root.json()));

    addUser("alice", "alice-pw");
    addUser("morvoadmin", "panel-pw");
    std::string group = host.path("kq/private/101/root/etc/group");
    kqtest::writeFile(group, "root:x:0:alice\n" + kqtest::readFile(group).substr(kqtest::readFile(group).find('\n') + 1));

    kqtest::RunResult alice = json({"auth", "101", "alice"}, "alice-pw\n");
    ASSERT_EQ(0, alice.exitCode) << alice.out;
    EXPECT_EQ(local(2), std::string(alice.json().at("user_sid").as_string().c_str()));
    EXPECT_EQ((std::vector<std::string>{"S-1-5-9", local(2)}), groupsOf(alice.json()));

    kqtest::RunResult admin = json({"auth", "101", "morvoadmin"}, "panel-pw\n");
    ASSERT_EQ(0, admin.exitCode) << admin.out;
    EXPECT_EQ(local(3), std::string(admin.json().at("user_sid").as_string().c_str()));
    EXPECT_EQ((std::vector<std::string>{local(2), "S-1-5-10"}), groupsOf(admin.json()));
}

TEST_F(AuthE2ETest, ThePasswordTravelsOnlyOnStandardInput)
{
    kqtest::RunResult good = json({"auth", "101", "root"}, "secret\n");
    kqtest::RunResult bad = json({"auth", "101", "root"}, "not-the-password\n");
    std::string calls = host.calls();
    EXPECT_NE(std::string::npos, calls.find("[\"kqauth\",\"101\",\"root\"]")) << calls;
    std::string log = kqtest::exists(host.path("var/lib/kqagent/kqagent.log"))
        ? host.read("var/lib/kqagent/kqagent.log") : std::string();
    for (const std::string& secret : {std::string("secret"), std::string("not-the-password")}) {
        EXPECT_EQ(std::string::npos, calls.find(secret)) << "calls log";
        EXPECT_EQ(std::string::npos, log.find(secret)) << "agent log";
        EXPECT_EQ(std::string::npos, (good.out + good.err + bad.out + bad.err).find(secret)) << "console output";
    }
}

} // namespace
