// The host's address pool: what its text may say, and which address it
// hands out next.
#include "KQC/IPPool.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

namespace {

using Family = KQC::KQCIPAddress::Family;

TEST(IPPoolTest, MalformedPoolsAreRefusedWithTheirLine)
{
    struct {
        const char* text;
        const char* message;
    } cases[] = {
        {"10.0.0.0", "line 1: '10.0.0.0' needs /PREFIX"},
        {"# ok\n\n10.0.0.0/24\nhost.example/24", "line 4: 'host.example' is not an address or FIRST-LAST range"},
        {"10.0.0.0/33", "line 1: '33' is not a prefix length for this family"},
        {"10.0.0.0/0", "line 1: '0' is not a prefix length for this family"},
        {"10.0.0.0/2x", "line 1: '2x' is not a prefix length for this family"},
        {"10.0.0.5/24", "line 1: '10.0.0.5/24' has host bits set: give the network, or a FIRST-LAST range"},
        {"10.0.0.9-10.0.0.2/24", "line 1: '10.0.0.9-10.0.0.2' ends before it starts"},
        {"10.0.0.1-10.0.1.1/24", "line 1: '10.0.0.1-10.0.1.1' does not lie in one /24 network"},
        {"10.0.0.1-fd00::1/24", "line 1: '10.0.0.1-fd00::1' mixes IPv4 and IPv6"},
        {"10.0.0.1-/24", "line 1: '10.0.0.1-' is not an address or FIRST-LAST range"},
        {"fd00::/129", "line 1: '129' is not a prefix length for this family"},
    };
    for (const auto& c : cases) {
        KQC::KQCIPPool pool;
        ASSERT_EQ(0, pool.parse("10.9.0.0/24"));
        EXPECT_EQ(KQC::KQC_ERR_IP_POOL_MALFORMED, pool.parse(c.text)) << c.text;
        EXPECT_EQ(std::string(c.message), KQC::getErrorMessage()) << c.text;
        EXPECT_TRUE(pool.empty()) << c.text;
    }
}

TEST(IPPoolTest, HandsOutTheFirstFreeAddressOfTheFamily)
{
    struct {
        const char* pool;
        Family family;
        std::set<std::string> used;
        const char* chosen;  // nullptr: exhausted
    } cases[] = {
        // A network leaves out its own address and, for IPv4, its broadcast.
        {"10.1.0.0/24", Family::IPV4, {}, "10.1.0.1/24"},
        {"10.1.0.0/30", Family::IPV4, {"10.1.0.1"}, "10.1.0.2/30"},
        {"10.1.0.0/30", Family::IPV4, {"10.1.0.1", "10.1.0.2"}, nullptr},
        {"10.1.0.0/31", Family::IPV4, {"10.1.0.0"}, "10.1.0.1/31"},
        {"10.1.0.7/32", Family::IPV4, {}, "10.1.0.7/32"},
        {"10.1.0.7/32", Family::IPV4, {"10.1.0.7"}, nullptr},
        // Ranges include both ends and carry the line's prefix.
        {"10.2.0.254-10.2.1.0/16", Family::IPV4, {"10.2.0.254", "10.2.0.255"}, "10.2.1.0/16"},
        {"10.2.0.5-10.2.0.6/24", Family::IPV4, {"10.2.0.5", "10.2.0.6"}, nullptr},
        // The next range is tried when one is full; other families are not.
        {"10.3.0.1-10.3.0.1/24\nfd00::/64\n10.4.0.0/24", Family::IPV4, {"10.3.0.1"}, "10.4.0.1/24"},
        {"10.3.0.0/24\nfd00::/64", Family::IPV6, {}, "fd00::1/64"},
        {"fd00::/127", Family::IPV6, {"fd00::"}, "fd00::1/127"},
        {"fd00::ffff-fd00::1:1/64", Family::IPV6, {"fd00::ffff"}, "fd00::1:0/64"},
        {"10.3.0.0/24", Family::IPV6, {}, nullptr},
        // Carry across every byte of a wide IPv6 range.
        {"fd00::ffff:ffff:ffff:ffff-fd00:0:0:1::1/48", Family::IPV6, {"fd00::ffff:ffff:ffff:ffff"}, "fd00:0:0:1::/48"},
    };
    for (const auto& c : cases) {
        KQC::KQCIPPool pool;
        ASSERT_EQ(0, pool.parse(c.pool)) << c.pool << ": " << KQC::getErrorMessage();
        KQC::KQCIPAddress chosen;
        const int rc = pool.pick(c.family, c.used, chosen);
        if (c.chosen) {
            EXPECT_EQ(0, rc) << c.pool << ": " << KQC::getErrorMessage();
            EXPECT_EQ(c.chosen, chosen.toStringWithNetwork()) << c.pool;
        } else {
            EXPECT_EQ(KQC::KQC_ERR_IP_POOL_EXHAUSTED, rc) << c.pool;
        }
    }
}

// A /8 of which the first thousand addresses are taken: the choice looks at
// the taken ones and the next, not at sixteen million.
TEST(IPPoolTest, AWideRangeIsWalkedOnlyPastTheTakenAddresses)
{
    KQC::KQCIPPool pool;
    ASSERT_EQ(0, pool.parse("10.0.0.0/8\n"));
    std::set<std::string> used;
    for (int i = 1; i <= 1000; ++i)
        used.insert("10.0." + std::to_string(i / 256) + "." + std::to_string(i % 256));
    KQC::KQCIPAddress chosen;
    ASSERT_EQ(0, pool.pick(Family::IPV4, used, chosen));
    EXPECT_EQ("10.0.3.233/8", chosen.toStringWithNetwork());
    EXPECT_EQ(KQC::KQC_ERR_IP_POOL_EXHAUSTED, pool.pick(Family::IPV6, used, chosen));
    EXPECT_STREQ("the address pool has no IPv6 range", KQC::getErrorMessage());
}

TEST(IPPoolTest, CommentsAndBlankLinesAreNoRanges)
{
    KQC::KQCIPPool pool;
    ASSERT_EQ(0, pool.parse("# nothing yet\n\n   \t\n"));
    EXPECT_TRUE(pool.empty());
    ASSERT_EQ(0, pool.parse("  10.0.0.0/24   # office\r\nfd00::/64\n"));
    EXPECT_EQ(2u, pool.size());
    EXPECT_TRUE(pool.offers(Family::IPV4));
    EXPECT_TRUE(pool.offers(Family::IPV6));
}

} // namespace
