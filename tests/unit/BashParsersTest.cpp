#include "KQC/Error.h"
#include "KQS/BashParsers.h"
#include "PropertyOf.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <unistd.h>

namespace {

using KQS::KQSEnvConfig;
using kqtest::propertyOf;
using kqtest::valueOf;

// A vocabulary like the shipped ones, small enough to read in the test.
KQC::KQCVocMap testVocabularies()
{
    KQC::KQCVocabularyPtr vocabulary(new KQC::KQCVocabulary);
    EXPECT_EQ(vocabulary->parse("vocabulary test-x86_64\n"
                                "parameter platform value=linux\n"
                                "parameter architecture value=x86_64\n"
                                "parameter diskspace group=qos category=qos\n"
                                "parameter cpuunits group=qos category=qos\n"
                                "parameter numproc group=qos category=ubc value=5\n",
                                "test"),
              0);
    KQC::KQCVocMap map;
    map.push_back(vocabulary);
    return map;
}

KQC::KQCIPAddress address(const std::string& text)
{
    KQC::KQCIPAddress parsed;
    parsed.fromString(text);
    return parsed;
}

class BashParsersTest : public ::testing::Test {
protected:
    void SetUp() override { m_parser = KQS::KQSEnvConfigBashParser::getInstance(testVocabularies()); }

    std::string put(const KQSEnvConfig& config, const std::string& old = "", bool keepOld = false)
    {
        std::istringstream oldStream(old);
        std::ostringstream out;
        EXPECT_EQ(m_parser->putConfig(config, out, old.empty() ? nullptr : &oldStream, keepOld), 0)
            << KQC::getErrorMessage();
        return out.str();
    }

    int get(const std::string& text, KQSEnvConfig& config)
    {
        std::istringstream in(text);
        return m_parser->getConfig(in, config);
    }

    // What bash makes of KEY in a file holding `text`.
    std::string bashValue(const std::string& text, const std::string& key)
    {
        m_temp.write("conf", text);
        return kqtest::bashValue(m_temp.path("conf"), key);
    }

