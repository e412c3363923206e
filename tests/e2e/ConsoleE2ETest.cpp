// The console on simulated hosts: its command line, its output forms and
// its refusal of malformed commands.
#include "AgentRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

namespace {

class ConsoleE2ETest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, host.simulated()); }
    std::string calls() const { return kqtest::readFile(host.path("var/log/kqsim/calls.log")); }

    kqtest::TempHost host;
};

} // namespace

TEST_F(ConsoleE2ETest, ListsAnEmptyHostAsOneJsonObject)
{
    kqtest::RunResult run = kqtest::agent(host.root(), {"--json", "list"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    auto objects = run.objects();
    ASSERT_EQ(1u, objects.size()) << run.out;
    EXPECT_EQ(0, objects[0].at("rc").as_int64());
    EXPECT_EQ("", objects[0].at("error").as_string());
    EXPECT_TRUE(objects[0].at("envs").as_array().empty());
}

TEST_F(ConsoleE2ETest, MalformedCommandsExitTwoAndRunNothing)
{
    for (std::vector<std::string> args :
         {std::vector<std::string>{"--json", "lisst"}, {"--json"}, {"start"}, {"start", "abc"},
          {"start", "101", "extra"}, {"stop", "101", "--slow"}, {"info", "101", "--mask", "zz"},
          {"--deny", "4x", "list"}, {"--bogus", "list"}, {"veid", "free"}, {"batch", "now"},
          {"start", "99999999999"}}) {
        kqtest::RunResult run = kqtest::agent(host.root(), args);
        EXPECT_EQ(2, run.exitCode) << args.back();
        EXPECT_NE(std::string::npos, run.err.find("usage")) << run.err;
        EXPECT_EQ(1u, std::count(run.err.begin(), run.err.end(), '\n')) << "one line: " << run.err;
    }
    EXPECT_EQ("", calls()) << "no tool ran";
}

TEST_F(ConsoleE2ETest, AnUnknownVeidIsTheRegistrysAnswer)
{
    kqtest::RunResult run = kqtest::agent(host.root(), {"--json", "start", "4242"});
    EXPECT_EQ(1, run.exitCode);
    auto result = run.json();
    EXPECT_EQ(3804, result.at("rc").as_int64());
    EXPECT_EQ("eid for ctid#4242 not found", result.at("error").as_string());
}

TEST_F(ConsoleE2ETest, BatchRunsEveryLineInOneProcess)
{
    kqtest::RunResult run = kqtest::agent(host.root(), {"--json", "batch"},
                                          "# a comment\n\nlist\n  list --state 6\nlist --state 'x\n");
    EXPECT_EQ(1, run.exitCode) << "one line was malformed";
    auto objects = run.objects();
    ASSERT_EQ(3u, objects.size()) << run.out;
    EXPECT_EQ(0, objects[0].at("rc").as_int64());
    EXPECT_EQ(0, objects[1].at("rc").as_int64());
    EXPECT_EQ(2, objects[2].at("rc").as_int64());

    kqtest::RunResult good = kqtest::agent(host.root(), {"--json", "batch"}, "list\nlist\n");
    EXPECT_EQ(0, good.exitCode);
    EXPECT_EQ(2u, good.objects().size());
}

TEST_F(ConsoleE2ETest, ReadableOutputWithoutJson)
{
    kqtest::RunResult run = kqtest::agent(host.root(), {"list"});
    ASSERT_EQ(0, run.exitCode);
    EXPECT_EQ(0u, run.out.find("EID")) << run.out;
}

TEST_F(ConsoleE2ETest, AMissingRootOrPluginIsReported)
{
    kqtest::RunResult noRoot = kqtest::agent(host.path("missing"), {"list"});
    EXPECT_EQ(1, noRoot.exitCode);
    EXPECT_NE(std::string::npos, noRoot.err.find("host root")) << noRoot.err;

    kqtest::RunResult noPlugin = kqtest::agent(host.root(), {"--plugin", host.path("none.so"), "list"});
    EXPECT_EQ(1, noPlugin.exitCode);
    EXPECT_NE(std::string::npos, noPlugin.err.find("can't load plug-in")) << noPlugin.err;
}
