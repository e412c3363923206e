// Picking the parser of a configuration's platform and architecture, the
// conversions between the native and the structured form, and the host
// settings file.
#include "KQSEnvMLocal.h"

#include "PropertyOf.h"
#include "TempHost.h"

#include "KQC/Error.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <sys/utsname.h>

namespace {

KQC::KQCVocabularyPtr vocabulary(const std::string& text)
{
    auto parsed = boost::make_shared<KQC::KQCVocabulary>();
    EXPECT_EQ(0, parsed->parse(text, "test")) << KQC::getErrorMessage();
    return parsed;
}

boost::shared_ptr<KQC::KQCVocMap> mapOf(std::initializer_list<KQC::KQCVocabularyPtr> vocabularies)
{
    auto map = boost::make_shared<KQC::KQCVocMap>();
    for (const auto& each : vocabularies)
        map->push_back(each);
    return map;
}

bool hasQoS(const KQS::KQSEnvConfigBashParser& parser, const std::string& id)
{
    const auto& ids = parser.getQoSIds();
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

std::string machine()
{
    struct utsname names;
    uname(&names);
    return names.machine;
}

class ParsersTest : public ::testing::Test {
protected:
    boost::shared_ptr<KQC::KQCVEnvConfig> virtualOf(const std::string& text, int expected = 0)
    {
        boost::shared_ptr<KQC::KQCVEnvConfig> out;
        EXPECT_EQ(expected, envm.getVirtualConfig(out, boost::make_shared<KQS::KQSNativeConfig>(text)))
            << KQC::getErrorMessage();
        return out;
    }

    kqtest::TempHost host;
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
};

TEST_F(ParsersTest, MatchesPlatformAndArchitectureIgnoringCaseUntilAVocabularyIsSilent)
{
    auto map = mapOf(
        {vocabulary("vocabulary a\nparameter platform value=Linux\nparameter architecture value=x86_64\n")});
    EXPECT_TRUE(KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(map, "X86_64", "LINUX"));
    EXPECT_FALSE(KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(map, "i386", "linux"));
    EXPECT_FALSE(KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(map, "x86_64", "linu"));
    EXPECT_FALSE(KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(
        boost::shared_ptr<KQC::KQCVocMap>(), "x86_64", "linux"));

    // A vocabulary that does not say what it is ends the walk.
    auto other = vocabulary("vocabulary other\nparameter platform value=plan9\nparameter architecture value=mips\n");
    auto silent = vocabulary("vocabulary silent\nparameter diskspace group=qos category=qos\n");
    auto target = vocabulary("vocabulary target\nparameter platform value=linux\nparameter architecture value=arm\n");
    using KQS::KQSEnvMLocal;
    EXPECT_TRUE(KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(mapOf({other, target}), "arm", "linux"));
    EXPECT_FALSE(
        KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(mapOf({other, silent, target}), "arm", "linux"));

    // Once the platform matched, a missing architecture stops the walk too;
    // an architecture without a value merely passes it on.
    auto noArchitecture = vocabulary("vocabulary half\nparameter platform value=linux\n");
    auto noValue = vocabulary("vocabulary novalue\nparameter platform value=linux\nparameter architecture\n");
    EXPECT_FALSE(KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(mapOf({noArchitecture, target}),
                                                                                 "arm", "linux"));
    EXPECT_TRUE(
        KQS::KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(mapOf({noValue, target}), "arm", "linux"));
}

TEST_F(ParsersTest, TheHostsOwnVocabularyComesFirstThenEveryKnownOne)
{
    host.write("etc/kqagent/vocabulary/a-host.voc", "vocabulary host\nparameter platform value=linux\n"
                                                      "parameter architecture value=" +
                                                          machine() + "\nparameter hostlimit group=qos category=qos\n");
    host.write("etc/kqagent/vocabulary/b-other.voc", "vocabulary other\nparameter platform value=plan9\n"
                                                       "parameter architecture value=mips\n"
                                                       "parameter widgets group=qos category=qos\n");
    auto own = KQS::KQSEnvMLocal::lookupFirstMatchedParser(machine(), "Linux");
    ASSERT_TRUE(own);
    EXPECT_TRUE(hasQoS(*own, "hostlimit"));

    auto other = KQS::KQSEnvMLocal::lookupFirstMatchedParser("mips", "PLAN9");
    ASSERT_TRUE(other);
    EXPECT_TRUE(hasQoS(*other, "widgets"));
    EXPECT_FALSE(hasQoS(*other, "hostlimit"));

    EXPECT_FALSE(KQS::KQSEnvMLocal::lookupFirstMatchedParser("sparc", "solaris"));
}

TEST_F(ParsersTest, ReadsNativeTextWithTheParserOfItsArchitecture)
{
    auto config = virtualOf("NAME=\"web\"\nARCH=i386\nDISKSPACE=\"100:200\"\n");
    auto kqs = boost::dynamic_pointer_cast<KQS::KQSEnvConfig>(config);
    ASSERT_TRUE(kqs);
    EXPECT_EQ("web", kqtest::valueOf(*kqs, &KQS::KQSEnvConfig::getName));
    EXPECT_EQ("i386", kqtest::valueOf(*kqs, &KQS::KQSEnvConfig::getArchitecture));
    EXPECT_EQ(KQC::KQCQoSSet{KQC::KQCQoS("diskspace", 100, 200)}, kqtest::valueOf(*kqs, &KQS::KQSEnvConfig::getQoSes));
}

TEST_F(ParsersTest, NativeTextThatCannotBeReadIsRefused)
{
    virtualOf("NAME=\"unterminated\n", -8);
    EXPECT_STREQ("failed to detect architecture or platform from native configuration", KQC::getErrorMessage());

    // The first reading stays in the output when no vocabulary fits.
    auto partial = virtualOf("NAME=\"web\"\nARCH=sparc\n", -7);
    EXPECT_STREQ("failed to find matching vocabulary", KQC::getErrorMessage());
    ASSERT_TRUE(partial);
    EXPECT_EQ("sparc", kqtest::valueOf(*partial, &KQC::KQCVEnvConfig::getArchitecture));
}

TEST_F(ParsersTest, OnlyTheManagementLibrarysRecordsAreAccepted)
{
    struct OtherNative : KQC::KQCNativeConfig {};
    boost::shared_ptr<KQC::KQCVEnvConfig> out;
    EXPECT_EQ(-1, envm.getVirtualConfig(out, boost::make_shared<OtherNative>()));
    EXPECT_STREQ("wrong type provided", KQC::getErrorMessage());
    EXPECT_EQ(-1, envm.getVirtualConfig(out, boost::shared_ptr<KQC::KQCNativeConfig>()));

    boost::shared_ptr<KQC::KQCNativeConfig> native;
    EXPECT_EQ(-1, envm.getNativeConfig(native, boost::make_shared<KQC::KQCVEnvConfig>()));
    EXPECT_STREQ("wrong type provided", KQC::getErrorMessage());
}

TEST_F(ParsersTest, WritesNativeTextThatReadsBack)
{
    auto config = boost::make_shared<KQS::KQSEnvConfig>();
    config->setName("web");
    config->setHostname("web.example");
    config->setArchitecture("x86_64");
    KQC::KQCOS os;
    os.platform.set("Linux");
    config->setOS(os);
    boost::shared_ptr<KQC::KQCNativeConfig> native;
    ASSERT_EQ(0, envm.getNativeConfig(native, config)) << KQC::getErrorMessage();
    auto text = boost::dynamic_pointer_cast<KQS::KQSNativeConfig>(native);
    ASSERT_TRUE(text);
    EXPECT_NE(std::string::npos, text->getText().find("NAME=\"web\""));

    auto back = boost::dynamic_pointer_cast<KQS::KQSEnvConfig>(virtualOf(text->getText()));
    ASSERT_TRUE(back);
    EXPECT_EQ("web.example", kqtest::valueOf(*back, &KQS::KQSEnvConfig::getHostname));
}

TEST_F(ParsersTest, AConfigurationOfAnUnknownPlatformHasNoNativeForm)
{
    auto config = boost::make_shared<KQS::KQSEnvConfig>();
    config->setArchitecture("x86_64");
    boost::shared_ptr<KQC::KQCNativeConfig> native;
    EXPECT_EQ(-4, envm.getNativeConfig(native, config));
    EXPECT_STREQ("failed to find matching vocabulary", KQC::getErrorMessage());
    EXPECT_FALSE(native);
}

TEST_F(ParsersTest, ReadsTheHostSettings)
{
    host.write("etc/sysconfig/kq", "# host\nLOCKDIR=/kq/lock\nVE_PRIVATE=\"/kq/private/$VEID\"\n");
    KQS::KQSVtSettings settings;
    ASSERT_EQ(0, envm.getVtSettings(settings));
    EXPECT_EQ("/kq/lock", kqtest::valueOf(settings, &KQS::KQSVtSettings::getLockDir));
    EXPECT_EQ("/kq/private/$VEID", kqtest::valueOf(settings, &KQS::KQSVtSettings::getVEPrivate));

    ASSERT_EQ(0, kqtest::run("rm '" + host.path("etc/sysconfig/kq") + "'"));
    EXPECT_EQ(-1, envm.getVtSettings(settings));
    EXPECT_EQ("open '" + host.path("etc/sysconfig/kq") + "' : No such file or directory",
              std::string(KQC::getErrorMessage()));
}

} // namespace
