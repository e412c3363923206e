// The registry of environments: agent-side files, EID <-> VEID, the EID
// record inside containers, and the agent's private files.
#include "KQSEnvConfigLock.h"
#include "KQSEnvMLocal.h"

#include "AgentRecord.h"
#include "PropertyOf.h"
#include "TempHost.h"

#include "KQC/Error.h"
#include "KQC/Log.h"
#include "KQC/Message.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <sstream>
#include <thread>
#include <vector>

namespace {

KQS::KQSEnvConfig configOf(int veid, const std::string& name = "")
{
    KQS::KQSEnvConfig config;
    config.setVeid(veid);
    if (!name.empty())
        config.setName(name);
    return config;
}

KQC::KQCEID newEid()
{
    KQC::KQCEID eid;
    eid.generate();
    return eid;
}

std::string nameOf(const KQS::KQSEnvConfig& config)
{
    return kqtest::valueOf(config, &KQS::KQSEnvConfig::getName);
}

KQC::KQCAccessProvider clientDenied(std::set<int> rights)
{
    return KQC::KQCAccessProvider(new KQC::KQCAccessProviderPrototype(
        boost::make_shared<KQC::KQCClientContext>("test", std::move(rights))));
}

class RegistryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("etc/kqagent/configs") + "'")); }

    KQC::KQCEID registered(int veid, const std::string& name = "")
    {
        KQC::KQCEID eid = newEid();
        EXPECT_EQ(0, envm.putEnvConfig(eid, configOf(veid, name))) << KQC::getErrorMessage();
        return eid;
    }
    std::string fileOf(const KQC::KQCEID& eid) const { return KQS::KQSEnvMLocal::getVPSAgentConfigPathByEid(eid); }
    // Rewrites the file in place: its folder keeps its stamp.
    void overwriteInPlace(const KQC::KQCEID& eid, const KQS::KQSEnvConfig& config)
    {
        const std::string text = kqtest::agentRecord(config);
        FILE* file = std::fopen(fileOf(eid).c_str(), "r+");
        ASSERT_NE(nullptr, file);
        ASSERT_EQ(0, ::ftruncate(fileno(file), 0));
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
    }
    // Adds and removes an entry: the folder's stamp changes.
    void touchFolder() const
    {
        kqtest::writeFile(host.path("etc/kqagent/configs/touch"), "");
        std::remove(host.path("etc/kqagent/configs/touch").c_str());
    }

    kqtest::TempHost host;
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
};

// A missing folder is a read error every time, until it appears.
TEST_F(RegistryTest, ListsOnlyFilesNamedByAGuid)
{
    ASSERT_EQ(0, kqtest::run("rm -rf '" + host.path("etc/kqagent/configs") + "'"));
    KQC::KQCEIDSet eids;
    EXPECT_EQ(-4, envm.getEnvList(eids));
    EXPECT_EQ("Can't opendir '" + host.path("etc/kqagent/configs") + "' : No such file or directory",
              std::string(KQC::getErrorMessage()));
    EXPECT_EQ(-4, envm.getEnvList(eids));

    KQC::KQCEID first = registered(101);
    KQC::KQCEID second = registered(102);
    host.write("etc/kqagent/configs/notes.txt", "x");
    host.write("etc/kqagent/configs/{not-a-guid}", "x");
    host.write("etc/kqagent/configs/" + first.toString() + ".lck", "");
    ASSERT_EQ(0, envm.getEnvList(eids));
    EXPECT_EQ((KQC::KQCEIDSet{first, second}), eids);
}

TEST_F(RegistryTest, WritesAPacketAndReadsItBackAgainWhenItChanges)
{
    KQC::KQCEID eid = registered(101, "web");
    EXPECT_NE(std::string::npos, kqtest::readFile(fileOf(eid)).find("<message name=\"packet\">"));

    auto config = envm.getEnvConfig(eid);
    ASSERT_TRUE(config);
    EXPECT_EQ(configOf(101, "web"), *config);

    // What a caller gets is its own: changing it changes nothing cached.
    config->setName("changed");
    EXPECT_EQ("web", nameOf(*envm.getEnvConfig(eid)));

    // A file changed in place is read again.
    overwriteInPlace(eid, configOf(101, "db"));
    EXPECT_EQ("db", nameOf(*envm.getEnvConfig(eid)));
}

