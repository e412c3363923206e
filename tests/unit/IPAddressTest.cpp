#include "KQC/Error.h"
#include "KQC/IPAddress.h"

#include <gtest/gtest.h>

namespace {

using KQC::KQCIPAddress;

TEST(IPAddressTest, ParsesBothFamiliesWithAndWithoutPrefix)
{
    KQCIPAddress v4;
    ASSERT_EQ(v4.fromString("10.0.0.2/24"), 0);
    EXPECT_TRUE(v4.isV4());
    EXPECT_EQ(v4.prefixLength(), 24);
    EXPECT_EQ(v4.toString(), "10.0.0.2/24");
    EXPECT_EQ(v4.network().toStringWithNetwork(), "10.0.0.0/24");

    KQCIPAddress bare;
    ASSERT_EQ(bare.fromString("192.168.1.1"), 0);
    EXPECT_EQ(bare.toString(), "192.168.1.1") << "written back as given";
    for (const char* text : {"0.9.10.99", "100.199.200.255", "1.20.101.0"}) {
        KQCIPAddress widths;
        ASSERT_EQ(widths.fromString(text), 0);
        EXPECT_EQ(widths.address(), text) << "every width of every byte";
    }
    EXPECT_EQ(bare.toStringWithNetwork(), "192.168.1.1/32");

    KQCIPAddress v6;
    ASSERT_EQ(v6.fromString("FE80:0:0::1/64"), 0);
    EXPECT_TRUE(v6.isV6());
    EXPECT_TRUE(KQC::KQCIPv6::isResembling(v6));
    EXPECT_FALSE(KQC::KQCIPv6::isResembling(v4));
    EXPECT_EQ(v6.toString(), "fe80::1/64");
    EXPECT_EQ(v6.network().address(), "fe80::");

    KQCIPAddress odd;
    ASSERT_EQ(odd.fromString("10.1.2.3/20"), 0);
    EXPECT_EQ(odd.network().address(), "10.1.0.0");
    KQCIPAddress zero;
    ASSERT_EQ(zero.fromString("10.1.2.3/0"), 0);
    EXPECT_EQ(zero.network().address(), "0.0.0.0");
}

TEST(IPAddressTest, BadTextIsRefusedAndLeavesTheAddressAlone)
{
    KQCIPAddress address;
    ASSERT_EQ(address.fromString("10.0.0.1/8"), 0);
    for (const char* text : {"", "10.0.0", "10.0.0.256", "10.0.0.1/33", "10.0.0.1/", "10.0.0.1/-1",
                             "10.0.0.1/2x", "fe80::1/129", "fe80:::1", "host.example.com", "10.0.0.1 "}) {
        EXPECT_EQ(address.fromString(text), -1) << text;
        EXPECT_EQ(std::string(KQC::getErrorMessage()), std::string("invalid IP address '") + text + "'");
    }
    EXPECT_EQ(address.toString(), "10.0.0.1/8");
}

TEST(IPAddressTest, ComparisonsAndNetworks)
{
    KQCIPAddress a, b, c, v6;
    a.fromString("10.0.0.1/24");
    b.fromString("10.0.0.1/24");
    c.fromString("10.0.0.1/16");
    v6.fromString("::1");
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c) << "the prefix counts";
    EXPECT_TRUE(c < a || a < c);
    EXPECT_TRUE(a < v6) << "IPv4 sorts before IPv6";
    KQCIPAddress inside, outside;
    inside.fromString("10.0.0.200");
    outside.fromString("10.0.1.1");
    EXPECT_TRUE(a.contains(inside));
    EXPECT_FALSE(a.contains(outside));
    EXPECT_FALSE(a.contains(v6));
    KQCIPAddress unset;
    EXPECT_FALSE(unset.isValid());
    EXPECT_EQ(unset.toString(), "");
}

} // namespace
