#include "kqnet/kqnet.h"

#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

class LibkqnetTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_host.write("var/lib/kqsim/running", "101\n");
        setKernel(101, "veth.eth0.state", "down");
        setKernel(101, "veth.eth1.state", "up");
        setKernel(101, "veth.eth1.addresses", "10.0.0.5/24 fe80::1/64");
        setKernel(102, "veth.eth0.state", "up");
    }

    void setKernel(int veid, const std::string& key, const std::string& value)
    {
        m_host.write("var/lib/kqsim/kernel/" + std::to_string(veid) + "/" + key, value + "\n");
    }

    // The records for adapter NAME of VEID, as the plug-in asks for them.
    kqnet_info* info(const char* name, int veid, unsigned flags = KQNET_INFO_ADDRESSES | KQNET_INFO_STATE)
    {
        kqnet_filter* filter = kqnet_get_simple_filter(KQNET_FILTER_BY_NAME, 0, 0, name, veid, veid);
        EXPECT_NE(filter, nullptr);
        kqnet_info* records = kqnet_get_info(flags, filter);
        int saved = errno;
        kqnet_release_filter(filter);
        errno = saved;
        return records;
    }

    static std::vector<std::string> addresses(const kqnet_info* record)
    {
        return std::vector<std::string>(record->addresses, record->addresses + record->address_count);
    }

    kqtest::TempHost m_host;
};

TEST_F(LibkqnetTest, OnlyRunningContainersHaveAdaptersWithState)
{
    kqnet_info* down = info("eth0", 101);
    ASSERT_NE(down, nullptr);
    EXPECT_EQ(down->flags, KQNET_FLAG_DOWN);
    EXPECT_EQ(down->address_count, 0);
    EXPECT_EQ(down->next, nullptr);
    kqnet_release_info(down);

    kqnet_info* up = info("eth1", 101);
    ASSERT_NE(up, nullptr);
    EXPECT_EQ(up->flags, KQNET_FLAG_UP);
    EXPECT_EQ(addresses(up), std::vector<std::string>{"10.0.0.5/24"});
    kqnet_release_info(up);
    // IPv6 addresses only when asked for.
    up = info("eth1", 101, KQNET_INFO_ADDRESSES | KQNET_INFO_STATE | KQNET_INFO_IPV6);
    ASSERT_NE(up, nullptr);
    EXPECT_EQ(addresses(up), (std::vector<std::string>{"10.0.0.5/24", "fe80::1/64"}));
    kqnet_release_info(up);

    // A state a broken kernel could report: both flags, for callers to refuse.
    setKernel(101, "veth.eth2.state", "up down");
    kqnet_info* both = info("eth2", 101);
    ASSERT_NE(both, nullptr);
    EXPECT_EQ(both->flags, KQNET_FLAG_UP | KQNET_FLAG_DOWN);
    kqnet_release_info(both);

    // An adapter nothing is known of is up, as a started container's are.
    kqnet_info* unknown = info("eth9", 101);
    ASSERT_NE(unknown, nullptr);
    EXPECT_EQ(unknown->flags, KQNET_FLAG_UP);
    kqnet_release_info(unknown);

    // Containers that do not run have no adapters.
    errno = 0;
    EXPECT_EQ(info("eth0", 102), nullptr);
    EXPECT_EQ(errno, ENOENT);
    m_host.write("var/lib/kqsim/running", "");
    EXPECT_EQ(info("eth0", 101), nullptr);
}

TEST_F(LibkqnetTest, FilterOverAllAdaptersOfARange)
{
    m_host.write("var/lib/kqsim/running", "101\n102\n");
    kqnet_filter* filter = kqnet_get_simple_filter(KQNET_FILTER_ALL, 0, 0, nullptr, 100, 200);
    ASSERT_NE(filter, nullptr);
    kqnet_info* records = kqnet_get_info(KQNET_INFO_STATE, filter);
    kqnet_release_filter(filter);
    std::vector<std::string> seen;
    for (const kqnet_info* record = records; record; record = record->next)
        seen.push_back(std::to_string(record->veid) + ":" + record->name + ":" + std::to_string(record->flags));
    EXPECT_EQ(seen, (std::vector<std::string>{"101:eth0:2", "101:eth1:1", "102:eth0:1"}));
    kqnet_release_info(records);
}

TEST_F(LibkqnetTest, BadFiltersAreRefused)
{
    EXPECT_EQ(kqnet_get_simple_filter(KQNET_FILTER_BY_NAME, 0, 0, nullptr, 101, 101), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(kqnet_get_simple_filter(KQNET_FILTER_BY_NAME, 0, 0, "eth0", 102, 101), nullptr);
    EXPECT_EQ(kqnet_get_simple_filter(7, 0, 0, "eth0", 101, 101), nullptr);
    std::string longName(KQNET_NAME_SIZE, 'x');
    EXPECT_EQ(kqnet_get_simple_filter(KQNET_FILTER_BY_NAME, 0, 0, longName.c_str(), 101, 101), nullptr);
    EXPECT_EQ(kqnet_get_info(KQNET_INFO_STATE, nullptr), nullptr);
    kqnet_release_info(nullptr);
    kqnet_release_filter(nullptr);
}

} // namespace