TEST_F(RegistryTest, AMissingFileGivesNoConfigurationUntilItAppears)
{
    KQC::KQCEID eid = newEid();
    for (int call = 0; call < 2; ++call) {
        EXPECT_FALSE(envm.getEnvConfig(eid));
        EXPECT_EQ(0u, std::string(KQC::getErrorMessage()).find("read '" + fileOf(eid) + "' : "));
        int veid = 0;
        EXPECT_EQ(-8, envm.findByEid(eid, &veid));
    }
    ASSERT_EQ(0, envm.putEnvConfig(eid, configOf(101)));
    ASSERT_TRUE(envm.getEnvConfig(eid));
}

TEST_F(RegistryTest, ACorruptFileReadsAsAnEmptyConfigurationUntilItChanges)
{
    // Markup without a configuration, and no markup at all: one rule.
    for (const char* contents :
         {"<message name=\"packet\"><str key=\"other\">x</str></message>\n", "\x01garbage<<"}) {
        KQC::KQCEID eid = newEid();
        host.write("etc/kqagent/configs/" + eid.toString(), contents);

        EXPECT_FALSE(envm.getEnvConfig(eid)) << contents;
        EXPECT_EQ("can't parse env#" + eid.toString() + " config", std::string(KQC::getErrorMessage()));

        auto later = envm.getEnvConfig(eid);
        ASSERT_TRUE(later) << contents;
        EXPECT_EQ(KQS::KQSEnvConfig(), *later);
        int veid = 0;
        EXPECT_EQ(-7, envm.findByEid(eid, &veid));
        EXPECT_EQ("can't find ctid in env '" + eid.toString() + "' config", std::string(KQC::getErrorMessage()));

        ASSERT_EQ(0, envm.putEnvConfig(eid, configOf(105)));
        EXPECT_EQ(0, envm.findByEid(eid, &veid));
        EXPECT_EQ(105, veid);
    }
}

TEST_F(RegistryTest, FindsVeidsAndEids)
{
    KQC::KQCEID web = registered(101);
    KQC::KQCEID noVeid = newEid();
    ASSERT_EQ(0, envm.putEnvConfig(noVeid, KQS::KQSEnvConfig()));

    int veid = 0;
    ASSERT_EQ(0, envm.findByEid(web, &veid));
    EXPECT_EQ(101, veid);
    EXPECT_EQ(-7, envm.findByEid(noVeid, &veid));

    KQC::KQCEID found;
    ASSERT_EQ(0, envm.findByVeid(101, found));
    EXPECT_EQ(web, found);
    EXPECT_EQ(KQC::KQC_ERR_NO_ENV_FOR_VEID, envm.findByVeid(999, found));
    EXPECT_STREQ("eid for ctid#999 not found", KQC::getErrorMessage());

    std::map<int, KQC::KQCEID> map;
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ((std::map<int, KQC::KQCEID>{{101, web}}), map);

    // A given map is the only one looked at.
    KQC::KQCEID elsewhere = newEid();
    auto given = boost::make_shared<std::map<int, KQC::KQCEID>>(std::map<int, KQC::KQCEID>{{7, elsewhere}});
    ASSERT_EQ(0, envm.findByVeid(7, found, given));
    EXPECT_EQ(elsewhere, found);
    EXPECT_EQ(KQC::KQC_ERR_NO_ENV_FOR_VEID, envm.findByVeid(101, found, given));

    // Of two environments with one VEID, the last EID wins.
    KQC::KQCEID twin = registered(101);
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(std::max(web, twin, KQC::KQCEnvIDComparator()), map.at(101));
}

TEST_F(RegistryTest, TheVeidMapIsReadAgainOnlyWhenTheFolderChangesOrWeWrite)
{
    KQC::KQCEID eid = registered(101);
    std::map<int, KQC::KQCEID> map;
    ASSERT_EQ(0, envm.getVEIDMap(map));
    ASSERT_EQ(1u, map.count(101));

    // Behind the cache's back, without changing the folder: still cached.
    overwriteInPlace(eid, configOf(202));
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(1u, map.count(101));
    EXPECT_EQ(0u, map.count(202));

    touchFolder();
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(0u, map.count(101));
    EXPECT_EQ(eid, map.at(202));

    // Our own write is seen at once.
    ASSERT_EQ(0, envm.putEnvConfig(eid, configOf(303)));
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(eid, map.at(303));
    EXPECT_EQ(1u, map.size());
}

