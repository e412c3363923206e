#include "KQC/GUID.h"

#include <gtest/gtest.h>
#include <set>

using KQC::KQCEID;
using KQC::KQCGUIDBase;

TEST(GUIDTest, TextRoundTripsInBothFormsAndCases)
{
    KQCGUIDBase guid = KQCGUIDBase::generateNew();
    std::string text = guid.toString();
    ASSERT_EQ(38u, text.size());
    EXPECT_EQ('{', text.front());
    EXPECT_EQ('}', text.back());

    KQCGUIDBase braced, bare, upper;
    ASSERT_EQ(0, braced.fromString(text));
    ASSERT_EQ(0, bare.fromString(text.substr(1, 36)));
    std::string shouted = text;
    for (char& c : shouted)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    ASSERT_EQ(0, upper.fromString(shouted));
    EXPECT_EQ(guid, braced);
    EXPECT_EQ(guid, bare);
    EXPECT_EQ(guid, upper);
}

TEST(GUIDTest, RejectsTextThatIsNotAGuidAndKeepsTheOldValue)
{
    KQCGUIDBase guid = KQCGUIDBase::generateNew();
    KQCGUIDBase copy = guid;
    for (const char* bad : {"", ".", "..", "101", "{12345678-1234-1234-1234-12345678901}",
                            "12345678-1234-1234-1234-1234567890123", "1234567801234-1234-1234-123456789012",
                            "{12345678-1234-1234-1234-123456789012", "g2345678-1234-1234-1234-123456789012",
                            "{12345678-1234-1234-1234-123456789012}.lck"}) {
        EXPECT_EQ(-1, guid.fromString(bad)) << bad;
        EXPECT_EQ(copy, guid) << bad;
    }
    EXPECT_EQ(-1, guid.fromString(static_cast<const char*>(nullptr)));
}

TEST(GUIDTest, WellKnownValuesAndValidity)
{
    EXPECT_FALSE(KQCEID::EID_INVALID.isValid());
    EXPECT_TRUE(KQCEID::EID_LOCAL.isValid());
    EXPECT_NE(KQCEID::EID_INVALID, KQCEID::EID_LOCAL);
    EXPECT_EQ(KQCEID(), KQCEID::EID_INVALID);
}

TEST(GUIDTest, GeneratedGuidsAreDistinctVersionFourAndOrdered)
{
    std::set<KQCEID, KQC::KQCEnvIDComparator> seen;
    for (int i = 0; i < 1000; ++i) {
        KQCEID eid = KQCGUIDBase::generateNew();
        EXPECT_TRUE(eid.isValid());
        EXPECT_EQ(0x40, eid.bytes()[6] & 0xf0);
        EXPECT_EQ(0x80, eid.bytes()[8] & 0xc0);
        seen.insert(eid);
    }
    EXPECT_EQ(1000u, seen.size());
    KQC::KQCEnvIDComparator less;
    auto a = seen.begin(), b = std::next(seen.begin());
    EXPECT_TRUE(less(*a, *b));
    EXPECT_FALSE(less(*b, *a));
    EXPECT_FALSE(less(*a, *a));
}
