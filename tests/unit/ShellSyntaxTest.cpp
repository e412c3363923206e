#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
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

// What bash (in `locale`) makes of each key after sourcing the file, in
// one run: values are printed NUL-terminated, since no value holds a NUL.
std::vector<std::string> bashValues(const std::string& path, const std::vector<std::string>& keys,
                                    const std::string& locale)
{
    std::string names;
    for (const std::string& key : keys)
        names += " " + key;
    int exitCode = -1;
    std::string out = kqtest::commandOutput("LC_ALL=" + locale + " bash -c 'source \"$0\"; for k in" + names +
                                                "; do printf \"%s\\0\" \"${!k}\"; done' '" + path + "'",
                                            &exitCode);
    EXPECT_EQ(exitCode, 0) << path;
    std::vector<std::string> values;
    for (size_t start = 0, end; (end = out.find('\0', start)) != std::string::npos; start = end + 1)
        values.push_back(out.substr(start, end - start));
    return values;
}

// Reads `text` with our reader and with bash, and compares every key.
void expectSameAsBash(const std::string& path, const std::string& text, const std::vector<std::string>& keys,
                      const std::string& locale)
{
    KQSShellFile file;
    ASSERT_EQ(file.parse(text), 0) << KQC::getErrorMessage();
    std::vector<std::string> bash = bashValues(path, keys, locale);
    ASSERT_EQ(bash.size(), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) {
        std::string ours;
        ASSERT_TRUE(file.get(keys[i], ours)) << keys[i];
        EXPECT_EQ(ours, bash[i]) << keys[i] << " in " << locale;
    }
}

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
    std::vector<std::string> keys;
    for (const auto& pair : pairs)
        keys.push_back(pair.first);
    expectSameAsBash(writeFile(text.str()), text.str(), keys, "C.UTF-8");
    KQSShellFile file;
    ASSERT_EQ(file.parse(text.str()), 0) << KQC::getErrorMessage();
    for (const auto& pair : pairs) {
        std::string ours;
        file.get(pair.first, ours);
        EXPECT_EQ(ours, pair.second) << pair.first;
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
    expectSameAsBash(writeFile(text), text, {"A", "B", "C", "D", "E", "F", "G", "H", "I"}, "C.UTF-8");
}

// bash's C-escape quoting, as printf %q and declare -p write it.
TEST_F(ShellSyntaxTest, DollarQuotesReadAsBashReadsThem)
{
    struct Case {
        const char* text;
        std::string value;
    } cases[] = {
        {R"($'a\tb')", "a\tb"},
        {R"($'\a\b\e\E\f\n\r\t\v')", "\a\b\x1b\x1b\f\n\r\t\v"},
        {R"($'\\ \' \" \?')", "\\ ' \" ?"},
        {R"($'\101\0101\7\777\8')", "A\b1\a\xff\\8"},
        {R"($'\x41\x414\x4g\xg\x')", "AA4\x04g\\xg\\x"},
        {R"($'\u00e9\u41z\U0001F600\U7FFFFFFF')", "\xc3\xa9" "Az\xf0\x9f\x98\x80\xfd\xbf\xbf\xbf\xbf\xbf"},
        {R"($'[\uD800][\U110000][\U80000000][\u][\Uzz]')", "[\xed\xa0\x80][\xf4\x90\x80\x80][][\\u][\\Uzz]"},
        {R"($'\cA\ca\c?\c1\c[\c\\x\c\z\c')", "\x01\x01\x7f\x11\x1b\x1cx\x1cz\\c"},
        {R"($'\z\q\ ')", "\\z\\q\\ "},
        {R"($'a\0b'c$'d\400e'f$'\c@g'$'\u0h')", "acdf"},
        {R"(pre$'\n'"dq"'sq'$'\t'post)", "pre\ndqsq\tpost"},
        {R"($"plain"$'\'')", "plain'"},
        {R"("$'not'"\$'x')", "$'not'$x"},
        {"$'line\\\nnext'", "line\\\nnext"},
        {"$'two\nlines'", "two\nlines"},
        {R"(export X=$'\x5c')", "\\"},
    };
    std::string text;
    std::vector<std::string> keys;
    for (const Case& c : cases) {
        keys.push_back("K" + std::to_string(keys.size()));
        std::string line = c.text;
        if (line.compare(0, 7, "export ") == 0)
            line = "export " + keys.back() + line.substr(8);
        else
            line = keys.back() + "=" + line;
        text += line + "\n";
    }
    std::string path = writeFile(text);
    expectSameAsBash(path, text, keys, "C.UTF-8");

    KQSShellFile file;
    ASSERT_EQ(file.parse(text), 0);
    for (size_t i = 0; i < keys.size(); ++i) {
        std::string ours;
        file.get(keys[i], ours);
        EXPECT_EQ(ours, cases[i].value) << cases[i].text;
    }
}