TEST_F(RegistryTest, AnotherHostRootIsAnotherRegistry)
{
    KQC::KQCEID here = registered(101);
    std::map<int, KQC::KQCEID> map;
    ASSERT_EQ(0, envm.getVEIDMap(map));
    {
        kqtest::TempHost other;
        ASSERT_EQ(0, kqtest::run("mkdir -p '" + other.path("etc/kqagent/configs") + "'"));
        KQS::KQSEnvMLocal there{KQC::KQCAccessProvider()};
        ASSERT_EQ(0, there.getVEIDMap(map));
        EXPECT_TRUE(map.empty());
    }
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(here, map.at(101));
}

TEST_F(RegistryTest, RemovingForgetsTheEnvironmentUnlessItIsLocked)
{
    KQC::KQCEID kept = registered(101);
    KQC::KQCEID gone = registered(102);
    KQC::KQCEIDSet eids;
    ASSERT_EQ(0, envm.getEnvList(eids));

    {
        KQS::KQSEnvConfigLock lock;
        ASSERT_EQ(0, lock.lock(kept));
        EXPECT_EQ(0, envm.removeEnv(kept));
        EXPECT_TRUE(kqtest::exists(fileOf(kept)));
        EXPECT_TRUE(kqtest::exists(fileOf(kept) + ".lck"));
    }
    EXPECT_EQ(0, envm.removeEnv(gone));
    EXPECT_FALSE(kqtest::exists(fileOf(gone)));
    EXPECT_FALSE(kqtest::exists(fileOf(gone) + ".lck"));

    ASSERT_EQ(0, envm.getEnvList(eids));
    EXPECT_EQ(KQC::KQCEIDSet{kept}, eids);
    KQC::KQCEID found;
    EXPECT_EQ(KQC::KQC_ERR_NO_ENV_FOR_VEID, envm.findByVeid(102, found));
}

TEST_F(RegistryTest, TheContainerRecordsItsEid)
{
    const std::string privateDir = host.path("kq/private/101");
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + privateDir + "'"));
    KQC::KQCEID eid = newEid();
    ASSERT_EQ(0, envm.updateEnvEID(eid, privateDir));
    EXPECT_EQ(eid.toString(), host.read("kq/private/101/.kqs/eid.conf"));

    KQS::KQSEnvConfig config = configOf(101);
    config.setVEPrivateVar(host.path("kq/private/$VEID"));
    KQC::KQCEID found;
    ASSERT_TRUE(envm.findByVe(config, found));
    EXPECT_EQ(eid, found);

    // Through the configuration: the same file.
    KQC::KQCEID other = newEid();
    ASSERT_EQ(0, envm.updateEnvEID(other, boost::make_shared<KQS::KQSEnvConfig>(config)));
    ASSERT_TRUE(envm.findByVe(config, found));
    EXPECT_EQ(other, found);

    // A record that is no GUID leaves the EID as it was.
    host.write("kq/private/101/.kqs/eid.conf", "garbage\n");
    found = KQC::KQCEID();
    EXPECT_TRUE(envm.findByVe(config, found));
    EXPECT_FALSE(found.isValid());
}

TEST_F(RegistryTest, WithoutAPrivateAreaThereIsNoEid)
{
    KQC::KQCEID found;
    EXPECT_FALSE(envm.findByVe(configOf(101), found));
    KQS::KQSEnvConfig config = configOf(101);
    config.setVEPrivateVar(host.path("kq/private/$VEID"));
    EXPECT_FALSE(envm.findByVe(config, found));

    // The private area's parent must be there: only ".kqs" is made.
    EXPECT_EQ(-1, envm.updateEnvEID(newEid(), host.path("kq/private/101")));
    EXPECT_EQ(-1, envm.updateEnvEID(newEid(), boost::shared_ptr<KQS::KQSEnvConfig>()));
    EXPECT_EQ(-1, envm.updateEnvEID(newEid(), boost::make_shared<KQS::KQSEnvConfig>(configOf(101))));
}

