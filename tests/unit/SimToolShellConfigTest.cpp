// The simulator's shell-style configuration files: reading what bash
// accepts, writing what bash reads back exactly.
#include "SimToolTestSupport.h"

#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

namespace {

using KQSim::ShellConfig;

ShellConfig parsed(const std::string& text)
{
    ShellConfig config;
    EXPECT_EQ(config.parse(text), 0) << KQC::getErrorMessage();
    return config;
}

TEST(SimToolShellConfigTest, ReadsTheQuotingFormsAndMultiLineValues)
{
    ShellConfig config = parsed("# comment\n"
                                "\n"
                                "PLAIN=word\n"
                                "DOUBLE=\"a \\\"b\\\" \\$c \\`d\\` \\\\e \\n\"\n"
                                "SINGLE='x \"y\" $z \\w'\n"
                                "  export EXPORTED=\"yes\"   # trailing comment\n"
                                "MIXED=ab\"c d\"'e f'\\ g\n"
                                "EMPTY=\n"
                                "DESCRIPTION=\"first\nsecond\"\n"
                                "JOINED=\"one \\\ntwo\"\n"
                                "HASH=a#b\n"
                                "A=1 B=2; C=3\n"
                                "VE_ROOT=\"/kq/root/$VEID\"\n");
    EXPECT_EQ(config.get("PLAIN"), "word");
    EXPECT_EQ(config.get("DOUBLE"), "a \"b\" $c `d` \\e \\n");
    EXPECT_EQ(config.get("SINGLE"), "x \"y\" $z \\w");
    EXPECT_EQ(config.get("EXPORTED"), "yes");
    EXPECT_EQ(config.get("MIXED"), "abc de f g");
    EXPECT_TRUE(config.has("EMPTY"));
    EXPECT_EQ(config.get("EMPTY", "fallback"), "");
    EXPECT_EQ(config.get("DESCRIPTION"), "first\nsecond");
    EXPECT_EQ(config.get("JOINED"), "one two");
    EXPECT_EQ(config.get("HASH"), "a#b");
    EXPECT_EQ(config.get("A") + config.get("B") + config.get("C"), "123");
    EXPECT_EQ(config.get("VE_ROOT"), "/kq/root/$VEID") << "variables are not expanded";
    EXPECT_FALSE(config.has("MISSING"));
    EXPECT_EQ(config.get("MISSING", "fallback"), "fallback");
}

TEST(SimToolShellConfigTest, LastAssignmentWinsOtherLinesAreIgnoredOpenQuotesAreErrors)
{
    ShellConfig config = parsed("KEY=\"one\"\necho not an assignment\nKEY=two\n");
    EXPECT_EQ(config.get("KEY"), "two");
    auto values = config.values();
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].second, "two");

    // Unterminated quotes are errors naming the line.
    EXPECT_EQ(config.parse("A=1\nB=\"open\n"), -1);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find("line 2"), std::string::npos) << KQC::getErrorMessage();
    EXPECT_EQ(config.parse("C='open\n"), -1);
}

TEST(SimToolShellConfigTest, SetAndUnsetKeepOtherLines)
{
    ShellConfig config = parsed("# header\nA=\"1\"\n\n# about B\nB='2'\nA=\"dup\"\nC=3");
    config.set("A", "new");
    config.set("D", "added");
    config.unset("B");
    EXPECT_EQ(config.text(), "# header\nA=\"new\"\n\n# about B\nC=3\nD=\"added\"\n");
}

TEST(SimToolShellConfigTest, WrittenValuesReadBackExactlyThroughBash)
{
    const std::vector<std::string> values = {
        "plain", "", "with space", "quote\"inside", "dollar $HOME ${X}", "back`tick`", "back\\slash\\",
        "new\nline", "single ' quote", "tab\there", "latin \xc3\xa9 and raw \xff byte", "trailing\\"};
    kqtest::TempDir folder((std::filesystem::temp_directory_path() / "kqsim-shell-").string());
    std::string file = folder.path("values.conf");
    for (const std::string& value : values) {
        ShellConfig config;
        config.set("VALUE", value);
        ASSERT_EQ(config.save(file), 0) << KQC::getErrorMessage();
        EXPECT_EQ(kqtest::bashValue(file, "VALUE"), value);
        ShellConfig reread;
        ASSERT_EQ(reread.load(file), 0) << KQC::getErrorMessage();
        EXPECT_EQ(reread.get("VALUE"), value);
    }
}

} // namespace
