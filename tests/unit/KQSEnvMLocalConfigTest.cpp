// Merging configurations and completing them with the host's system.
#include "KQSEnvMLocal.h"

#include "PropertyOf.h"
#include "TempHost.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

namespace {

using KQS::KQSEnvConfig;
using KQS::KQSEnvMLocal;

KQC::KQCOS osOf(const KQSEnvConfig& config)
{
    return kqtest::valueOf(config, &KQSEnvConfig::getOS);
}

KQC::KQCIPAddress address(const char* text)
{
    KQC::KQCIPAddress value;
    value.fromString(text);
    return value;
}

// What the target has stays; what it lacks comes from the source. Lists are
// kept or taken whole, never joined; an empty hostname neither fills nor
// clears; the VEID is kept, and so is a false "disabled".
TEST(MergeConfigsTest, TheTargetKeepsWhatItHasAndTakesWhatItLacks)
{
    KQSEnvConfig source, target;
    source.setName("b");
    source.setDescription("from the source");
    source.setHostname("");
    source.setAddresses(KQC::KQCIPAddressList{address("10.0.0.2"), address("10.0.0.3")});
    source.setNameservers(KQC::KQCStringList{"1.1.1.1", "8.8.8.8"});
    source.setVeid(101);
    source.setType(KQC::KQCEnvType("corvantis"));
    source.setDisabled(true);
    target.setName("a");
    target.setAddresses(KQC::KQCIPAddressList{address("10.0.0.1")});
    target.setVeid(202);
    target.setDisabled(false);
    KQSEnvConfig expected = target;
    expected.setDescription("from the source");
    expected.setNameservers(KQC::KQCStringList{"1.1.1.1", "8.8.8.8"});
    expected.setType(KQC::KQCEnvType("corvantis"));
    KQSEnvMLocal::mergeConfigs(source, target);
    EXPECT_EQ(expected, target);

    source.setHostname("web.example");
    KQSEnvConfig withoutVeid;
    KQSEnvMLocal::mergeConfigs(source, target);
    KQSEnvMLocal::mergeConfigs(source, withoutVeid);
    EXPECT_EQ("web.example", kqtest::valueOf(target, &KQSEnvConfig::getHostname));
    EXPECT_EQ(101, kqtest::valueOf(withoutVeid, &KQSEnvConfig::getVeid));
    EXPECT_TRUE(kqtest::valueOf(withoutVeid, &KQSEnvConfig::getDisabled));
}

TEST(MergeConfigsTest, TheOsIsCompletedFieldByField)
{
    KQSEnvConfig source, target;
    KQC::KQCOS own;
    own.platform.set("mine");
    target.setOS(own);
    KQC::KQCOS offered;
    offered.platform.set("linux");
    offered.distribution.set("debian");
    offered.version.set("12");
    offered.kernel.set("");
    source.setOS(offered);
    KQSEnvMLocal::mergeConfigs(source, target);

    KQC::KQCOS merged = osOf(target);
    EXPECT_EQ("mine", merged.platform.get());
    EXPECT_EQ("debian", merged.distribution.get());
    EXPECT_EQ("12", merged.version.get());
    // An empty source field is not copied.
    EXPECT_FALSE(merged.kernel.isSpecified());

    // Nothing to copy: the target's OS is left alone entirely.
    KQSEnvConfig bare;
    KQSEnvMLocal::mergeConfigs(KQSEnvConfig(), bare);
    EXPECT_FALSE(kqtest::propertyOf(bare, &KQSEnvConfig::getOS).isSpecified());
}

TEST(MergeConfigsTest, PropertiesOutsideTheListAreNeverMerged)
{
    KQSEnvConfig source, target;
    source.setOriginSample("basic");
    source.setUUID("1234");
    KQS::KQSNetVEth veth;
    veth.setName("eth0");
    source.setNetVEths(KQS::KQSNetVEthList{veth});
    KQSEnvMLocal::mergeConfigs(source, target);
    EXPECT_EQ(KQSEnvConfig(), target);
}

TEST(MergeConfigsTest, EveryListedPropertyIsTaken)
{
    KQSEnvConfig source;
    source.setName("n");
    source.setDescription("d");
    source.setDomain("example");
    source.setHostname("h");
    source.setArchitecture("x86_64");
    source.setAddresses(KQC::KQCIPAddressList{address("10.0.0.2/24")});
    source.setNameservers(KQC::KQCStringList{"ns"});
    source.setSearchDomains(KQC::KQCStringSet{"example"});
    source.setQoSes(KQC::KQCQoSSet{KQC::KQCQoS("diskspace", 1, 2)});
    source.setType(KQC::KQCEnvType("corvantis"));
    KQC::KQCOS os;
    os.platform.set("linux");
    source.setOS(os);
    source.setVeid(101);
    source.setOsTemplate(KQS::KQSTemplate("debian", "12"));
    source.setTemplates(KQS::KQSTemplateList{KQS::KQSTemplate("php")});
    source.setDisabled(false);
    source.setOfflineManagement(true);
    source.setOnBoot(true);
    source.setVERootVar("/kq/root/$VEID");
    source.setVEPrivateVar("/kq/private/$VEID");
    source.setDistribution(KQS::KQSDistribution{"debian", "12"});
    source.setOfflineServices(KQC::KQCStringSet{"ssh"});
    source.setServerRoles(KQC::KQCStringSet{"web"});
    source.setCapabilities(KQS::KQSEnvCapabilitySet{KQS::KQSEnvCapability("net_admin", false)});
    source.setSLMMode("all");
    source.setIPTables(KQC::KQCStringSet{"ip_tables"});
    source.setWinsServers(KQC::KQCIPAddressList{address("10.0.0.9")});
    source.setTSLicenseServers(KQC::KQCStringSet{"ts"});
    source.setTSMode(2);
    KQC::KQCInterfaceRate rate;
    rate.interfaceName = "eth0";
    rate.rate = 100;
    source.setRatesList(KQC::KQCInterfaceRateList{rate});
    source.setRateBound(true);
    source.setAllowReboot(false);

    KQSEnvConfig target;
    KQSEnvMLocal::mergeConfigs(source, target);
    EXPECT_EQ(source, target);
}

TEST(MergeDefaultsTest, OnlyTheHostDefaultsReachTheContainer)
{
    KQSEnvConfig defaults;
    defaults.setName("not a default");
    defaults.setHostname("not a default");
    defaults.setArchitecture("not a default");
    defaults.setNameservers(KQC::KQCStringList{"10.0.0.53"});
    defaults.setOnBoot(true);
    defaults.setDisabled(true);
    defaults.setVEPrivateVar("/kq/private/$VEID");
    defaults.setSLMMode("all");

    KQSEnvConfig container;
    container.setOnBoot(false);
    KQSEnvMLocal::mergeConfigsKQDefaultToVE(defaults, container);

    KQSEnvConfig expected;
    expected.setOnBoot(false);
    expected.setNameservers(KQC::KQCStringList{"10.0.0.53"});
    expected.setDisabled(true);
    expected.setVEPrivateVar("/kq/private/$VEID");
    expected.setSLMMode("all");
    EXPECT_EQ(expected, container);
}

TEST(FillSystemInfoTest, TheHostsSystemCompletesTheConfiguration)
{
    kqtest::TempHost host;
    host.write("etc/os-release", "ID=debian\nVERSION_ID=\"12\"\n");
    struct utsname names;
    ASSERT_EQ(0, uname(&names));

    KQSEnvConfig config;
    config.setOsTemplate(KQS::KQSTemplate("centos", "7"));
    KQSEnvMLocal::fillSystemInfo(config);
    KQC::KQCOS os = osOf(config);
    EXPECT_EQ(names.sysname, os.platform.get());
    EXPECT_EQ("centos", os.distribution.get());
    EXPECT_EQ("7", os.version.get());
    EXPECT_EQ(names.release, os.kernel.get());
    EXPECT_EQ(names.machine, kqtest::valueOf(config, &KQSEnvConfig::getArchitecture));

    // A given architecture stays; an OS is replaced whole.
    KQSEnvConfig own;
    own.setArchitecture("i386");
    KQC::KQCOS mine;
    mine.distribution.set("mine");
    own.setOS(mine);
    KQSEnvMLocal::fillSystemInfo(own);
    EXPECT_EQ("i386", kqtest::valueOf(own, &KQSEnvConfig::getArchitecture));
    EXPECT_NE("mine", osOf(own).distribution.get());
}

} // namespace