TEST_F(RegistryTest, NewEnvironmentsAreRegisteredWithTheirType)
{
    KQC::KQCEID given = newEid();
    KQC::KQCEID eid = given;
    ASSERT_EQ(0, envm.addNewEnv(101, eid));
    EXPECT_EQ(given, eid);
    auto config = envm.getEnvConfig(eid);
    ASSERT_TRUE(config);
    EXPECT_EQ("corvantis", kqtest::valueOf(*config, &KQS::KQSEnvConfig::getType).str());

    KQC::KQCEID fresh;
    ASSERT_EQ(0, envm.addNewEnv(102, fresh));
    EXPECT_TRUE(fresh.isValid());
    KQC::KQCEID found;
    ASSERT_EQ(0, envm.findByVeid(102, found));
    EXPECT_EQ(fresh, found);
}

// The registry's log lines while `work` runs, each as its level, a blank and
// its text; the source must be the registry's unit.
std::vector<std::string> registryLogLines(const std::string& logPath, const std::function<void()>& work)
{
    KQC::LogSettings::setFile(logPath);
    KQC::LogSettings::setThreshold(3);
    work();
    KQC::LogSettings::setFile("");
    std::vector<std::string> lines;
    std::istringstream text(kqtest::readFile(logPath));
    std::string line;
    while (std::getline(text, line)) {
        std::istringstream fields(line);
        std::string stamp, level, component, source;
        fields >> stamp >> level >> component >> source;
        EXPECT_EQ("KQSBasicFunctionalityLocal", component) << line;
        EXPECT_EQ(0u, source.find("KQSEnvMLocal.cpp:")) << line;
        std::string body;
        std::getline(fields >> std::ws, body);
        lines.push_back(level + " " + body);
    }
    return lines;
}

TEST_F(RegistryTest, LogsWhatItForgetsSkipsAndReads)
{
    KQC::KQCEID kept = registered(101);
    KQC::KQCEID gone = registered(102);
    KQC::KQCEID recorded = newEid();
    host.write("kq/private/103/.kqs/eid.conf", recorded.toString() + "\n");
    KQS::KQSEnvConfig config = configOf(103);
    config.setVEPrivateVar(host.path("kq/private/103"));

    std::vector<std::string> lines = registryLogLines(host.path("agent.log"), [&] {
        KQS::KQSEnvConfigLock lock;
        ASSERT_EQ(0, lock.lock(kept));
        envm.removeEnv(kept);
        envm.removeEnv(gone);
        KQC::KQCEID found;
        envm.findByVe(config, found);
    });
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("3 Skip remove env eid#" + kept.toString() + ", 'cause env file is locked", lines[0]);
    EXPECT_EQ("3 Remove env eid#" + gone.toString(), lines[1]);
    EXPECT_EQ("3 Get EID#" + recorded.toString() + " from file " + host.path("kq/private/103/.kqs/eid.conf") +
                  ", str " + recorded.toString(),
              lines[2]);
}

TEST_F(RegistryTest, FailuresToRecordAndRegisterAreLoggedAndLeaveNothingBehind)
{
    std::vector<std::string> lines = registryLogLines(host.path("agent.log"), [&] {
        // No private area: its ".kqs" folder cannot be made.
        EXPECT_EQ(-1, envm.updateEnvEID(newEid(), host.path("kq/private/101")));
        ASSERT_EQ(0, kqtest::run("rm -rf '" + host.path("etc/kqagent/configs") + "'"));
        host.write("etc/kqagent/configs", "a file where the folder should be");
        KQC::KQCEID eid = newEid();
        EXPECT_EQ(-9, envm.addNewEnv(101, eid));
        EXPECT_EQ(0u, std::string(KQC::getErrorMessage()).find("can't create tmp file for '"));
    });
    // The failed write leaves nothing behind.
    EXPECT_EQ("a file where the folder should be", host.read("etc/kqagent/configs"));
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(0u, lines[0].find("1 failed to create folder " + host.path("kq/private/101/.kqs") + ": ")) << lines[0];
    EXPECT_EQ(0u, lines[1].find("1 [addNewEnv] putEnvConfig failed : can't create tmp file for '")) << lines[1];
}

