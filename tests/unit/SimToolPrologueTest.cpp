// What every simulated tool does first: the calls log and the fault rules.
#include "SimToolTestSupport.h"

namespace {

using simtest::lines;
using simtest::RunResult;

class SimToolPrologueTest : public simtest::SimHostReadyTest {
protected:
    std::vector<std::string> calls() const { return lines(kqtest::readFile(at("var/log/kqsim/calls.log"))); }

    void fault(const std::vector<std::string>& rule)
    {
        std::vector<std::string> args = {"fault", root()};
        args.insert(args.end(), rule.begin(), rule.end());
        ASSERT_EQ(kqsim(args).exitCode, 0);
    }
};

TEST_F(SimToolPrologueTest, EachRunAppendsOneJsonLine)
{
    tool("kqctl", {"start", "101"});
    tool("kqpkgls", {"-q"});
    tool("kqctl", {"--skiplock", "stop", "101", "--fast"});
    EXPECT_EQ(calls(), (std::vector<std::string>{"[\"kqctl\",\"start\",\"101\"]", "[\"kqpkgls\",\"-q\"]",
                                                  "[\"kqctl\",\"--skiplock\",\"stop\",\"101\",\"--fast\"]"}));
}

TEST_F(SimToolPrologueTest, ArgumentsAreEscapedAsJson)
{
    tool("kqauth", {"quote\"back\\slash", "line\nbreak\ttab\r", std::string("ctl\x01\x1f\x7f"), "caf\xc3\xa9",
                    "bad\xff\xc3", "overlong\xc0\xaf", "surrogate\xed\xa0\x80", ""});
    ASSERT_EQ(calls().size(), 1u);
    EXPECT_EQ(calls()[0], "[\"kqauth\",\"quote\\\"back\\\\slash\",\"line\\nbreak\\ttab\\r\","
                          "\"ctl\\u0001\\u001f\\u007f\",\"caf\xc3\xa9\",\"bad\\u00ff\\u00c3\","
                          "\"overlong\\u00c0\\u00af\",\"surrogate\\u00ed\\u00a0\\u0080\",\"\"]");
}

TEST_F(SimToolPrologueTest, ConcurrentRunsNeverInterleave)
{
    const int runs = 8;
    std::vector<std::vector<std::string>> arguments;
    for (int i = 0; i < runs; ++i)
        arguments.push_back({std::string(4000, static_cast<char>('a' + i))});
    toolsAtOnce("kqpkgls", arguments);
    std::vector<std::string> logged = calls();
    ASSERT_EQ(logged.size(), static_cast<size_t>(runs));
    std::set<char> seen;
    for (const std::string& line : logged) {
        ASSERT_EQ(line.size(), std::string("[\"kqpkgls\",\"\"]").size() + 4000) << line.substr(0, 40);
        const size_t prefix = std::string("[\"kqpkgls\",\"").size();
        char letter = line[prefix];
        EXPECT_TRUE(line.substr(prefix, 4000) == std::string(4000, letter)) << "mixed line for " << letter;
        seen.insert(letter);
    }
    EXPECT_EQ(seen.size(), static_cast<size_t>(runs));
}

TEST_F(SimToolPrologueTest, WithoutHostRootToolsRefuse)
{
    RunResult result =
        simtest::run({simtest::toolsDir() + "/kqctl", "start", "101"}, simtest::environmentWith({{"KQ_HOST_ROOT", ""}}));
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("KQ_HOST_ROOT"), std::string::npos) << result.err;
}

TEST_F(SimToolPrologueTest, ExitRuleWritesTextAndChangesNothingSleepRuleThenWorks)
{
    addContainer({"101"});
    fault({"kqctl", "start", "0", "faked start"});
    RunResult result = tool("kqctl", {"start", "101"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "faked start\n");
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(runningList().empty());
    EXPECT_EQ(calls().size(), 1u) << "the call is logged before the rule fires";

    // A sleep rule writes its text, then the tool works normally.
    ASSERT_EQ(kqsim({"fault", root(), "--clear"}).exitCode, 0);
    fault({"kqctl", "start", "sleep:0.1", "slow start"});
    result = tool("kqctl", {"start", "101"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "slow start\n");
    EXPECT_EQ(runningList(), std::vector<std::string>{"101"});
}

TEST_F(SimToolPrologueTest, FirstMatchingRuleWinsWithItsCodeSignalAndText)
{
    fault({"kqpkgls", "101", "5", "first"});
    fault({"kqpkgls", "*", "6", "second"});
    fault({"kqpkgls", "101", "7", "third"});
    RunResult first = tool("kqpkgls", {"-q", "101"});
    EXPECT_EQ(first.exitCode, 5);
    EXPECT_EQ(first.err, "first\n");
    RunResult any = tool("kqpkgls", {"-q", "102"});
    EXPECT_EQ(any.exitCode, 6);
    RunResult noWord = tool("kqpkgls", {"-q"});
    EXPECT_EQ(noWord.exitCode, 6) << "* matches a run without any word";

    // A signal rule kills the tool; rule text keeps newlines and backslashes.
    fault({"kqps", "*", "signal:15", "dying"});
    RunResult killed = tool("kqps", {"-E", "101"});
    EXPECT_EQ(killed.signal, 15);
    EXPECT_EQ(killed.err, "dying\n");
    fault({"kqauth", "*", "3", "wrong\npassword \\n"});
    RunResult text = tool("kqauth", {"101", "root"});
    EXPECT_EQ(text.exitCode, 3);
    EXPECT_EQ(text.err, "wrong\npassword \\n\n");
}

TEST_F(SimToolPrologueTest, WordIsTheFirstArgumentAfterOptions)
{
    addContainer({"101"});
    fault({"kqctl", "start", "32", "Container is running"});
    RunResult skipLock = tool("kqctl", {"--skiplock", "start", "101"});
    EXPECT_EQ(skipLock.exitCode, 32);
    EXPECT_EQ(skipLock.err, "Container is running\n");
    RunResult otherWord = tool("kqctl", {"mount", "101"});
    EXPECT_EQ(otherWord.exitCode, 0) << otherWord.err;
    RunResult otherTool = tool("kqsplit", {"start"});
    EXPECT_EQ(otherTool.err, "kqsplit: not implemented in the simulator\n");
}

} // namespace