    boost::shared_ptr<KQS::KQSEnvConfigBashParser> m_parser;
    kqtest::TempDir m_temp;
};

// Every property a container file carries, with awkward text where text goes.
KQSEnvConfig fileConfig()
{
    KQSEnvConfig config;
    config.setOnBoot(true);
    config.setDisabled(false);
    config.setOfflineManagement(true);
    config.setVERootVar("/kq/root/$VEID");
    config.setVEPrivateVar("/kq/private/$VEID");
    config.setOsTemplate(KQS::KQSTemplate("debian-12-x86_64"));
    config.setTemplates({KQS::KQSTemplate("mysql"), KQS::KQSTemplate("php", "8")});
    config.setOriginSample("basic");
    config.setUUID("c3b2a190-1111-4222-8333-444455556666");
    config.setVEType(4);
    config.setArchitecture("x86_64");
    KQS::KQSDistribution distribution;
    distribution.name = "debian";
    distribution.version = "12";
    config.setDistribution(distribution);
    config.setName("it's \"my\" $HOME `ct`\\");
    config.setDescription("two\nlines and a trailing backslash\\");
    config.setHostname("ct.example.com");
    config.setAddresses({address("10.0.0.2/24"), address("10.0.0.3"), address("fe80::2/64")});
    config.setNameservers({"8.8.8.8", "1.1.1.1"});
    config.setSearchDomains({"a.example", "b.example"});
    KQS::KQSNetVEth eth0;
    eth0.setName("eth0");
    eth0.setMac("00:18:51:aa:bb:cc");
    eth0.setAddresses({address("10.1.0.5/24"), address("10.1.0.6/24")});
    eth0.setDhcp6(true);
    eth0.setNetworkId("backnet");
    eth0.setGateway("10.1.0.1");
    eth0.setGateway6("fe80::1");
    eth0.setNameservers({"10.1.0.2", "10.1.0.3"});
    KQS::KQSNetVEth venet;
    venet.setName("venet0");
    venet.setHostRouted(true);
    venet.setAddresses({address("10.0.0.2/24"), address("10.0.0.3"), address("fe80::2/64")});
    config.setNetVEths({eth0, venet});
    config.setCapabilities({KQS::KQSEnvCapability("CHOWN", true), KQS::KQSEnvCapability("NET_ADMIN", false)});
    config.setOfflineServices({"web"});
    config.setIPTables({"filter", "nat"});
    config.setSLMMode("all");
    KQC::KQCInterfaceRate rate;
    rate.interfaceName = "eth0";
    rate.trafficClass = 1;
    rate.rate = 8000;
    config.setRatesList({rate});
    config.setRateBound(true);
    config.setAllowReboot(false);
    config.setQoSes({KQC::KQCQoS("diskspace", 1048576, 1153024), KQC::KQCQoS("numproc", 100)});
    KQC::KQCOS os;
    os.platform.set("linux");
    config.setOS(os);
    return config;
}

TEST_F(BashParsersTest, AContainerConfigurationRoundTripsThroughItsFile)
{
    KQSEnvConfig original = fileConfig();
    std::string text = put(original);
    KQSEnvConfig back;
    ASSERT_EQ(get(text, back), 0) << KQC::getErrorMessage() << "\n" << text;
    EXPECT_TRUE(back == original) << text;
    EXPECT_NE(text.find("DISKSPACE=\"1048576:1153024\"\n"), std::string::npos);
    EXPECT_NE(text.find("NUMPROC=\"100:100\"\n"), std::string::npos);
    EXPECT_NE(text.find("NETIF=\"name=eth0,mac=00:18:51:aa:bb:cc,"
                        "ip=10.1.0.5/24,ip=10.1.0.6/24,dhcp=no,dhcp6=yes,network=backnet,gw=10.1.0.1,"
                        "gw6=fe80::1,ns=10.1.0.2,ns=10.1.0.3,host_routed=no\"\n"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("IP_ADDRESS=\"10.0.0.2/24 10.0.0.3 fe80::2/64\"\n"), std::string::npos) << text;
    EXPECT_EQ(bashValue(text, "NAME"), "it's \"my\" $HOME `ct`\\");
    EXPECT_EQ(bashValue(text, "DESCRIPTION"), "two\nlines and a trailing backslash\\");
    EXPECT_EQ(bashValue(text, "VE_ROOT"), "/kq/root/$VEID");
}

TEST_F(BashParsersTest, ReadingFillsThePlatformFromTheVocabulary)
{
    KQSEnvConfig config;
    ASSERT_EQ(get("# nothing but a comment\n", config), 0);
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getOS).platform.get(), "linux");
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getArchitecture), "x86_64");
    config.setName("replaced");
    ASSERT_EQ(get("ARCH=\"i386\"\n", config), 0);
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getArchitecture), "i386");
    EXPECT_FALSE(propertyOf(config, &KQSEnvConfig::getName).isSpecified()) << "reading replaces the whole record";
}

TEST_F(BashParsersTest, TheSimulatorsAdapterFormatIsRead)
{
    KQSEnvConfig config;
    ASSERT_EQ(get("NETIF=\"name=eth0,ip=10.0.0.5/24,ip=10.0.0.6,dhcp=yes,ns=1.1.1.1,ns=8.8.8.8;"
                  "name=eth1,mac=aa:bb:cc:dd:ee:ff,host_routed=no\"\n",
                  config),
              0)
        << KQC::getErrorMessage();
    KQS::KQSNetVEthList veths = valueOf(config, &KQSEnvConfig::getNetVEths);
    ASSERT_EQ(veths.size(), 3u);
    EXPECT_EQ(veths[0].getAddresses().size(), 2u);
    EXPECT_TRUE(veths[0].isDhcp());
    EXPECT_TRUE(veths[0].isAnyDhcp());
    EXPECT_EQ(veths[0].getNameservers(), (std::vector<std::string>{"1.1.1.1", "8.8.8.8"}));
    EXPECT_EQ(veths[1].getMac(), "aa:bb:cc:dd:ee:ff");
    EXPECT_TRUE(veths[2].isDefaultHostRouted());
}

