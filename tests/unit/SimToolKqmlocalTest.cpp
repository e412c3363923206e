// kqmlocal: moving a container to a new VEID and cloning it.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

namespace fs = std::filesystem;

class SimToolKqmlocalTest : public simtest::SimHostReadyTest {
protected:
    std::string configName(int veid) const { return at("etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf"); }
    std::string privateArea(int veid) const { return at("kq/private/" + std::to_string(veid)); }
};

TEST_F(SimToolKqmlocalTest, MoveCarriesAreasAndStateOfEitherLayout)
{
    addContainer({"101", "--state", "running", "--name", "web"});
    RunResult result = tool("kqmlocal", {"-s", "101:301:a:b"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_FALSE(fs::exists(configName(101)));
    EXPECT_FALSE(fs::exists(privateArea(101)));
    EXPECT_TRUE(fs::is_regular_file(privateArea(301) + "/root/etc/passwd"));
    std::string config = kqtest::readFile(configName(301));
    EXPECT_NE(config.find("VE_PRIVATE=\"" + privateArea(301) + "\"\n"), std::string::npos) << config;
    EXPECT_NE(config.find("VE_ROOT=\"" + rootDir(301) + "\"\n"), std::string::npos);
    EXPECT_NE(config.find("NAME=\"web\"\n"), std::string::npos);
    EXPECT_EQ(runningList(), std::vector<std::string>{"301"});
    EXPECT_EQ(mounts(), mountLine(301));

    // Layout 4 keeps the configuration inside the area.
    addContainer({"102", "--layout", "4", "--name", "db"});
    result = tool("kqmlocal", {"-s", "102:302::"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_FALSE(fs::exists(fs::symlink_status(configName(102))));
    EXPECT_EQ(fs::read_symlink(configName(302)).string(), privateArea(302) + "/ve.conf");
    config = kqtest::readFile(configName(302));
    EXPECT_NE(config.find("VE_PRIVATE=\"" + privateArea(302) + "\"\n"), std::string::npos) << config;
    EXPECT_NE(config.find("NAME=\"db\"\n"), std::string::npos);
}

TEST_F(SimToolKqmlocalTest, CloneChainsFromTheFirstCopy)
{
    addContainer({"102", "--layout", "4"});
    RunResult result = tool("kqmlocal", {"-C", "102:203:A:B", "203:205:A:B"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (int veid : {102, 203, 205}) {
        EXPECT_EQ(fs::read_symlink(configName(veid)).string(), privateArea(veid) + "/ve.conf") << veid;
        EXPECT_NE(kqtest::readFile(privateArea(veid) + "/ve.conf").find("VE_PRIVATE=\"" + privateArea(veid) + "\""),
                  std::string::npos);
        EXPECT_TRUE(fs::is_regular_file(privateArea(veid) + "/fs/root/etc/shadow"));
    }
    EXPECT_TRUE(runningList().empty());
}

TEST_F(SimToolKqmlocalTest, Refusals)
{
    addContainer({"101"});
    addContainer({"102"});
    EXPECT_EQ(tool("kqmlocal", {"-s", "101:102::"}).exitCode, 1);
    EXPECT_EQ(tool("kqmlocal", {"-s", "999:103::"}).exitCode, 1);
    // Every argument is SRC:DST:A:B with two positive VEIDs; texts may be empty.
    for (const char* malformed : {"101", "101:103", "101:103:", "101::a:b", ":103::", "x:103::", "0:103::", "101:-3::"})
        EXPECT_EQ(tool("kqmlocal", {"-s", malformed}).exitCode, 2) << malformed;
    EXPECT_EQ(tool("kqmlocal", {"-C", "101:103::", "103"}).exitCode, 2);
    EXPECT_FALSE(fs::exists(configName(103)));
    EXPECT_EQ(tool("kqmlocal", {"-x", "101:103::"}).exitCode, 2);
    kqtest::writeFile(at("kq/lock/101.lck"), std::to_string(getpid()) + "\nstarting");
    EXPECT_EQ(tool("kqmlocal", {"-s", "101:103::"}).exitCode, 9);
    EXPECT_TRUE(fs::exists(configName(101)));
    EXPECT_FALSE(fs::exists(configName(103)));
}

} // namespace
