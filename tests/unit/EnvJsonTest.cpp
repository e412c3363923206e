// The environment object is described once and either kept as a JSON value
// (payloads) or written as it is made (listings): both must give the same
// bytes, in the contract's order, for every kind of property.
#include "EnvJson.h"
#include "JsonWriter.h"

#include "KQC/Env.h"
#include "KQS/EnvConfig.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <sstream>

namespace {

KQC::KQCIPAddress address(const std::string& text)
{
    KQC::KQCIPAddress parsed;
    EXPECT_EQ(parsed.fromString(text), 0) << text;
    return parsed;
}

// A configuration with something in every member the object shows,
// including texts that need escapes.
boost::shared_ptr<KQS::KQSEnvConfig> fullConfig()
{
    auto config = boost::make_shared<KQS::KQSEnvConfig>();
    config->setVeid(101);
    config->setName("na\"me\n\xff");
    config->setDescription("d");
    config->setHostname("h.example");
    config->setDomain("example");
    config->setArchitecture("x86_64");
    config->setOriginSample("s");
    KQC::KQCOS os;
    os.platform.set("Linux");
    os.version.set("");
    config->setOS(os);
    config->setOsTemplate(KQS::KQSTemplate("simos", "9"));
    config->setTemplates(KQS::KQSTemplateList{KQS::KQSTemplate("a"), KQS::KQSTemplate("b", "2")});
    config->setAddresses(KQC::KQCIPAddressList{address("10.0.0.1/24"), address("fd00::1/64")});
    config->setNameservers(KQC::KQCStringList{"192.0.2.53"});
    config->setSearchDomains(KQC::KQCStringSet{"b.test", "a.test"});
    KQS::KQSNetVEth veth;
    veth.setName("eth0");
    veth.setMac("00:11:22:33:44:55");
    veth.setAddresses({address("10.0.1.2/16")});
    veth.setDhcp6(true);
    veth.setGateway("10.0.0.254");
    veth.setNameservers({"192.0.2.1", "192.0.2.2"});
    veth.setStatus(KQS::KQSNetVEth::STATUS_UP);
    config->setNetVEths(KQS::KQSNetVEthList{veth, KQS::KQSNetVEth()});
    config->setOnBoot(true);
    config->setDisabled(false);
    config->setOfflineManagement(false);
    config->setVERootVar("/kq/root/$VEID");
    config->setVEPrivateVar("/kq/private/${VEID}");
    config->setQoSes(KQC::KQCQoSSet{KQC::KQCQoS("diskspace", 1048576, 18446744073709551615ULL), KQC::KQCQoS("cpus", 2)});
    return config;
}

std::string streamed(const KQC::KQCEnv& env)
{
    std::ostringstream out;
    {
        kqagent::JsonWriter writer(out);
        kqagent::writeEnvJson(writer, env);
    }
    return out.str();
}

TEST(EnvJsonTest, StreamedObjectIsTheKeptObjectByteForByte)
{
    struct Case {
        const char* what;
        boost::shared_ptr<KQC::KQCEnvConfig> config;
        bool parent;
    };
    auto withoutVeid = fullConfig();
    withoutVeid->unsetVeid();  // the paths stay templates
    auto frameworkOnly = boost::make_shared<KQC::KQCVEnvConfig>();
    frameworkOnly->setName("framework");
    frameworkOnly->setDisabled(true);
    const Case cases[] = {
        {"every property", fullConfig(), true},
        {"no VEID", withoutVeid, false},
        {"empty", boost::make_shared<KQS::KQSEnvConfig>(), false},
        {"a framework configuration", frameworkOnly, false},
        {"no configuration", nullptr, false},
    };
    for (const Case& c : cases) {
        KQC::KQCEID eid;
        eid.generate();
        KQC::KQCEnv env(eid, "corvantis");
        KQC::KQCEnvStatus status;
        status.setState(6);
        status.setTransition(4);
        env.setStatus(status);
        if (c.parent) {
            KQC::KQCEID parent;
            parent.generate();
            env.setParentEID(parent);
        }
        env.setConfig(c.config);
        const std::string kept = kqagent::jsonText(kqagent::envToJson(env));
        EXPECT_EQ(streamed(env), kept) << c.what;
        EXPECT_NO_THROW(boost::json::parse(kept)) << c.what;
    }
}

TEST(EnvJsonTest, MembersComeInTheContractsOrder)
{
    KQC::KQCEID eid;
    eid.generate();
    KQC::KQCEnv env(eid, "corvantis");
    env.setConfig(fullConfig());
    const std::string text = streamed(env);
    const char* order[] = {"\"eid\"", "\"veid\"", "\"name\"", "\"description\"", "\"hostname\"", "\"domain\"",
                           "\"architecture\"", "\"origin_sample\"", "\"os\"", "\"ostemplate\"", "\"templates\"",
                           "\"addresses\"", "\"nameservers\"", "\"searchdomains\"", "\"veths\"", "\"onboot\"",
                           "\"disabled\"", "\"offline_management\"", "\"ve_root\"", "\"ve_private\"", "\"qos\"",
                           "\"state\"", "\"transition\"", "\"type\""};
    size_t at = 0;
    for (const char* key : order) {
        size_t found = text.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << text.substr(0, at);
        at = found;
    }
    EXPECT_NE(text.find("\"barrier\":1048576,\"limit\":18446744073709551615"), std::string::npos) << text;
    EXPECT_NE(text.find("\"ve_root\":\"/kq/root/101\""), std::string::npos) << text;
}

} // namespace
