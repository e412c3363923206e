// The address options of the tool's create and set runs.
#include "KQSVEActionSystemLinux.h"

#include "TempHost.h"

#include <gtest/gtest.h>

namespace {

std::vector<KQC::KQCIPAddress> addresses(std::initializer_list<const char*> texts)
{
    std::vector<KQC::KQCIPAddress> out;
    for (const char* text : texts) {
        KQC::KQCIPAddress address;
        EXPECT_EQ(0, address.fromString(text)) << text;
        out.push_back(address);
    }
    return out;
}

std::string optionsFor(const std::vector<KQC::KQCIPAddress>& list, bool dhcp4, bool dhcp6, bool withDhcp)
{
    KQC::ExecutionArgs args;
    EXPECT_EQ(0, KQS::setIPAddressCreateParameters(&args, list, dhcp4, dhcp6, withDhcp));
    return args.toString();
}

struct Case {
    bool ipv6Host;
    bool dhcp4, dhcp6, withDhcp;
    const char* expected;
    bool noAddresses = false;
};

// An empty list still removes the old addresses.
TEST(SetIPAddressCreateParametersTest, TheDhcpFilterKeepsOnlyStaticAddressesTheHostCanCarry)
{
    const Case cases[] = {
        {false, false, false, false, "--ipdel all", true},
        {true, false, false, false, "--ipdel all --ipadd 10.0.0.5/24 --ipadd fd00::5/64"},
        {false, false, false, false, "--ipdel all --ipadd 10.0.0.5/24"},
        {true, true, false, true, "--dhcp yes --dhcp6 no --ipdel all --ipadd fd00::5/64"},
        {true, false, true, true, "--dhcp no --dhcp6 yes --ipdel all --ipadd 10.0.0.5/24"},
        {false, false, true, true, "--dhcp no --ipdel all --ipadd 10.0.0.5/24"},
        {false, true, false, true, "--dhcp yes --ipdel all"},
    };
    for (const Case& c : cases) {
        kqtest::TempHost host;
        ASSERT_EQ(0, host.simulated(c.ipv6Host ? "--ipv6" : ""));
        const auto list = c.noAddresses ? addresses({}) : addresses({"10.0.0.5/24", "fd00::5/64"});
        EXPECT_EQ(c.expected, optionsFor(list, c.dhcp4, c.dhcp6, c.withDhcp))
            << "ipv6 host " << c.ipv6Host << ", dhcp " << c.dhcp4 << c.dhcp6 << c.withDhcp;
    }
}

} // namespace
