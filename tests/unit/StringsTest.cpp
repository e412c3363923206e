// Trimming and word splitting.
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