TEST_F(RegistryTest, ManyThreadsListAndWriteWithoutLosingWrites)
{
    const int threads = 6, perThread = 15;
    std::vector<std::vector<KQC::KQCEID>> written(threads);
    std::atomic<int> failures{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            KQS::KQSEnvMLocal own{KQC::KQCAccessProvider()};
            for (int i = 0; i < perThread; ++i) {
                KQC::KQCEID eid = newEid();
                if (own.putEnvConfig(eid, configOf(1000 + t * perThread + i)) != 0)
                    ++failures;
                written[t].push_back(eid);
                KQC::KQCEIDSet eids;
                std::map<int, KQC::KQCEID> map;
                KQC::KQCEID found;
                if (own.getEnvList(eids) != 0 || own.getVEIDMap(map) != 0)
                    ++failures;
                if (own.findByVeid(1000 + t * perThread + i, found) != 0 || found != eid)
                    ++failures;
            }
        });
    }
    for (auto& worker : workers)
        worker.join();
    EXPECT_EQ(0, failures.load());

    std::map<int, KQC::KQCEID> map;
    ASSERT_EQ(0, envm.getVEIDMap(map));
    EXPECT_EQ(static_cast<size_t>(threads * perThread), map.size());
    for (int t = 0; t < threads; ++t)
        for (int i = 0; i < perThread; ++i)
            EXPECT_EQ(written[t][i], map.at(1000 + t * perThread + i));
}

TEST_F(RegistryTest, ConcurrentWritersOfOneEnvironmentLeaveAWholeFile)
{
    KQC::KQCEID eid = registered(101, "start");
    std::vector<std::thread> workers;
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&, t] {
            KQS::KQSEnvMLocal own{KQC::KQCAccessProvider()};
            for (int i = 0; i < 20; ++i) {
                own.putEnvConfig(eid, configOf(101, "writer" + std::to_string(t)));
                own.getEnvConfig(eid);
            }
        });
    }
    for (auto& worker : workers)
        worker.join();
    auto config = envm.getEnvConfig(eid);
    ASSERT_TRUE(config) << KQC::getErrorMessage();
    EXPECT_EQ(0u, nameOf(*config).find("writer"));
    // No temporary file is left beside it.
    KQC::KQCEIDSet eids;
    ASSERT_EQ(0, envm.getEnvList(eids));
    EXPECT_EQ(1u, eids.size());
    EXPECT_EQ(0, kqtest::run("test $(ls -A '" + host.path("etc/kqagent/configs") + "' | wc -l) -eq 1"));
}

class PrivateFileTest : public RegistryTest {
protected:
    void SetUp() override
    {
        RegistryTest::SetUp();
        host.write("etc/sysconfig/kq-scripts/101.conf", "VE_PRIVATE=\"" + host.path("kq/private/101") + "\"\n");
        ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("kq/private/101") + "'"));
        eid = registered(101);
    }
    KQC::KQCEID eid;
};

TEST_F(PrivateFileTest, WritesReadsAndDeletes)
{
    ASSERT_EQ(0, envm.putPrivate(eid, "notes/today", "hello\n")) << KQC::getErrorMessage();
    EXPECT_EQ("hello\n", host.read("kq/private/101/kqagent/notes/today"));
    std::string data;
    ASSERT_EQ(0, envm.getPrivate(eid, "notes/today", data));
    EXPECT_EQ("hello\n", data);

    ASSERT_EQ(0, envm.putPrivate(eid, "notes/today", ""));
    EXPECT_FALSE(kqtest::exists(host.path("kq/private/101/kqagent/notes/today")));
    EXPECT_EQ(-4, envm.getPrivate(eid, "notes/today", data));
    EXPECT_EQ("can't read '" + host.path("kq/private/101/kqagent/notes/today") +
                  "' failed : No such file or directory",
              std::string(KQC::getErrorMessage()));
    EXPECT_EQ(-9, envm.putPrivate(eid, "notes/today", ""));
    EXPECT_EQ(0u, std::string(KQC::getErrorMessage()).find("can't delete '"));
}

