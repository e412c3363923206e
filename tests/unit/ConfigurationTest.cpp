#include "KQC/Configuration.h"
#include "KQC/Error.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using KQC::KQCConfiguration;

class ConfigurationTest : public ::testing::Test {
protected:
    void SetUp() override { std::filesystem::create_directories(m_host.path("etc/kqagent")); }

    std::string configPath() const { return m_host.path("etc/kqagent/KQSVpsAgent.conf"); }

    void installShipped()
    {
        std::string source = std::string(KQ_SOURCE_DIR) + "/framework/data/etc/KQSVpsAgent.conf";
        ASSERT_EQ(std::system(("cp '" + source + "' '" + configPath() + "'").c_str()), 0);
    }

    // Writes the configuration with a given modification time.
    void writeBounds(int low, int high, int stamp)
    {
        KQCConfiguration config;
        config.setEID("11111111-2222-4333-8444-555555555555");
        KQC::KQCMessageIterator it = config.getMessage()->getIterator();
        it.enterOrCreate("data");
        it.enterOrCreate("kqsenvm");
        it.enterOrCreate("configuration");
        it.putInt(KQC::TAG_MIN_VEID, low);
        it.putInt(KQC::TAG_MAX_VEID, high);
        ASSERT_EQ(config.save(configPath()), 0);
        kqtest::setModificationTime(configPath(), stamp);
    }

    kqtest::TempHost m_host;
};

TEST_F(ConfigurationTest, BoundsAreReadAndTheFileIsReloadedWhenItChanges)
{
    writeBounds(200, 300, 1000000);
    boost::shared_ptr<KQCConfiguration> first = KQCConfiguration::getLocalConfig();
    ASSERT_TRUE(first);
    KQC::KQCMessageIterator it = first->getMessage()->getIterator();
    ASSERT_EQ(it.moveTo("data/kqsenvm/configuration"), 0);
    int low = 0, high = 0;
    it.getInt(1257, low);
    it.getInt(1258, high);
    EXPECT_EQ(low, 200);
    EXPECT_EQ(high, 300);
    EXPECT_EQ(KQCConfiguration::getLocalConfig(), first) << "unchanged file, same object";

    writeBounds(500, 600, 2000000);
    boost::shared_ptr<KQCConfiguration> second = KQCConfiguration::getLocalConfig();
    ASSERT_TRUE(second);
    EXPECT_NE(second, first);
    KQC::KQCMessageIterator again = second->getMessage()->getIterator();
    ASSERT_EQ(again.moveTo("data/kqsenvm/configuration"), 0);
    again.getInt(KQC::TAG_MIN_VEID, low);
    EXPECT_EQ(low, 500);
    it.getInt(KQC::TAG_MIN_VEID, low);
    EXPECT_EQ(low, 200) << "holders of the old object keep it";
}

TEST_F(ConfigurationTest, AMissingOrCorruptFileGivesNoConfiguration)
{
    EXPECT_FALSE(KQCConfiguration::getLocalConfig());
    std::string eid;
    EXPECT_EQ(KQCConfiguration::getLocalEID(eid), -1);
    std::ofstream(configPath()) << "<message><int key=\"x\">not a number</int></message>";
    EXPECT_FALSE(KQCConfiguration::getLocalConfig());
    EXPECT_NE(std::string(KQC::getErrorMessage()).find(configPath()), std::string::npos);
    boost::shared_ptr<KQCConfiguration> config;
    EXPECT_EQ(KQCConfiguration::readFromFile(configPath(), config), -1);
    EXPECT_FALSE(config);
}

TEST_F(ConfigurationTest, TheShippedConfigurationHasAnEidAndAChildAgentsCopyCarriesMasterAndMappings)
{
    installShipped();
    boost::shared_ptr<KQCConfiguration> config = KQCConfiguration::getLocalConfig();
    ASSERT_TRUE(config) << KQC::getErrorMessage();
    KQC::KQCMessageIterator it = config->getMessage()->getIterator();
    EXPECT_EQ(it.moveTo("data/kqsenvm/configuration"), -1) << "no VEID bounds";
    std::string eid;
    ASSERT_EQ(KQCConfiguration::getLocalEID(eid), 0);
    EXPECT_EQ(eid.size(), 36u);

    config.reset();
    ASSERT_EQ(KQCConfiguration::readFromFile(configPath(), config), 0);
    config->setMaster("aaaaaaaa-0000-4000-8000-000000000001");
    config->setMapping("aaaaaaaa-0000-4000-8000-000000000001", "pipe");
    config->setMapping("aaaaaaaa-0000-4000-8000-000000000001", "local");
    config->setEID("bbbbbbbb-0000-4000-8000-000000000002");
    std::string path = m_host.path("child.conf");
    ASSERT_EQ(config->save(path), 0);
    boost::shared_ptr<KQCConfiguration> child;
    ASSERT_EQ(KQCConfiguration::readFromFile(path, child), 0);
    std::string text;
    ASSERT_EQ(child->getMaster(text), 0);
    EXPECT_EQ(text, "aaaaaaaa-0000-4000-8000-000000000001");
    ASSERT_EQ(child->getMapping("aaaaaaaa-0000-4000-8000-000000000001", text), 0);
    EXPECT_EQ(text, "local");
    EXPECT_EQ(child->getMapping("unknown", text), -1);
    ASSERT_EQ(child->getEID(text), 0);
    EXPECT_EQ(text, "bbbbbbbb-0000-4000-8000-000000000002");
}

} // namespace