// The default host-routed adapter exists whatever the file says, carries
// the IP_ADDRESS addresses, and is written back into IP_ADDRESS only.
TEST_F(BashParsersTest, EveryContainerHasTheHostRoutedAdapter)
{
    struct Case {
        const char* file;
        const char* adapters;  // name:addresses of each adapter read
        const char* written;   // IP_ADDRESS and NETIF as written back
    } cases[] = {
        {"", "venet0:", "IP_ADDRESS=\"\"\nNETIF=\"\"\n"},
        {"IP_ADDRESS=\"10.0.0.5/24 10.0.0.6\"\n", "venet0:10.0.0.5/24 10.0.0.6",
         "IP_ADDRESS=\"10.0.0.5/24 10.0.0.6\"\nNETIF=\"\"\n"},
        {"IP_ADDRESS=\"10.0.0.5\"\nNETIF=\"name=eth0,ip=10.1.0.2/24\"\n", "eth0:10.1.0.2/24 venet0:10.0.0.5",
         "IP_ADDRESS=\"10.0.0.5\"\nNETIF=\"name=eth0,ip=10.1.0.2/24,dhcp=no,dhcp6=no,host_routed=no\"\n"},
        {"IP_ADDRESS=\"10.0.0.5 10.0.0.6\"\nNETIF=\"name=venet0,host_routed=yes,ip=10.0.0.6,ip=10.0.0.7;name=eth0\"\n",
         "venet0:10.0.0.5 10.0.0.6 10.0.0.7 eth0:",
         "IP_ADDRESS=\"10.0.0.5 10.0.0.6 10.0.0.7\"\nNETIF=\"name=eth0,dhcp=no,dhcp6=no,host_routed=no\"\n"},
        {"NETIF=\"name=venet0,host_routed=no\"\n", "venet0:", "IP_ADDRESS=\"\"\nNETIF=\"\"\n"},
    };
    for (const Case& c : cases) {
        KQSEnvConfig config;
        ASSERT_EQ(get(c.file, config), 0) << c.file << KQC::getErrorMessage();
        std::string adapters;
        for (const KQS::KQSNetVEth& veth : valueOf(config, &KQSEnvConfig::getNetVEths)) {
            adapters += (adapters.empty() ? "" : " ") + veth.getName() + ":";
            for (size_t i = 0; i < veth.getAddresses().size(); ++i)
                adapters += (i ? " " : "") + veth.getAddresses()[i].toString();
            EXPECT_EQ(veth.isHostRouted(), veth.getName() == "venet0") << c.file;
        }
        EXPECT_EQ(adapters, c.adapters) << c.file;

        std::string text = put(config);
        std::istringstream lines(text);
        std::string line, written;
        while (std::getline(lines, line))
            if (line.rfind("IP_ADDRESS=", 0) == 0 || line.rfind("NETIF=", 0) == 0)
                written += line + "\n";
        EXPECT_EQ(written, c.written) << c.file;
        KQSEnvConfig again;
        ASSERT_EQ(get(text, again), 0);
        EXPECT_EQ(put(again), text) << "a second round changes nothing";
    }
}

// Templates read from a file are written back in a form that reads the same.
TEST_F(BashParsersTest, TemplateWordsSettleAtTheFirstReading)
{
    const struct {
        const char* file;
        const char* written;
    } cases[] = {
        {"TEMPLATES=\"a / b/ c// /v d/1\"\n", "TEMPLATES=\"a b c /v d/1\"\n"},
        {"OSTEMPLATE=\"debian//\"\n", "OSTEMPLATE=\"debian\"\n"},
        {"OSTEMPLATE=\"/\"\n", ""},
        {"DISTRIBUTION=\"x//\"\n", "DISTRIBUTION=\"x\"\n"},
    };
    for (const auto& c : cases) {
        KQSEnvConfig config;
        ASSERT_EQ(get(c.file, config), 0) << c.file;
        std::string text = put(config);
        std::istringstream lines(text);
        std::string line, written;
        while (std::getline(lines, line))
            if (line.find("TEMPLATE") != std::string::npos || line.rfind("DISTRIBUTION=", 0) == 0)
                written += line + "\n";
        EXPECT_EQ(written, c.written) << c.file;
    }
}

