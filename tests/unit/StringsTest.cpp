// Trimming, word splitting and single shell assignments.
#include "KQC/Strings.h"

#include <gtest/gtest.h>

#include <vector>

TEST(StringsTest, StripSpacesBothForms)
{
    const char* cases[][2] = {
        {"", ""}, {"   ", ""}, {"\t a b \n", "a b"}, {"a", "a"}, {"%version  ", "%version"}, {"\v\fx\r", "x"},
    };
    for (const auto& c : cases) {
        std::string buffer = c[0];
        EXPECT_STREQ(c[1], KQC::strip_spaces(&buffer[0])) << '"' << c[0] << '"';
        EXPECT_EQ(c[1], KQC::strip_spaces(std::string(c[0]))) << '"' << c[0] << '"';
    }
}

TEST(StringsTest, GetTokenHandsOutOnlyNonEmptyWords)
{
    struct Case {
        const char* text;
        std::vector<std::string> words;
    } cases[] = {
        {"", {}},
        {" \t\n", {}},
        {"bash", {"bash"}},
        {"bash 5.2", {"bash", "5.2"}},
        {"  bash\t\t5.2 \n x86_64  ", {"bash", "5.2", "x86_64"}},
        {"a,b", {"a,b"}},
    };
    for (const Case& c : cases) {
        std::string buffer = c.text;
        char* cursor = &buffer[0];
        std::vector<std::string> words;
        while (const char* word = KQC::getToken(&cursor, " \t\n"))
            words.push_back(word);
        EXPECT_EQ(c.words, words) << '"' << c.text << '"';
        EXPECT_EQ(nullptr, KQC::getToken(&cursor, " \t\n")) << "an exhausted cursor stays exhausted";
    }
}

TEST(StringsTest, ParseBashStrReadsOneAssignment)
{
    struct Case {
        const char* text;
        int rc;
        const char* key;
        const char* value;
    } cases[] = {
        {"ARCH=\"x86_64\"", 0, "ARCH", "x86_64"},
        {"ARCH=x86_64", 0, "ARCH", "x86_64"},
        {"A='x y'", 0, "A", "x y"},
        {"A=\"a\\\"b\"", 0, "A", "a\"b"},
        {"A=\"\"  # empty", 0, "A", ""},
        {"A=\"$VEID\"", 0, "A", "$VEID"},
        {"", -1, "", ""},
        {"# A=1", -1, "", ""},
        {"not an assignment", -1, "", ""},
        {"1A=2", -1, "", ""},
        {"A=\"open", -1, "", ""},
        {"A=1\nB=2", -1, "", ""},
    };
    for (const Case& c : cases) {
        std::string key, value;
        EXPECT_EQ(c.rc, KQC::parseBashStr(c.text, key, value)) << c.text;
        EXPECT_EQ(c.key, key) << c.text;
        EXPECT_EQ(c.value, value) << c.text;
    }
}
