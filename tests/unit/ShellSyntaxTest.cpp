#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using KQS::KQSShellFile;

class ShellSyntaxTest : public ::testing::Test {
protected:
    std::string writeFile(const std::string& text)
    {
        std::string name = "file" + std::to_string(m_count++);
        m_temp.write(name, text);
        return m_temp.path(name);
    }

    // What bash makes of KEY after sourcing the file: the reference reader.
    std::string bashValue(const std::string& path, const std::string& key)
    {
        int exitCode = -1;
        std::string out = kqtest::bashValue(path, key, &exitCode);
        EXPECT_EQ(exitCode, 0) << path;
        return out;
    }

    kqtest::TempDir m_temp;
    int m_count = 0;
};

const std::string kAwkwardValues[] = {
    "",
    "plain",
    "with blanks  and\ttabs",
    "double \" quote",
    "single ' quote",
    "both \"'\" kinds",
    "$VEID and ${VEID} and $(date) and $((1+1))",
    "back`quote`s",
    "back\\slash \\n \\\\ \\$",
    "trailing backslash\\",
    "\\",
    "line one\nline two\n\nafter a blank",
    "utf-8: caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
    "# not a comment",
    "semi;colon|pipe&amp<less>more(paren)",
    "!bang and * star ? mark ~tilde",
    "control \x01 and \x7f bytes",
    "\n",
};

TEST_F(ShellSyntaxTest, BashReadsBackEveryValueTheWriterWrites)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    int n = 0;
    for (const std::string& value : kAwkwardValues)
        pairs.push_back(std::make_pair("KEY" + std::to_string(n++), value));
    std::ostringstream text;
    ASSERT_EQ(KQS::writeShellFile(pairs, text, nullptr, false), 0);
    std::string path = writeFile(text.str());

    KQSShellFile file;
    ASSERT_EQ(file.parse(text.str()), 0) << KQC::getErrorMessage();
    for (const auto& pair : pairs) {
        EXPECT_EQ(bashValue(path, pair.first), pair.second) << "bash, " << pair.first;
        std::string ours;
        ASSERT_TRUE(file.get(pair.first, ours));
        EXPECT_EQ(ours, pair.second) << "reader, " << pair.first;
    }
}

TEST_F(ShellSyntaxTest, ReaderAgreesWithBashOnHandWrittenQuoting)
{
    const std::string text = "A=plain\n"
                             "B='single $x \\ \"'\n"
                             "C=\"dq \\\" \\\\ \\$ \\` \\n kept\"\n"
                             "D=mixed'single'\"double\"tail\n"
                             "E=\"joined \\\nline\"\n"
                             "F=unquoted\\ escaped\\\"\n"
                             "  G=\"indented\"   # and a comment\n"
                             "export H=\"exported\"\n"
                             "I=\"multi\nline\"\n"
                             "A=\"last wins\"\n";
    std::string path = writeFile(text);
    KQSShellFile file;
    ASSERT_EQ(file.parse(text), 0) << KQC::getErrorMessage();
    for (const char* key : {"A", "B", "C", "D", "E", "F", "G", "H", "I"}) {
        std::string ours;
        ASSERT_TRUE(file.get(key, ours)) << key;
        EXPECT_EQ(ours, bashValue(path, key)) << key;
    }
}

TEST_F(ShellSyntaxTest, VariablesAreKeptLiterallyWhereBashWouldExpandThem)
{
    KQSShellFile file;
    ASSERT_EQ(file.parse("VE_ROOT=\"/kq/root/$VEID\"\n"), 0);
    std::string value;
    file.get("VE_ROOT", value);
    EXPECT_EQ(value, "/kq/root/$VEID");
}

TEST_F(ShellSyntaxTest, CommentsBlankLinesAndLineNumbersAreKept)
{
    KQSShellFile file;
    ASSERT_EQ(file.parse("# head\n\nA=\"x\ny\"\nB=1 # tail\n   \nlast=z"), 0);
    const std::vector<KQS::KQSShellLine>& lines = file.lines();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_FALSE(lines[0].isAssignment);
    EXPECT_EQ(lines[0].text, "# head");
    EXPECT_EQ(lines[1].text, "");
    EXPECT_EQ(lines[2].text, "A=\"x\ny\"");
    EXPECT_EQ(lines[2].lineNumber, 3);
    EXPECT_EQ(lines[3].lineNumber, 5);
    EXPECT_EQ(lines[3].value, "1");
    EXPECT_EQ(lines[5].key, "last");
    EXPECT_EQ(lines[5].lineNumber, 7);
}

TEST_F(ShellSyntaxTest, BadInputIsAnErrorNamingTheLine)
{
    struct Case {
        std::string text;
        std::string expected;
    } cases[] = {
        {"A=1\nB=\"open\nC=2\n", "line 2: unterminated double-quoted value of B"},
        {"A='open\n", "line 1: unterminated single-quoted value of A"},
        {"A=1\nB=x\0y\n", "line 2: NUL byte"},
        {"A=1\n\x01\x02\x03\n", "line 2: binary byte 0x01"},
        {"A=\x7f\n", "line 1: binary byte 0x7f"},
        {"A=1 2\n", "line 1: unexpected text after the value of A"},
        {"A=$(rm -rf /)\n", "line 1: unsupported shell syntax '(' in the value of A"},
        {"A=x;B=y\n", "line 1: unsupported shell syntax ';' in the value of A"},
        {"JUST_A_WORD\n", "line 1: expected '=' after 'JUST_A_WORD'"},
        {"9A=1\n", "line 1: unexpected character '9'"},
        {"export\n", "line 1: expected '=' after 'export'"},
    };
    for (const Case& c : cases) {
        KQSShellFile file;
        std::string text = c.text;
        if (c.expected == "line 2: NUL byte")
            text = std::string("A=1\nB=x\0y\n", 10);
        EXPECT_EQ(file.parse(text), -1) << c.expected;
        EXPECT_EQ(std::string(KQC::getErrorMessage()), c.expected);
    }
}

