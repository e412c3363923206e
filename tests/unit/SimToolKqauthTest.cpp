// kqauth: container passwords checked with crypt(3), group membership.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqauthTest : public simtest::SimHostReadyTest {
protected:
    void SetUp() override
    {
        SimHostReadyTest::SetUp();
        addContainer({"101"});
    }

    // Runs kqauth with the password on standard input, as the agent does.
    RunResult auth(const std::vector<std::string>& args, const std::string& password)
    {
        std::string command = "printf '%s\\n' \"$1\" | \"$0\"";
        std::vector<std::string> argv = {"/bin/bash", "-c", command + " \"${@:2}\"", simtest::toolsDir() + "/kqauth",
                                         password};
        argv.insert(argv.end(), args.begin(), args.end());
        return simtest::run(argv, toolEnvironment());
    }
};

TEST_F(SimToolKqauthTest, ChecksThePasswordOfTheContainer)
{
    EXPECT_EQ(auth({"101", "root"}, "secret").exitCode, 0);
    EXPECT_EQ(auth({"101", "root"}, "Secret").exitCode, 3);
    EXPECT_EQ(auth({"101", "nobody"}, "secret").exitCode, 3);
    EXPECT_EQ(auth({"101", "daemon"}, "").exitCode, 3) << "a locked account never matches";
    EXPECT_EQ(auth({"999", "root"}, "secret").exitCode, 1);
    EXPECT_EQ(auth({"root"}, "secret").exitCode, 2);
}

TEST_F(SimToolKqauthTest, GroupZeroMembershipAndAccountsOfAnotherType)
{
    ASSERT_EQ(tool("kqctl", {"set", "101", "--save", "--userpasswd", "alice:pw"}).exitCode, 0);
    EXPECT_EQ(auth({"101", "alice"}, "pw").exitCode, 0);
    EXPECT_EQ(auth({"-g", "0", "101", "alice"}, "pw").exitCode, 3);
    EXPECT_EQ(auth({"-g", "0", "101", "root"}, "secret").exitCode, 0);
    std::string group = at("kq/private/101/root/etc/group");
    kqtest::writeFile(group, "root:x:0:alice,bob\ndaemon:x:1:\nalice:x:1000:\n");
    EXPECT_EQ(auth({"-g", "0", "101", "alice"}, "pw").exitCode, 0);

    // A missing account of another type means no control panel.
    EXPECT_EQ(auth({"-t", "morvoadmin", "101", "morvoadmin"}, "x").exitCode, 7);
    EXPECT_EQ(auth({"-t", "morvoadmin", "101", "root"}, "wrong").exitCode, 3);
}

} // namespace