TEST_F(BashParsersTest, BadValuesAreErrorsNamingTheKey)
{
    struct Case {
        const char* text;
        const char* message;
    } cases[] = {
        {"ONBOOT=\"maybe\"\n", "invalid value 'maybe' of ONBOOT"},
        {"IP_ADDRESS=\"10.0.0.1 10.0.0\"\n", "invalid value '10.0.0' of IP_ADDRESS"},
        {"VE_TYPE=\"four\"\n", "invalid value 'four' of VE_TYPE"},
        {"DISKSPACE=\"10:x\"\n", "invalid value '10:x' of diskspace"},
        {"NETIF=\"ip=10.0.0.1\"\n", "invalid value 'ip=10.0.0.1' of NETIF"},
        {"NETIF=\"name=eth0,speed=fast\"\n", "invalid value 'speed=fast' of NETIF"},
        {"CAPABILITY=\"CHOWN:maybe\"\n", "invalid value 'CHOWN:maybe' of CAPABILITY"},
        {"NAME=\"open\n", "malformed configuration: line 1: unterminated double-quoted value of NAME"},
    };
    for (const Case& c : cases) {
        KQSEnvConfig config = fileConfig();
        EXPECT_EQ(get(c.text, config), -1) << c.text;
        EXPECT_EQ(std::string(KQC::getErrorMessage()), c.message);
        EXPECT_TRUE(config == fileConfig()) << "a failed read changes nothing";
    }
}

TEST_F(BashParsersTest, KeepOldKeepsCommentsOrderAndUnknownKeys)
{
    const std::string old = "# Container configuration\n"
                            "ONBOOT=\"no\"\n"
                            "\n"
                            "# made by hand\n"
                            "CUSTOM_THING='whatever'\n"
                            "HOSTNAME=\"old.example.com\"\n"
                            "DISKSPACE=\"1:2\"\n";
    KQSEnvConfig config;
    config.setHostname("new.example.com");
    config.setNameservers({"9.9.9.9"});
    EXPECT_EQ(put(config, old, true), "# Container configuration\n"
                                      "ONBOOT=\"no\"\n"
                                      "\n"
                                      "# made by hand\n"
                                      "CUSTOM_THING='whatever'\n"
                                      "HOSTNAME=\"new.example.com\"\n"
                                      "DISKSPACE=\"1:2\"\n"
                                      "NAMESERVER=\"9.9.9.9\"\n");
    EXPECT_EQ(put(config, old, false), "HOSTNAME=\"new.example.com\"\nNAMESERVER=\"9.9.9.9\"\n");

    std::istringstream broken("ONBOOT=\"no\n");
    std::ostringstream out;
    EXPECT_EQ(m_parser->putConfig(config, out, &broken, true), -1);
}

TEST_F(BashParsersTest, DiffListsChangedKeysInWritingOrder)
{
    KQSEnvConfig old;
    old.setHostname("a");
    old.setName("same");
    old.setQoSes({KQC::KQCQoS("diskspace", 1, 2)});
    KQSEnvConfig now = old;
    now.setHostname("b");
    now.setOnBoot(true);
    now.setQoSes({KQC::KQCQoS("diskspace", 1, 3)});
    KQS::KQSConfigDiff changes;
    ASSERT_EQ(m_parser->diffConfig(old, now, changes), 0);
    KQS::KQSConfigDiff expected = {{"ONBOOT", "yes"}, {"HOSTNAME", "b"}, {"DISKSPACE", "1:3"}};
    EXPECT_EQ(changes, expected);
    changes.clear();
    m_parser->diffConfig(now, now, changes);
    EXPECT_TRUE(changes.empty());
}

TEST_F(BashParsersTest, QoSIdsComeFromTheVocabularyCategories)
{
    EXPECT_EQ(m_parser->getQoSIds(), (std::vector<std::string>{"diskspace", "cpuunits", "numproc"}));
    KQSEnvConfig config;
    ASSERT_EQ(get("CPUUNITS=\"1000\"\nOTHERLIMIT=\"5:6\"\n", config), 0);
    KQC::KQCQoSSet qoses = valueOf(config, &KQSEnvConfig::getQoSes);
    ASSERT_EQ(qoses.size(), 1u);
    EXPECT_EQ(qoses.begin()->barrier, 1000u);
    EXPECT_EQ(qoses.begin()->limit, 1000u);

    // As bash leaves them: the last assignment of a key counts, whatever
    // keys come between, and a key in lower case is another variable.
    ASSERT_EQ(get("HOSTNAME=\"a\"\nCPUUNITS=\"1\"\nexport HOSTNAME=\"b\"\ncpuunits=\"9\"\nCPUUNITS=\"2:3\"\n", config), 0);
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getHostname), "b");
    qoses = valueOf(config, &KQSEnvConfig::getQoSes);
    ASSERT_EQ(qoses.size(), 1u);
    EXPECT_EQ(qoses.begin()->barrier, 2u);
    EXPECT_EQ(qoses.begin()->limit, 3u);
}

