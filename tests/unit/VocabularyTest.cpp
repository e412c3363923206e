#include "KQC/Error.h"
#include "KQC/Tags.h"
#include "KQC/Vocabulary.h"
#include "KQC/Message.h"
#include "KQS/EnvConfig.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

using KQC::KQCVocabulary;
using KQC::KQCVocabularyPtr;
using KQC::KQCVocParameter;

// Each test gets a fresh host root; by default it has no vocabulary folder,
// so the framework's own data is used.
class VocabularyTest : public ::testing::Test {
protected:
    std::string ownFolder()
    {
        std::string folder = m_host.path("etc/kqagent/vocabulary");
        std::filesystem::create_directories(folder);
        return folder;
    }

    // Writes a file with a distinct modification time, so that a rewrite is
    // seen even within one clock tick.
    void writeFile(const std::string& path, const std::string& text, int stamp)
    {
        std::ofstream(path) << text;
        kqtest::setModificationTime(path, stamp);
    }

    kqtest::TempHost m_host;
};

std::string machineArchitecture()
{
    struct utsname names;
    uname(&names);
    return names.machine;
}

TEST_F(VocabularyTest, TheShippedVocabulariesAreUsedWithoutAnInstalledFolder)
{
    EXPECT_EQ(KQC::vocabularyFolder(), std::string(KQ_SOURCE_DIR) + "/framework/data/etc/vocabulary");
    boost::shared_ptr<const KQC::KQCVocabularyList> list = KQC::vocCache()->getList();
    ASSERT_GE(list->size(), 2u);
    EXPECT_EQ((*list)[0]->getId(), "linux-i386");
    EXPECT_EQ((*list)[1]->getId(), "linux-x86_64");
    EXPECT_EQ(KQC::vocCache()->find("linux-i386"), (*list)[0]);
    EXPECT_FALSE(KQC::vocCache()->find("nowhere"));

    KQCVocabularyPtr local = KQC::vocCacheLocal()->getVocabulary();
    if (machineArchitecture() != "x86_64")
        GTEST_SKIP() << "the shipped local vocabulary is for x86_64";
    ASSERT_TRUE(local);
    std::string platform, architecture;
    EXPECT_EQ(local->getValue("platform", platform), 0);
    EXPECT_EQ(local->getValue("architecture", architecture), 0);
    EXPECT_EQ(platform, "linux");
    EXPECT_EQ(architecture, "x86_64");
}

TEST_F(VocabularyTest, TheShippedVocabularyKnowsWhatThePluginAsks)
{
    KQCVocabularyPtr vocabulary = KQC::vocCache()->find("linux-x86_64");
    ASSERT_TRUE(vocabulary);
    KQCVocParameter admin;
    ASSERT_EQ(vocabulary->getParameter("morvoadmin", admin), 0);
    EXPECT_TRUE(admin.isInCategory("kqsbasicfunctionality"));
    std::string login, type;
    EXPECT_EQ(admin.getString(KQC::TAG_VOC_VALUE, login), 0);
    EXPECT_EQ(admin.getString(KQC::TAG_ACCOUNT_TYPE, type), 0);
    EXPECT_FALSE(login.empty());

    std::vector<KQCVocParameter> ubc;
    ASSERT_EQ(vocabulary->getCategory("ubc", ubc), 0);
    std::set<int> indexes;
    for (const KQCVocParameter& parameter : ubc) {
        int index = -1;
        EXPECT_EQ(parameter.getInt(KQC::TAG_VOC_VALUE, index), 0) << parameter.getId();
        EXPECT_GE(index, 0);
        EXPECT_LT(index, 32) << "the kernel has at most 32 counters";
        indexes.insert(index);
        EXPECT_EQ(parameter.getGroup(), "qos");
    }
    EXPECT_EQ(indexes.size(), ubc.size()) << "kernel indexes are distinct";

    std::vector<KQCVocParameter> network;
    ASSERT_EQ(vocabulary->getParameters({"applicable_conf", "network"}, network), 0);
    EXPECT_EQ(network.size(), 3u);
    std::vector<KQCVocParameter> none;
    EXPECT_EQ(vocabulary->getParameters({"applicable_conf", "system"}, none), -1);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(vocabulary->getParameter("no-such-parameter", admin), -1);
    std::vector<KQCVocParameter> qos;
    ASSERT_EQ(vocabulary->getCategory("qos", qos), 0);
    EXPECT_TRUE(vocabulary->findParameter("diskspace"));
    EXPECT_TRUE(vocabulary->findParameter("diskinodes"));
}

