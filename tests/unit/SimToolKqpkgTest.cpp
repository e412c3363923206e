// The template tools: listing the templates folder and a container's
// templates, installing and removing application templates.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolKqpkgTest : public simtest::SimHostReadyTest {
protected:
    void SetUp() override
    {
        SimHostReadyTest::SetUp();
        addContainer({"101"});
    }

    void addVersion(const std::string& name, const std::string& version, const std::string& text)
    {
        std::string conf = at("kq/template/" + name + "/conf");
        std::filesystem::create_directories(conf);
        kqtest::writeFile(conf + "/" + name + ".conf." + version, text);
    }
};

TEST_F(SimToolKqpkgTest, HostListingShowsEveryVersionWithAFile)
{
    addVersion("webstack", "20260201", "broken file");
    std::filesystem::create_directories(at("kq/template/empty/conf"));
    RunResult result = tool("kqpkgls", {"-q"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "simos-9-x86_64 20260101\nwebstack 20260101 20260201\n");
}

TEST_F(SimToolKqpkgTest, AddAndRemoveInAContainer)
{
    EXPECT_EQ(tool("kqpkgls", {"-q", "101"}).out, "simos-9-x86_64 20260101\n");
    ASSERT_EQ(tool("kqpkgadd", {"-q", "101", "webstack/20260101"}).exitCode, 0);
    EXPECT_EQ(tool("kqpkgls", {"-q", "101"}).out, "simos-9-x86_64 20260101\nwebstack 20260101\n");

    RunResult twice = tool("kqpkgadd", {"-q", "101", "webstack"});
    EXPECT_EQ(twice.exitCode, 1);
    EXPECT_NE(twice.err.find("already installed"), std::string::npos);
    EXPECT_EQ(tool("kqpkgadd", {"--force", "-q", "101", "webstack"}).exitCode, 0);

    ASSERT_EQ(tool("kqpkgrm", {"-q", "101", "webstack"}).exitCode, 0);
    EXPECT_EQ(tool("kqpkgls", {"-q", "101"}).out, "simos-9-x86_64 20260101\n");
    EXPECT_EQ(tool("kqpkgrm", {"-q", "101", "webstack"}).exitCode, 1);
}

TEST_F(SimToolKqpkgTest, AddRefusals)
{
    RunResult os = tool("kqpkgadd", {"-q", "101", "simos-9-x86_64"});
    EXPECT_EQ(os.exitCode, 1);
    EXPECT_NE(os.err.find("Use -f/--force option"), std::string::npos);
    addContainer({"103", "--ostemplate", "other-os"});
    EXPECT_EQ(tool("kqpkgadd", {"--force", "-q", "103", "simos-9-x86_64"}).exitCode, 0);
    EXPECT_EQ(tool("kqpkgls", {"-q", "103"}).out, "simos-9-x86_64 20260101\n");
    EXPECT_EQ(tool("kqpkgadd", {"-q", "101", "missing"}).exitCode, 1);
    EXPECT_EQ(tool("kqpkgadd", {"-q", "999", "webstack"}).exitCode, 1);

    addContainer({"102", "--ostemplate", "other-os"});
    RunResult incompatible = tool("kqpkgadd", {"-q", "102", "webstack"});
    EXPECT_EQ(incompatible.exitCode, 1);
    EXPECT_NE(incompatible.err.find("failed dependencies"), std::string::npos);
    EXPECT_EQ(tool("kqpkgadd", {"--force", "-q", "102", "webstack"}).exitCode, 0);

    kqtest::writeFile(at("kq/lock/101.lck"), std::to_string(getpid()) + "\nstarting");
    EXPECT_EQ(tool("kqpkgadd", {"-q", "101", "webstack"}).exitCode, 9) << "a locked container";
}

TEST_F(SimToolKqpkgTest, InfoPrintsTechnologies)
{
    RunResult result =
        tool("kqpkginfo", {"-e", at("kq/template/simos-9-x86_64/conf/simos-9-x86_64.conf.20260101")});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "x86_64\nnptl\n");
    EXPECT_EQ(tool("kqpkginfo", {"-e", at("nothing")}).exitCode, 1);
}

} // namespace