TEST_F(PrivateFileTest, RightsAreCheckedFirstThenTheEnvironment)
{
    KQS::KQSEnvMLocal reader{clientDenied({39})};
    KQS::KQSEnvMLocal writer{clientDenied({38})};
    std::string data;
    EXPECT_EQ(KQC::KQC_ERR_ACCESS_DENIED, reader.putPrivate(eid, "a", "x"));
    EXPECT_EQ(KQC::KQC_ERR_ACCESS_DENIED, writer.getPrivate(newEid(), "a", data));
    EXPECT_FALSE(kqtest::exists(host.path("kq/private/101/kqagent/a")));
    EXPECT_EQ(0, writer.putPrivate(eid, "a", "x"));
    EXPECT_EQ(0, reader.getPrivate(eid, "a", data));
    EXPECT_EQ("x", data);

    // Unknown environments and containers are refused.
    EXPECT_EQ(-8, envm.getPrivate(newEid(), "a", data));
    EXPECT_STREQ("can't find ctid by env", KQC::getErrorMessage());

    KQC::KQCEID withoutContainer = registered(102);
    EXPECT_EQ(-7, envm.putPrivate(withoutContainer, "a", "x"));
    EXPECT_STREQ("can't get VEPrivate", KQC::getErrorMessage());
}

// Everything a name could reach outside the agent's folder: the host's
// "outside" folder and the rest of the private area, with contents.
std::string snapshotOutside(const kqtest::TempHost& host)
{
    return kqtest::commandOutput("cd '" + host.root() +
                                 "' && find outside kq/private/101 -path kq/private/101/kqagent -prune -o -print"
                                 " | sort && cat outside/*");
}

TEST_F(PrivateFileTest, NamesAreResolvedBeneathTheAgentsFolderWithoutFollowingLinks)
{
    const std::string folder = host.path("kq/private/101/kqagent");
    const std::string outside = host.path("outside");
    struct Case {
        const char* what;
        std::string setup;  // shell commands run in the agent's folder
        std::string name;
        int get, put, erase;
        std::string message;  // what the refusal of `get` says after the path
    } cases[] = {
        {"a link to a folder outside", "ln -s '" + outside + "' sub", "sub/x", -4, -9, -9,
         "'" + folder + "/sub' is a symbolic link"},
        {"a link to a file outside", "ln -s '" + outside + "/x' link", "link", -4, -9, -9,
         "'" + folder + "/link' is a symbolic link"},
        {"a dangling link", "ln -s '" + outside + "/new' dangling", "dangling", -4, -9, -9,
         "'" + folder + "/dangling' is a symbolic link"},
        {"the agent's folder itself a link", "cd .. && rmdir kqagent && ln -s '" + outside + "' kqagent", "x", -4,
         -9, -9, "'" + folder + "' is a symbolic link"},
        {"'..' after an ordinary part", "mkdir a", "a/../../x", -4, -9, -9, ""},
        {"a plain '..'", "", "../x", -4, -9, -9, ""},
        {"an absolute name", "", outside + "/x", -4, -9, -9, ""},
        {"an empty name", "", "", -4, -9, -9, ""},
        {"a '.' part", "", "./x", -4, -9, -9, ""},
        {"a FIFO", "mkfifo fifo", "fifo", -4, -9, 0, "'" + folder + "/fifo' is not a regular file"},
        {"a folder", "mkdir dir", "dir", -4, -9, -9, "'" + folder + "/dir' is a folder"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(0, kqtest::run("rm -rf '" + outside + "' '" + folder + "' && mkdir -p '" + outside + "' '" +
                                 folder + "' && echo secret > '" + outside + "/x' && cd '" + folder + "' && " +
                                 (c.setup.empty() ? "true" : c.setup)));
        const std::string before = snapshotOutside(host);
        std::string data;
        EXPECT_EQ(c.get, envm.getPrivate(eid, c.name, data));
        const std::string message = KQC::getErrorMessage();
        if (c.message.empty())
            EXPECT_EQ(0u, message.find("can't use '" + c.name + "' as a private file name: ")) << message;
        else
            EXPECT_EQ("can't read '" + folder + "/" + c.name + "' failed : " + c.message, message);
        EXPECT_EQ("", data);
        EXPECT_EQ(c.put, envm.putPrivate(eid, c.name, "planted"));
        EXPECT_EQ(c.erase, envm.putPrivate(eid, c.name, ""));
        EXPECT_EQ(before, snapshotOutside(host));
    }
}

} // namespace
