// The per-process caches: an unchanged container is handed out without a
// copy, a changed one is parsed again alone, and every writer invalidates
// what a same-tick rewrite would hide from the stamps. Listing asks the
// kernel which containers run, so every case runs in a preloaded child.
#include "KQSCaches.h"
#include "KQSEnvMLocal.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>

namespace {

using KQS::KQSEnvMLocal;

const unsigned int kAll = 0xffffffff;

class CachesTest : public ::testing::Test {
protected:
    // A simulated host with containers 101 and 102, both registered.
    void SetUp() override
    {
        if (!kqtest::isPreloadedChild())
            return;
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --name first"));
        ASSERT_EQ(0, host.kqsim("add 102 --name second"));
        KQC::KQCEnvVector envs;
        ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
        ASSERT_EQ(0, envm.findByVeid(101, eid)) << KQC::getErrorMessage();
    }

    // VEID -> the configuration object each listed environment carries.
    std::map<int, const KQC::KQCEnvConfig*> listed()
    {
        KQC::KQCEnvVector envs;
        EXPECT_EQ(0, envm.getInfo(KQC::KQCEIDSet(), envs, kAll)) << KQC::getErrorMessage();
        std::map<int, const KQC::KQCEnvConfig*> configs;
        for (const auto& env : envs) {
            int veid = 0;
            KQS::KQSEnvConfig(*env->getConfig()).getVeid(veid);
            configs[veid] = env->getConfig().get();
            kept.push_back(env);  // no address is reused while compared
        }
        return configs;
    }
    std::string nameOf101()
    {
        KQC::KQCEnvVector envs;
        EXPECT_EQ(0, envm.getInfo(KQC::KQCEIDSet{eid}, envs, kAll)) << KQC::getErrorMessage();
        KQC::KQCOptionalProperty<std::string> name;
        if (!envs.empty())
            KQS::KQSEnvConfig(*envs.front()->getConfig()).getName(name);
        return name.get();
    }
    // What a rewrite within one clock tick leaves behind: the stamps still
    // match the files, the remembered contents do not.
    void plantStaleContainer()
    {
        auto& parsed = KQS::caches::listing().parsed;
        ASSERT_TRUE(parsed.count(101));
        boost::shared_ptr<KQS::KQSEnvConfig> stale(new KQS::KQSEnvConfig(*parsed[101].config));
        stale->setName(std::string("stale"));
        parsed[101].config = stale;
        ASSERT_EQ(nameOf101(), "stale");
    }
    void plantStaleRecord()
    {
        int veid = 0;
        ASSERT_EQ(0, envm.findByEid(eid, &veid));
        auto& records = KQS::caches::registry().records;
        ASSERT_TRUE(records.count(eid));
        records[eid].veid = 999;
        ASSERT_EQ(0, envm.findByEid(eid, &veid));
        ASSERT_EQ(veid, 999);
    }

    kqtest::TempHost host;
    KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    KQC::KQCEID eid;
    KQC::KQCEnvVector kept;
};

} // namespace

TEST_F(CachesTest, UnchangedContainersAreSharedAndAChangedOneIsParsedAlone)
{
    if (kqtest::ranInPreloadedChild())
        return;
    auto first = listed();
    auto again = listed();
    ASSERT_EQ(first.size(), 2u);
    EXPECT_EQ(again[101], first[101]);
    EXPECT_EQ(again[102], first[102]);

    host.write("etc/sysconfig/kq-scripts/102.conf",
               host.read("etc/sysconfig/kq-scripts/102.conf") + "DESCRIPTION=\"changed\"\n");
    auto after = listed();
    EXPECT_EQ(after[101], first[101]);
    EXPECT_NE(after[102], first[102]);
    KQC::KQCOptionalProperty<std::string> description;
    KQS::KQSEnvConfig(*after[102]).getDescription(description);
    EXPECT_EQ(description.get(), "changed");
}

TEST_F(CachesTest, ARunningContainerGetsItsOwnCopy)
{
    if (kqtest::ranInPreloadedChild())
        return;
    auto stopped = listed();
    ASSERT_EQ(0, envm.start(eid)) << KQC::getErrorMessage();
    auto running = listed();
    auto runningAgain = listed();
    // Live adapter state goes on a copy each time; the shared one is never
    // changed by it.
    EXPECT_NE(running[101], runningAgain[101]);
    EXPECT_EQ(running[102], stopped[102]);
}

TEST_F(CachesTest, WritersInvalidateWhatAStampCannotSee)
{
    if (kqtest::ranInPreloadedChild())
        return;
    struct Case {
        const char* writer;
        std::function<int()> write;
    } containerWriters[] = {
        {"invalidateContainer", [] { KQS::invalidateContainer(101); return 0; }},
        {"invalidateAll", [] { KQS::invalidateAll(); return 0; }},
        {"an action", [this] { return envm.mount(eid); }},
        {"a failing action",
         [this] {
             host.kqsim("fault kqctl umount 31 busy");
             int rc = envm.umount(eid);
             host.kqsim("fault --clear");
             return rc != 0 ? 0 : -1;
         }},
    };
    for (const Case& c : containerWriters) {
        plantStaleContainer();
        EXPECT_EQ(0, c.write()) << c.writer << ": " << KQC::getErrorMessage();
        EXPECT_EQ(nameOf101(), "first") << c.writer;
    }

    KQS::KQSEnvConfig record;
    record.setVeid(101);
    Case environmentWriters[] = {
        {"invalidateEnvironment", [this] { KQS::invalidateEnvironment(eid); return 0; }},
        {"putEnvConfig", [&] { return envm.putEnvConfig(eid, record); }},
    };
    for (const Case& c : environmentWriters) {
        plantStaleRecord();
        EXPECT_EQ(0, c.write()) << c.writer << ": " << KQC::getErrorMessage();
        int veid = 0;
        EXPECT_EQ(0, envm.findByEid(eid, &veid)) << c.writer;
        EXPECT_EQ(veid, 101) << c.writer;
    }
    plantStaleRecord();
    ASSERT_EQ(0, envm.removeEnv(eid));
    int veid = 0;
    EXPECT_EQ(-8, envm.findByEid(eid, &veid));
}

TEST_F(CachesTest, AnotherHostRootSharesNothing)
{
    if (kqtest::ranInPreloadedChild())
        return;
    ASSERT_EQ(nameOf101(), "first");
    kqtest::TempHost other;
    ASSERT_EQ(0, other.simulated());
    ASSERT_EQ(0, other.kqsim("add 101 --name elsewhere"));
    KQSEnvMLocal otherEnvm{KQC::KQCAccessProvider()};
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, otherEnvm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    ASSERT_EQ(envs.size(), 1u);
    KQC::KQCOptionalProperty<std::string> name;
    KQS::KQSEnvConfig(*envs.front()->getConfig()).getName(name);
    EXPECT_EQ(name.get(), "elsewhere");
}
