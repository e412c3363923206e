// Bringing a container's adapters to the wanted set, read from the
// command lines the simulated control tool recorded.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Error.h"
#include "PropertyOf.h"
#include "TempHost.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

// Adapters in the configuration file's form: "name=eth0,ip=...;name=eth1".
KQC::KQCOptionalProperty<KQS::KQSNetVEthList> adapters(const std::string& netif)
{
    KQS::KQSEnvConfig config;
    std::istringstream input("NETIF=\"" + netif + "\"\n");
    EXPECT_EQ(0, KQS::KQSEnvConfigBashParser::getInstance(KQC::KQCVocMap())->getConfig(input, config)) << netif;
    return KQC::KQCOptionalProperty<KQS::KQSNetVEthList>(kqtest::valueOf(config, &KQS::KQSEnvConfig::getNetVEths));
}

struct Case {
    const char* name;
    const char* current;  // kqsim add --netif options
    const char* wanted;
    int rc;
    std::vector<std::string> calls;  // what the tool was asked, in order
    const char* error = nullptr;     // the message of a refusal
};

const Case kCases[] = {
    {"unchanged adapters run nothing", "--netif name=eth0,mac=02:00:00:00:00:01,ip=10.1.0.2/24",
     "name=eth0,mac=02:00:00:00:00:01,ip=10.1.0.2/24", 0, {}},
    {"a removed adapter goes, venet0 stays",
     "--netif name=eth0 --netif name=venet0,host_routed=yes", "",
     0,
     {R"(["kqctl","--quiet","set","101","--netif_del","eth0","--save"])"}},
    {"an added adapter is made, then set in one run", "", "name=eth1,mac=00:11:22:33:44:55,ip=10.2.0.2/24,gw=10.2.0.1", 0,
     {R"(["kqctl","--quiet","set","101","--netif_add","eth1","--save"])",
      R"(["kqctl","--quiet","set","101","--ifname","eth1","--mac","00:11:22:33:44:55","--dhcp","no","--ipdel","all","--ipadd","10.2.0.2/24","--network=","--gw","10.2.0.1","--save"])"}},
    {"reordered addresses are a change", "--netif name=eth0,mac=02:00:00:00:00:01,ip=10.1.0.2/24,ip=10.1.0.3/24",
     "name=eth0,mac=02:00:00:00:00:01,ip=10.1.0.3/24,ip=10.1.0.2/24", 0,
     {R"(["kqctl","--quiet","set","101","--ifname","eth0","--dhcp","no","--ipdel","all","--ipadd","10.1.0.3/24","--ipadd","10.1.0.2/24","--save"])"}},
    {"an emptied MAC is renewed", "--netif name=eth0,mac=00:11:22:33:44:55", "name=eth0", 0,
     {R"(["kqctl","--quiet","set","101","--ifname","eth0","--netif_mac_renew","--save"])"}},
    {"name servers are the container's own run", "--netif name=eth0,mac=02:00:00:00:00:01",
     "name=eth0,mac=02:00:00:00:00:01,ns=192.0.2.1,ns=192.0.2.2", 0,
     {R"(["kqctl","set","101","--save","--nameserver","192.0.2.1","--nameserver","192.0.2.2"])"}},
    {"two host-routed adapters run nothing", "", "name=venet0,host_routed=yes;name=eth0,host_routed=yes", -1, {}},
    {"host routing is fixed per adapter", "--netif name=eth0", "name=eth0,host_routed=yes", -1, {}},
    // The default adapter takes only addresses.
    {"a MAC for the default adapter", "--netif name=venet0,host_routed=yes,ip=10.0.0.2/24",
     "name=venet0,host_routed=yes,ip=10.0.0.2/24,mac=00:11:22:33:44:55", -1, {},
     "can't set MAC address to default host routed network device"},
    {"a network for the default adapter", "--netif name=venet0,host_routed=yes,ip=10.0.0.2/24",
     "name=venet0,host_routed=yes,ip=10.0.0.2/24,network=net1", -1, {},
     "can't connect to \"net1\" default host routed network device"},
};

TEST(VEthDifferenceTest, EachAdapterGetsOnlyTheCommandsOfItsChange)
{
    for (const Case& c : kCases) {
        kqtest::TempHost host;
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim(std::string("add 101 ") + c.current));
        KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
        const std::string before = host.read("var/log/kqsim/calls.log");
        EXPECT_EQ(c.rc, KQS::KQSVEActionSystemLinux::setVEthDeviceConfig(envm, 101, adapters(c.wanted)))
            << c.name << ": " << KQC::getErrorMessage();
        std::string calls = host.read("var/log/kqsim/calls.log").substr(before.size());
        std::string expected;
        for (const std::string& call : c.calls)
            expected += call + "\n";
        EXPECT_EQ(expected, calls) << c.name;
        if (c.error) {
            EXPECT_STREQ(c.error, KQC::getErrorMessage()) << c.name;
        }
    }
}

} // namespace
