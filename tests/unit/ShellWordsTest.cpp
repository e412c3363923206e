#include "ShellWords.h"

#include <gtest/gtest.h>

using kqagent::splitShellWords;

namespace {
std::vector<std::string> split(const std::string& line)
{
    std::vector<std::string> words;
    std::string error;
    EXPECT_EQ(0, splitShellWords(line, words, error)) << line << ": " << error;
    return words;
}
} // namespace

TEST(ShellWordsTest, SplitsLikeAShell)
{
    EXPECT_EQ((std::vector<std::string>{"set", "101", "--name", "my box"}), split("set 101 --name 'my box'"));
    EXPECT_EQ((std::vector<std::string>{"a\"b$c`d\\e"}), split("\"a\\\"b\\$c\\`d\\\\e\""));
    EXPECT_EQ((std::vector<std::string>{"x\\ny"}), split("\"x\\ny\""));
    EXPECT_EQ((std::vector<std::string>{"a b", "", "c'd"}), split("  a\\ b  '' \"c'd\"  "));
    EXPECT_EQ((std::vector<std::string>{"abc"}), split("a'b'\"c\""));
    EXPECT_TRUE(split("   \t").empty());
}

TEST(ShellWordsTest, ReportsUnbalancedQuotesAndTrailingBackslash)
{
    std::vector<std::string> words;
    std::string error;
    EXPECT_EQ(-1, splitShellWords("start '101", words, error));
    EXPECT_EQ("unbalanced quote", error);
    EXPECT_EQ(-1, splitShellWords("start \"101", words, error));
    EXPECT_EQ(-1, splitShellWords("start 101\\", words, error));
    EXPECT_EQ("trailing backslash", error);
}