TEST_F(ShellSyntaxTest, OverlongAndBinaryFilesFailWithoutHarm)
{
    KQSShellFile file;
    std::string huge = "A=\"" + std::string(1 << 20, 'x') + "\"\n";
    EXPECT_EQ(file.parse(huge), -1);
    EXPECT_EQ(std::string(KQC::getErrorMessage()), "line 1: line longer than 65536 bytes");

    std::string binary;
    srand(7);
    for (int i = 0; i < 100000; ++i)
        binary += static_cast<char>(rand() & 0xff);
    EXPECT_EQ(file.parse(binary), -1);
    EXPECT_EQ(std::string(KQC::getErrorMessage()).compare(0, 5, "line "), 0);

    std::string justFits = "A=\"" + std::string(KQS::kMaxShellLineLength - 4, 'y') + "\"";
    EXPECT_EQ(file.parse(justFits), 0);
}

TEST_F(ShellSyntaxTest, KeepOldRewritesInPlaceAndAppendsNewKeys)
{
    const std::string old = "# settings\n"
                            "UNKNOWN='kept as written'\n"
                            "NAME=\"old\"   # trailing comment goes with the old value\n"
                            "\n"
                            "HOSTNAME=h\n"
                            "NAME=\"duplicate\"\n";
    std::istringstream oldStream(old);
    std::ostringstream out;
    std::vector<std::pair<std::string, std::string>> pairs = {{"NAME", "new"}, {"EXTRA", "x y"}};
    ASSERT_EQ(KQS::writeShellFile(pairs, out, &oldStream, true), 0);
    EXPECT_EQ(out.str(), "# settings\n"
                         "UNKNOWN='kept as written'\n"
                         "NAME=\"new\"\n"
                         "\n"
                         "HOSTNAME=h\n"
                         "EXTRA=\"x y\"\n");

    std::istringstream again(old);
    std::ostringstream plain;
    ASSERT_EQ(KQS::writeShellFile(pairs, plain, &again, false), 0);
    EXPECT_EQ(plain.str(), "NAME=\"new\"\nEXTRA=\"x y\"\n");
}

TEST_F(ShellSyntaxTest, WriterRefusesWhatNoShellCanHold)
{
    std::ostringstream out;
    EXPECT_EQ(KQS::writeShellFile({{"BAD-KEY", "v"}}, out, nullptr, false), -1);
    EXPECT_EQ(KQS::writeShellFile({{"K", std::string("a\0b", 3)}}, out, nullptr, false), -1);
    EXPECT_EQ(std::string(KQC::getErrorMessage()), "the value of K holds a NUL byte");
    std::istringstream broken("A=\"open\n");
    EXPECT_EQ(KQS::writeShellFile({{"A", "v"}}, out, &broken, true), -1);
}

namespace {
std::vector<std::string> wordsOf(const std::string& line)
{
    std::vector<std::string> words;
    EXPECT_EQ(0, KQS::splitShellWords(line, words)) << line << ": " << KQC::getErrorMessage();
    return words;
}
} // namespace

// The console's batch lines are split this way.
TEST_F(ShellSyntaxTest, CommandLinesSplitLikeAShell)
{
    EXPECT_EQ((std::vector<std::string>{"set", "101", "--name", "my box"}), wordsOf("set 101 --name 'my box'"));
    EXPECT_EQ((std::vector<std::string>{"a\"b$c`d\\e"}), wordsOf("\"a\\\"b\\$c\\`d\\\\e\""));
    EXPECT_EQ((std::vector<std::string>{"x\\ny"}), wordsOf("\"x\\ny\""));
    EXPECT_EQ((std::vector<std::string>{"a b", "", "c'd"}), wordsOf("  a\\ b  '' \"c'd\"  "));
    EXPECT_EQ((std::vector<std::string>{"abc"}), wordsOf("a'b'\"c\""));
    EXPECT_TRUE(wordsOf("   \t").empty());

    std::vector<std::string> words;
    EXPECT_EQ(-1, KQS::splitShellWords("start '101", words));
    EXPECT_EQ(-1, KQS::splitShellWords("start \"101", words));
    EXPECT_EQ(-1, KQS::splitShellWords("start 101\\", words));
    EXPECT_STREQ("trailing backslash in 'start 101\\'", KQC::getErrorMessage());
}

TEST_F(ShellSyntaxTest, WordsAndSingleAssignments)
{
    std::vector<std::string> words;
    ASSERT_EQ(KQS::splitShellWords("create --name 'my ct' --description \"a \\\"b\\\"\" x\\ y # rest", words), 0);
    EXPECT_EQ(words, (std::vector<std::string>{"create", "--name", "my ct", "--description", "a \"b\"", "x y"}));
    ASSERT_EQ(KQS::splitShellWords("a ''", words), 0);
    EXPECT_EQ(words, (std::vector<std::string>{"a", ""}));
    EXPECT_EQ(KQS::splitShellWords("say 'open", words), -1);

    std::string key, value;
    ASSERT_EQ(KQC::parseBashStr("RPM_PATH=\"/usr/bin/rpm\"", key, value), 0);
    EXPECT_EQ(key, "RPM_PATH");
    EXPECT_EQ(value, "/usr/bin/rpm");
    EXPECT_EQ(KQC::parseBashStr("# comment", key, value), -1);
    EXPECT_EQ(KQC::parseBashStr("A=1\nB=2", key, value), -1);
}

} // namespace
