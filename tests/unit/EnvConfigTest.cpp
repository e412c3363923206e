#include "KQC/Message.h"
#include "KQS/EnvConfig.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

using KQC::KQCIPAddress;
using KQC::KQCOptionalProperty;
using KQS::KQSEnvConfig;

KQCIPAddress address(const std::string& text)
{
    KQCIPAddress parsed;
    EXPECT_EQ(parsed.fromString(text), 0) << text;
    return parsed;
}

KQS::KQSNetVEth adapter(const std::string& name)
{
    KQS::KQSNetVEth veth;
    veth.setName(name);
    veth.setMac("00:18:51:aa:bb:cc");
    veth.setAddresses({address("10.1.0.5/24"), address("fe80::5/64")});
    veth.setDhcp(true);
    veth.setDhcp6(false);
    veth.setNetworkId("backnet");
    veth.setGateway("10.1.0.1");
    veth.setGateway6("fe80::1");
    veth.setNameservers({"10.1.0.2", "10.1.0.3"});
    veth.setHostRouted(false);
    veth.setStatus(KQS::KQSNetVEth::STATUS_UP);
    return veth;
}

// A configuration with every property specified, each with a distinct value.
KQSEnvConfig everything()
{
    KQSEnvConfig config;
    config.setName("web server");
    config.setHostname("web.example.com");
    config.setDomain("example.com");
    config.setDescription("line one\nline two");
    config.setAddresses({address("10.0.0.2/24"), address("10.0.0.3")});
    config.setNameservers({"8.8.8.8", "1.1.1.1"});
    config.setSearchDomains({"example.com", "corp.example.com"});
    config.setArchitecture("x86_64");
    config.setBaseSampleId("a0b1c2d3-0000-4000-8000-000000000001");
    KQC::KQCOS os;
    os.platform.set("Linux");
    os.distribution.set("debian");
    os.version.set("12");
    config.setOS(os);
    config.setType("corvantis");
    config.setDisabled(true);
    config.setQoSes({KQC::KQCQoS("diskspace", 1048576, 1153024), KQC::KQCQoS("cpuunits", 1000)});
    config.setVeid(101);
    config.setOsTemplate(KQS::KQSTemplate("debian-12-x86_64", "20240101"));
    config.setTemplates({KQS::KQSTemplate("mysql"), KQS::KQSTemplate("php", "8")});
    config.setOfflineManagement(false);
    config.setOnBoot(true);
    config.setVERootVar("/kq/root/$VEID");
    config.setVEPrivateVar("/kq/private/${VEID}");
    KQS::KQSDistribution distribution;
    distribution.name = "debian";
    distribution.version = "12";
    config.setDistribution(distribution);
    config.setOfflineServices({"web", "ssh"});
    config.setServerRoles({"dns"});
    config.setCapabilities({KQS::KQSEnvCapability("CHOWN", true), KQS::KQSEnvCapability("NET_ADMIN", false)});
    config.setSLMMode("all");
    config.setIPTables({"filter", "nat"});
    config.setWinsServers({address("10.0.0.9")});
    config.setTSLicenseServers({"lic1"});
    config.setTSMode(2);
    KQC::KQCInterfaceRate rate;
    rate.interfaceName = "eth0";
    rate.trafficClass = 1;
    rate.rate = 8000;
    config.setRatesList({rate});
    config.setRateBound(true);
    config.setAllowReboot(false);
    config.setNetVEths({adapter("eth0"), adapter("eth1")});
    config.setUUID("c3b2a190-1111-4222-8333-444455556666");
    config.setOriginSample("basic");
    config.setVEType(5);
    return config;
}

KQSEnvConfig throughMessage(const KQSEnvConfig& config)
{
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    EXPECT_EQ(message->getIterator().putObj(KQC::TAG_ENV_CONFIG, config), 0);
    std::string text;
    EXPECT_EQ(message->saveToString(text), 0);
    KQC::KQCMessage loaded;
    EXPECT_EQ(loaded.loadFromString(text), 0);
    KQSEnvConfig back;
    EXPECT_EQ(loaded.getIterator().getObj(KQC::TAG_ENV_CONFIG, back), 0);
    return back;
}

TEST(EnvConfigTest, EveryPropertyRoundTripsThroughAMessageKeepingUnspecifiedAndEmptyApart)
{
    KQSEnvConfig original = everything();
    KQSEnvConfig back = throughMessage(original);
    EXPECT_TRUE(back == original);
    KQCOptionalProperty<KQS::KQSNetVEthList> veths;
    back.getNetVEths(veths);
    ASSERT_EQ(veths.get().size(), 2u);
    EXPECT_EQ(veths.get()[1].getNameservers().size(), 2u);
    KQCOptionalProperty<std::string> description;
    back.getDescription(description);
    EXPECT_EQ(description.get(), "line one\nline two");

    // Unspecified and empty stay apart.
    KQSEnvConfig config;
    config.setNameservers(KQC::KQCStringList());
    config.setName("");
    back = throughMessage(config);
    KQCOptionalProperty<KQC::KQCStringList> nameservers;
    back.getNameservers(nameservers);
    EXPECT_TRUE(nameservers.isSpecified());
    EXPECT_TRUE(nameservers.get().empty());
    KQCOptionalProperty<KQC::KQCStringSet> searchDomains;
    back.getSearchDomains(searchDomains);
    EXPECT_FALSE(searchDomains.isSpecified());
    int veid = 0;
    EXPECT_EQ(back.getVeid(veid), -1);
    KQCOptionalProperty<bool> disabled;
    EXPECT_EQ(back.getDisabled(disabled), -1);
    EXPECT_TRUE(back == config);
}