// Every message path of the vocabulary must name an element of a sample's
// configuration message, or filtering a sample would silently copy nothing.
TEST_F(VocabularyTest, MessagePathsNameElementsOfASampleMessage)
{
    KQS::KQSEnvConfig config;
    config.setHostname("h");
    config.setNameservers({"1.1.1.1"});
    config.setSearchDomains({"example.com"});
    config.setOnBoot(true);
    config.setOfflineManagement(false);
    config.setDescription("d");
    config.setOsTemplate(KQS::KQSTemplate("t"));
    config.setTemplates({KQS::KQSTemplate("a")});
    config.setCapabilities({KQS::KQSEnvCapability("CHOWN", true)});
    config.setIPTables({"filter"});
    config.setSLMMode("all");
    config.setVERootVar("/r/$VEID");
    config.setVEPrivateVar("/p/$VEID");
    KQC::KQCMessage message;
    KQC::KQCMessageIterator it = message.getIterator();
    it.createChild("1624");
    ASSERT_EQ(it.putObj(KQC::TAG_SAMPLE_CONFIG, config), 0);

    for (const KQCVocabularyPtr& vocabulary : *KQC::vocCache()->getList())
        for (const KQCVocParameter& parameter : vocabulary->getParameters()) {
            std::string path;
            if (parameter.getString(KQC::TAG_MESSAGE_PATH, path) != 0)
                continue;
            std::string::size_type slash = path.rfind('/');
            KQC::KQCMessageIterator walker = message.getIterator();
            ASSERT_EQ(walker.moveTo(path.substr(0, slash)), 0) << path;
            EXPECT_TRUE(walker.hasKey(path.substr(slash + 1))) << vocabulary->getId() << ": " << path;
        }
}

TEST_F(VocabularyTest, AnInstalledFolderIsReadAndReReadWhenItChanges)
{
    std::string folder = ownFolder();
    writeFile(folder + "/own.voc",
              "vocabulary own\nparameter platform value=Linux\nparameter architecture value=" +
                  machineArchitecture() + "\n",
              1000000);
    ASSERT_EQ(KQC::vocabularyFolder(), folder);
    ASSERT_EQ(KQC::vocCache()->getList()->size(), 1u);
    KQCVocabularyPtr local = KQC::vocCacheLocal()->getVocabulary();
    ASSERT_TRUE(local) << "platform compared without case";
    EXPECT_EQ(local->getId(), "own");

    writeFile(folder + "/own.voc", "vocabulary renamed\nparameter platform value=solaris\n", 2000000);
    ASSERT_EQ(KQC::vocCache()->getList()->size(), 1u);
    EXPECT_EQ(KQC::vocCache()->getList()->front()->getId(), "renamed");
    EXPECT_FALSE(KQC::vocCacheLocal()->getVocabulary()) << "no vocabulary of this host any more";
}

TEST_F(VocabularyTest, MalformedFilesAreSkippedWithAClearMessage)
{
    std::string folder = ownFolder();
    writeFile(folder + "/a.voc", "vocabulary good\n", 1000000);
    writeFile(folder + "/b.voc", "vocabulary bad\nparameter x colour=red\n", 1000000);
    writeFile(folder + "/c.voc", "parameter only\n", 1000000);
    writeFile(folder + "/d.voc", "vocabulary open\nparameter y value='unclosed\n", 1000000);
    writeFile(folder + "/ignored.txt", "not a vocabulary", 1000000);
    boost::shared_ptr<const KQC::KQCVocabularyList> list = KQC::vocCache()->getList();
    ASSERT_EQ(list->size(), 1u);
    EXPECT_EQ(list->front()->getId(), "good");

    KQCVocabulary vocabulary;
    EXPECT_EQ(KQCVocabulary::load(folder + "/b.voc", vocabulary), -1);
    EXPECT_EQ(std::string(KQC::getErrorMessage()),
              "vocabulary '" + folder + "/b.voc' line 2: unknown attribute 'colour'");
    EXPECT_EQ(KQCVocabulary::load(folder + "/c.voc", vocabulary), -1);
    EXPECT_EQ(KQCVocabulary::load(folder + "/missing.voc", vocabulary), -1);
}

TEST_F(VocabularyTest, MapsWalkTheirVocabulariesInOrder)
{
    KQCVocabularyPtr first(new KQCVocabulary), second(new KQCVocabulary);
    ASSERT_EQ(first->parse("vocabulary first\nparameter a value=1 category=c\nparameter b value=2 category=c\n", "1"), 0);
    ASSERT_EQ(second->parse("vocabulary second\nparameter b value=3 category=c\nparameter z value=4 category=c\n", "2"), 0);
    KQC::KQCVocMap map;
    map.push_back(first);
    map.push_back(second);
    map.push_back(KQCVocabularyPtr());
    EXPECT_EQ(map.size(), 2u) << "empty pointers are not kept";
    std::string value;
    ASSERT_EQ(map.getValue("b", value), 0);
    EXPECT_EQ(value, "2") << "the first vocabulary wins";
    ASSERT_EQ(map.getValue("z", value), 0);
    EXPECT_EQ(value, "4");
    EXPECT_EQ(map.getValue("none", value), -1);
    std::vector<KQCVocParameter> category;
    map.getCategory("c", category);
    ASSERT_EQ(category.size(), 3u);
    EXPECT_EQ(category[2].getId(), "z");

    KQC::KQCVocMap built(first, {"linux-i386", "unknown-id"});
    ASSERT_EQ(built.size(), 2u);
    EXPECT_EQ(built.getVocabularies()[1]->getId(), "linux-i386");
}

TEST_F(VocabularyTest, CompareNoCaseComparesWholeStrings)
{
    EXPECT_EQ(KQC::compareNoCase("Linux", "lINUX"), 0);
    EXPECT_NE(KQC::compareNoCase("linux", "linux2"), 0);
    EXPECT_NE(KQC::compareNoCase("", "x"), 0);
    EXPECT_LT(KQC::compareNoCase("a", "B"), 0);
}

} // namespace