TEST_F(BashParsersTest, HostSettingsAreReadByLowerCaseName)
{
    const std::string text = "# host settings\n"
                             "VE_ROOT=\"/sim/kq/root/$VEID\"\n"
                             "VE_PRIVATE=\"/sim/kq/private/$VEID\"\n"
                             "LOCKDIR=\"/sim/kq/lock\"\n"
                             "DUMPDIR=\"/sim/kq/dump\"\n"
                             "TEMPLATE=\"/sim/kq/template\"\n"
                             "ONBOOT=\"yes\"\n";
    boost::shared_ptr<KQS::KQSKQConfigBashParser> parser = KQS::KQSKQConfigBashParser::getInstance();
    std::istringstream in(text);
    KQS::KQSVtSettings settings;
    ASSERT_EQ(parser->getConfig(in, settings), 0);
    std::string value;
    ASSERT_EQ(settings.getParam("ve_root", value), 0);
    EXPECT_EQ(value, "/sim/kq/root/$VEID");
    EXPECT_EQ(settings.getParam("VE_PRIVATE", value), 0);
    EXPECT_EQ(settings.getParam("nothing", value), -1);
    EXPECT_EQ(valueOf(settings, &KQS::KQSVtSettings::getLockDir), "/sim/kq/lock");
    EXPECT_EQ(valueOf(settings, &KQS::KQSVtSettings::getDumpDir), "/sim/kq/dump");
    EXPECT_EQ(valueOf(settings, &KQS::KQSVtSettings::getTemplatesDir), "/sim/kq/template");

    settings.setLockDir("/elsewhere");
    std::istringstream old(text);
    std::ostringstream out;
    ASSERT_EQ(parser->putConfig(settings, out, &old, true), 0);
    EXPECT_NE(out.str().find("# host settings\n"), std::string::npos);
    EXPECT_NE(out.str().find("LOCKDIR=\"/elsewhere\"\n"), std::string::npos);

    // The container defaults in the same file read with the container parser.
    KQSEnvConfig defaults;
    ASSERT_EQ(get(text, defaults), 0);
    EXPECT_TRUE(valueOf(defaults, &KQSEnvConfig::getOnBoot));
}

TEST_F(BashParsersTest, EveryWriterWritesWhatBashReadsBack)
{
    const std::string values[] = {"blanks and\ttabs", "\"double\" and 'single'", "$VEID ${x} `cmd`",
                                  "back\\slash\\", "new\nline", "caf\xc3\xa9 \xe2\x82\xac", ""};
    for (const std::string& value : values) {
        std::ostringstream raw;
        ASSERT_EQ(KQS::KQSRawConfigBashParser::getInstance()->putConfig({{"VALUE", value}}, raw, nullptr, false), 0);
        EXPECT_EQ(bashValue(raw.str(), "VALUE"), value) << "raw writer";

        KQS::KQSVtSettings settings;
        settings.setParam("value", value);
        std::ostringstream host;
        ASSERT_EQ(KQS::KQSKQConfigBashParser::getInstance()->putConfig(settings, host, nullptr, false), 0);
        EXPECT_EQ(bashValue(host.str(), "VALUE"), value) << "host settings writer";

        KQSEnvConfig config;
        config.setHostname(value);
        config.setSLMMode(value);
        std::string text = put(config);
        EXPECT_EQ(bashValue(text, "HOSTNAME"), value) << "container writer";
        EXPECT_EQ(bashValue(text, "SLMMODE"), value) << "container writer";
    }
}

TEST_F(BashParsersTest, RawFilesRoundTripAsMaps)
{
    boost::shared_ptr<KQS::KQSRawConfigBashParser> parser = KQS::KQSRawConfigBashParser::getInstance();
    std::map<std::string, std::string> values = {{"A", "one"}, {"B", "two \"quoted\" $x"}};
    std::ostringstream out;
    ASSERT_EQ(parser->putConfig(values, out, nullptr, false), 0);
    std::istringstream in(out.str());
    std::map<std::string, std::string> back;
    ASSERT_EQ(parser->getConfig(in, back), 0);
    EXPECT_EQ(back, values);
    std::istringstream binary(std::string("A=1\n\0\0\0", 7));
    EXPECT_EQ(parser->getConfig(binary, back), -1);
}

} // namespace