// Random values, quoted by bash itself with printf %q and declare -p, read
// back by bash and by our reader.
TEST_F(ShellSyntaxTest, ValuesBashQuotesItselfReadBack)
{
    const char interesting[] = "\t\n\r\x01\x1b\x7f\x80\xc3\xa9\xff '\"\\$`!#;*?~{}()[]<>|&=";
    std::mt19937 random(12345);
    std::string definitions;
    std::vector<std::string> values;
    for (int i = 0; i < 300; ++i) {
        std::string value;
        for (size_t length = random() % 12; length > 0; --length)
            value += random() % 3 == 0 ? static_cast<char>('a' + random() % 26)
                                       : interesting[random() % (sizeof interesting - 1)];
        values.push_back(value);
        std::string line;
        ASSERT_EQ(KQS::shellAssignment("V" + std::to_string(i), value, line), 0);
        definitions += line + "\n";
    }
    std::string source = writeFile(definitions);
    for (const char* locale : {"C", "C.UTF-8"}) {
        // Q<i> as printf %q writes it, D<i> as declare -p does.
        std::string quoted = kqtest::commandOutput(
            std::string("LC_ALL=") + locale + " bash -c 'source \"$0\"; for ((i = 0; i < 300; i++)); do v=V$i; " +
            "printf \"Q%d=%q\\n\" $i \"${!v}\"; declare -p $v | sed \"s/^declare -- V/D/\"; done' '" + source + "'");
        std::string path = writeFile(quoted);
        std::vector<std::string> keys;
        for (int i = 0; i < 300; ++i) {
            keys.push_back("Q" + std::to_string(i));
            keys.push_back("D" + std::to_string(i));
        }
        expectSameAsBash(path, quoted, keys, locale);
        KQSShellFile file;
        ASSERT_EQ(file.parse(quoted), 0) << KQC::getErrorMessage();
        for (int i = 0; i < 300; ++i) {
            std::string ours;
            file.get("Q" + std::to_string(i), ours);
            EXPECT_EQ(ours, values[i]) << locale << " Q" << i;
        }
    }
}

TEST_F(ShellSyntaxTest, CommentsBlankLinesLineNumbersAndVariablesAreKept)
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

    // Variables are kept literally where bash would expand them.
    ASSERT_EQ(file.parse("VE_ROOT=\"/kq/root/$VEID\"\n"), 0);
    std::string value;
    file.get("VE_ROOT", value);
    EXPECT_EQ(value, "/kq/root/$VEID");
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
        {"A=$'open\\'\n", "line 1: unterminated $'-quoted value of A"},
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

    // A last line that ends in a backslash escaping nothing keeps its value
    // when lines are appended after it.
    for (const std::string& last : {std::string("CUT=x\\"), std::string("CUT='a b'\\")}) {
        std::istringstream cut(last);
        std::ostringstream merged;
        ASSERT_EQ(KQS::writeShellFile({{"NEW", "y"}}, merged, &cut, true), 0);
        std::string path = writeFile(merged.str());
        EXPECT_EQ(bashValue(path, "CUT"), bashValue(writeFile(last), "CUT")) << merged.str();
        EXPECT_EQ(bashValue(path, "NEW"), "y") << merged.str();
    }

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

// The console's batch lines are split this way.
TEST_F(ShellSyntaxTest, CommandLinesSplitLikeAShell)
{
    typedef std::vector<std::string> Words;
    const struct {
        const char* line;
        Words words;
    } cases[] = {
        {"set 101 --name 'my box'", {"set", "101", "--name", "my box"}},
        {"\"a\\\"b\\$c\\`d\\\\e\"", {"a\"b$c`d\\e"}},
        {"\"x\\ny\"", {"x\\ny"}},
        {"  a\\ b  '' \"c'd\"  ", {"a b", "", "c'd"}},
        {"a'b'\"c\"", {"abc"}},
        {"   \t", {}},
        {"say $'a\\tb\\'' $\"c d\" \"$x\"", {"say", "a\tb'", "c d", "$x"}},
        {"create --name 'my ct' --description \"a \\\"b\\\"\" x\\ y # rest",
         {"create", "--name", "my ct", "--description", "a \"b\"", "x y"}},
    };
    for (const auto& c : cases) {
        Words words{"stale"};
        EXPECT_EQ(0, KQS::splitShellWords(c.line, words)) << c.line << ": " << KQC::getErrorMessage();
        EXPECT_EQ(words, c.words) << c.line;
    }
    Words words;
    for (const char* open : {"start '101", "start \"101", "start $'101\\'", "start 101\\"})
        EXPECT_EQ(-1, KQS::splitShellWords(open, words)) << open;
    EXPECT_STREQ("trailing backslash in 'start 101\\'", KQC::getErrorMessage());
}

TEST_F(ShellSyntaxTest, SingleAssignments)
{
    std::string key, value;
    ASSERT_EQ(KQC::parseBashStr("RPM_PATH=\"/usr/bin/rpm\"", key, value), 0);
    EXPECT_EQ(key, "RPM_PATH");
    EXPECT_EQ(value, "/usr/bin/rpm");
    EXPECT_EQ(KQC::parseBashStr("# comment", key, value), -1);
    EXPECT_EQ(KQC::parseBashStr("A=1\nB=2", key, value), -1);
}

} // namespace