TEST(EnvConfigTest, AnUnreadableObjectFailsAndLeavesTheRecordAlone)
{
    KQC::KQCMessage message;
    KQC::KQCMessageIterator it = message.getIterator();
    it.createChild("envConfig");
    it.putString(KQC::TAG_NAME, "half");
    it.createChild("addresses");
    it.addString(KQC::TAG_ITEM, "999.1.1.1");
    KQSEnvConfig config = everything();
    EXPECT_EQ(message.getIterator().getObj(KQC::TAG_ENV_CONFIG, config), -1);
    EXPECT_TRUE(config == everything());
}

TEST(EnvConfigTest, VeidIsPutIntoPathTemplates)
{
    std::string path = "/kq/$VEID/private/${VEID}/$VEIDX";
    KQSEnvConfig::veidSubstitute(101, path);
    EXPECT_EQ(path, "/kq/101/private/101/101X");
    std::string plain = "/no/variable";
    KQS::veidSubstitute(7, plain);
    EXPECT_EQ(plain, "/no/variable");

    KQSEnvConfig config;
    std::string root;
    EXPECT_EQ(config.getVERoot(root), -1) << "no template";
    config.setVERootVar("/kq/root/$VEID");
    EXPECT_EQ(config.getVERoot(root), -1) << "a template with the variable needs a VEID";
    config.setVEPrivateVar("/kq/private/fixed");
    std::string privatePath;
    EXPECT_EQ(config.getVEPrivate(privatePath), 0);
    EXPECT_EQ(privatePath, "/kq/private/fixed");
    config.setVeid(-5);
    ASSERT_EQ(config.getVERoot(root), 0);
    EXPECT_EQ(root, "/kq/root/-5");
    KQCOptionalProperty<std::string> var;
    config.getVERootVar(var);
    EXPECT_EQ(var.get(), "/kq/root/$VEID") << "the template itself is unchanged";
}

TEST(EnvConfigTest, BuildingFromAFrameworkConfigurationTakesWhatItHas)
{
    KQSEnvConfig full = everything();
    KQSEnvConfig copy(static_cast<const KQC::KQCEnvConfig&>(full));
    EXPECT_TRUE(copy == full) << "a container configuration is copied whole";

    KQC::KQCVEnvConfig virtualConfig;
    virtualConfig.setName("v");
    virtualConfig.setDisabled(false);
    virtualConfig.setQoSes({KQC::KQCQoS("diskspace", 5)});
    KQSEnvConfig fromVirtual(virtualConfig);
    KQCOptionalProperty<std::string> name;
    fromVirtual.getName(name);
    EXPECT_EQ(name.get(), "v");
    KQCOptionalProperty<KQC::KQCQoSSet> qoses;
    fromVirtual.getQoSes(qoses);
    EXPECT_EQ(qoses.get().size(), 1u);
    int veid;
    EXPECT_EQ(fromVirtual.getVeid(veid), -1);
}

TEST(EnvConfigTest, CopiesAreDeepAndComparisonsSeeEveryProperty)
{
    KQSEnvConfig original = everything();
    boost::shared_ptr<KQC::KQCEnvConfig> cloned = original.clone();
    ASSERT_TRUE(dynamic_cast<KQSEnvConfig*>(cloned.get()));
    EXPECT_TRUE(cloned->equals(original));
    KQSEnvConfig changed = original;
    changed.setNetVEths({adapter("eth0")});
    EXPECT_FALSE(changed == original);
    changed = original;
    changed.setVEType(KQCOptionalProperty<int>());
    EXPECT_FALSE(changed == original);
    changed = original;
    changed.unsetVeid();
    EXPECT_FALSE(changed == original);
    // Properties most records lack are held apart; copies still own theirs.
    changed = original;
    changed.setUUID(KQCOptionalProperty<std::string>());
    EXPECT_FALSE(changed == original);
    changed = original;
    changed.setServerRoles({"dns", "web"});
    KQCOptionalProperty<KQC::KQCStringSet> roles;
    original.getServerRoles(roles);
    EXPECT_EQ(roles.get(), KQC::KQCStringSet{"dns"});
    EXPECT_FALSE(changed == original);
    KQC::KQCEnvConfig base;
    EXPECT_FALSE(base.equals(original)) << "different types are never equal";
}

TEST(EnvConfigTest, TypeIsCutToSixteenCharactersAndQoSEntriesAreOnePerResource)
{
    KQSEnvConfig config;
    config.setType("a-very-long-type-name");
    KQCOptionalProperty<KQC::KQCEnvType> type;
    config.getType(type);
    EXPECT_EQ(type.get().str(), "a-very-long-type");

    KQC::KQCQoSSet set;
    set.insert(KQC::KQCQoS("diskspace", 1, 2));
    set.insert(KQC::KQCQoS("diskspace", 3, 4));
    set.insert(KQC::KQCQoS("cpuunits", 5));
    ASSERT_EQ(set.size(), 2u);
    EXPECT_EQ(set.begin()->id, "cpuunits");
    EXPECT_EQ(set.begin()->limit, 5u);
}

} // namespace
