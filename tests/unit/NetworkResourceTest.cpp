// Names and addresses of network resources. Only numeric texts and the
// loopback host are looked up, so nothing here asks the machine's DNS.
#include "KQC/NetworkResource.h"

#include <gtest/gtest.h>

namespace {

TEST(NetworkResourceTest, TextThatNamesNoHostIsNeverLookedUp)
{
    for (const char* text : {"", " ", "a b", "-lead", "dot..dot", ".", "x;rm", "host\n", "_under"}) {
        KQC::KQCNetworkResource resource(text);
        EXPECT_FALSE(resource.hasName()) << text;
        EXPECT_TRUE(resource.getAddresses().empty()) << text;
    }
    EXPECT_FALSE(KQC::KQCNetworkResource::isHostName(std::string(64, 'a')));
    EXPECT_TRUE(KQC::KQCNetworkResource::isHostName(std::string(63, 'a') + ".b"));
    EXPECT_FALSE(KQC::KQCNetworkResource::isHostName(std::string(254, 'a')));
}

TEST(NetworkResourceTest, NumericTextsAreTheirOwnAddress)
{
    struct {
        const char* text;
        const char* address;
    } cases[] = {{"127.0.0.1", "127.0.0.1"}, {"127.0.0.1/8", "127.0.0.1"}, {"::1", "::1"}, {"::1/128", "::1"}};
    for (const auto& c : cases) {
        KQC::KQCNetworkResource resource(c.text);
        ASSERT_EQ(1u, resource.getAddresses().size()) << c.text;
        EXPECT_EQ(c.address, resource.getAddresses()[0].address()) << c.text;
    }
}

TEST(NetworkResourceTest, TheLoopbackHostResolvesBothWays)
{
    KQC::KQCNetworkResource byName("localhost");
    ASSERT_TRUE(byName.hasName());
    bool loopback = false;
    for (const KQC::KQCIPAddress& address : byName.getAddresses())
        loopback = loopback || address.address() == "127.0.0.1" || address.address() == "::1";
    EXPECT_TRUE(loopback);

    KQC::KQCNetworkResource byAddress("127.0.0.1");
    EXPECT_TRUE(byAddress.hasName());
    EXPECT_NE("127.0.0.1", byAddress.getName());
}

} // namespace
