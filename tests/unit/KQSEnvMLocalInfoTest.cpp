// Listing environments: the registry joined with the host's containers, the
// synchronising mode that brings the registry in line with the host, and the
// information mask. Listing asks the kernel which containers run, so every
// case runs in a preloaded child on the simulated kernel.
#include "KQSEnvMLocal.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include "KQC/Error.h"
#include "KQS/Env.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace {

using KQS::KQSEnvMLocal;

const unsigned int kAll = 0xffffffff;

class EnvMLocalInfoTest : public ::testing::Test {
protected:
    std::string path(const std::string& relative) const { return kqtest::hostRoot() + "/" + relative; }
    void write(const std::string& relative, const std::string& text) const { kqtest::writeFile(path(relative), text); }
    void mkdir(const std::string& relative) const { ASSERT_EQ(0, kqtest::run("mkdir -p '" + path(relative) + "'")); }

    // A host with an empty registry and no container.
    void emptyHost()
    {
        write("etc/sysconfig/kq", "VE_ROOT=\"" + path("kq/root/$VEID") + "\"\nVE_PRIVATE=\"" +
                                      path("kq/private/$VEID") + "\"\nLOCKDIR=\"" + path("kq/lock") + "\"\n");
        mkdir("kq/lock");
        mkdir("etc/sysconfig/kq-scripts");
        mkdir("etc/kqagent/configs");
        write("proc/mounts", "proc /proc proc rw 0 0\n");
        write("var/lib/kqsim/running", "");
    }
    // A stopped container with its configuration file and private area.
    void container(int veid, const std::string& extra = "")
    {
        std::string id = std::to_string(veid);
        write("etc/sysconfig/kq-scripts/" + id + ".conf", "VE_ROOT=\"" + path("kq/root/" + id) +
                                                              "\"\nVE_PRIVATE=\"" + path("kq/private/" + id) +
                                                              "\"\n" + extra);
        mkdir("kq/private/" + id);
    }
    void destroyed(int veid)
    {
        std::string id = std::to_string(veid);
        ASSERT_EQ(0, kqtest::run("rm -rf '" + path("etc/sysconfig/kq-scripts/" + id + ".conf") + "' '" +
                                 path("kq/private/" + id) + "'"));
    }
    std::string eidRecord(int veid) const
    {
        return kqtest::readFile(path("kq/private/" + std::to_string(veid) + "/.kqs/eid.conf"));
    }
    int registryFiles() const { return kqtest::run("exit $(ls -A '" + path("etc/kqagent/configs") + "' | wc -l)"); }

    // VEID -> EID of the environments listed.
    static std::map<int, KQC::KQCEID> byVeid(const KQC::KQCEnvVector& envs)
    {
        std::map<int, KQC::KQCEID> map;
        for (const auto& env : envs) {
            int veid = 0;
            EXPECT_EQ(0, KQS::KQSEnvConfig(*env->getConfig()).getVeid(veid));
            map[veid] = env->getEID();
        }
        return map;
    }

    KQSEnvMLocal envm{KQC::KQCAccessProvider()};
};

} // namespace

TEST_F(EnvMLocalInfoTest, SynchronisingRegistersEveryContainerOnce)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    container(101), container(102), container(103);
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    std::map<int, KQC::KQCEID> found = byVeid(envs);
    ASSERT_EQ(3u, found.size());
    EXPECT_EQ(3, registryFiles());
    for (const auto& item : found)
        EXPECT_EQ(item.second.toString(), eidRecord(item.first)) << "the container records its identity";
    for (const auto& env : envs)
        EXPECT_EQ(KQC::ENV_STATE_STOPPED, env->getStatus().state());

    // A second start finds them registered: same identities, no new files.
    KQC::KQCEnvVector again;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), again, kAll, true)) << KQC::getErrorMessage();
    EXPECT_EQ(found, byVeid(again));
    EXPECT_EQ(3, registryFiles());
}

TEST_F(EnvMLocalInfoTest, AContainerKeepsTheIdentityItRecords)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    container(101);
    KQC::KQCEID remembered;
    remembered.generate();
    write("kq/private/101/.kqs/eid.conf", remembered.toString() + "\n");
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    ASSERT_EQ(1u, envs.size());
    EXPECT_EQ(remembered, envs[0]->getEID());
}

TEST_F(EnvMLocalInfoTest, ADestroyedContainerIsForgottenOnlyWhenSynchronising)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    container(101), container(102);
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    destroyed(102);

    KQC::KQCEnvVector listed;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), listed, kAll, false)) << KQC::getErrorMessage();
    EXPECT_EQ((std::set<int>{101}), [&] {
        std::set<int> veids;
        for (const auto& item : byVeid(listed))
            veids.insert(item.first);
        return veids;
    }());
    EXPECT_EQ(2, registryFiles()) << "left out, not forgotten";

    KQC::KQCEnvVector synced;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), synced, kAll, true)) << KQC::getErrorMessage();
    EXPECT_EQ(1u, synced.size());
    EXPECT_EQ(1, registryFiles());
}

TEST_F(EnvMLocalInfoTest, RequestedEnvironmentsOnlyAndTheOutputIsAppendedTo)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    container(101), container(102);
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    std::map<int, KQC::KQCEID> found = byVeid(envs);

    KQC::KQCEID unknown;
    unknown.generate();
    KQC::KQCEIDSet wanted{found[102], unknown};
    ASSERT_EQ(0, envm.getInfoEx(wanted, envs, kAll, false)) << KQC::getErrorMessage();
    ASSERT_EQ(3u, envs.size());
    EXPECT_EQ(found[102], envs[2]->getEID()) << "an identifier without a container is dropped silently";
}

TEST_F(EnvMLocalInfoTest, InfoChecksTheRightAndAnEmptyRegistryListsNothing)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    KQC::KQCEnvVector envs;
    EXPECT_EQ(0, envm.getInfo(KQC::KQCEIDSet(), envs, kAll)) << KQC::getErrorMessage();
    EXPECT_TRUE(envs.empty());

    container(101);
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    KQSEnvMLocal refused{KQC::KQCAccessProvider(new KQC::KQCAccessProviderPrototype(
        boost::make_shared<KQC::KQCClientContext>("test", std::set<int>{KQC::RIGHT_ENV_INFO})))};
    KQC::KQCEnvVector none;
    EXPECT_EQ(KQC::KQC_ERR_ACCESS_DENIED, refused.getInfo(KQC::KQCEIDSet(), none, kAll));
    EXPECT_TRUE(none.empty());
}

TEST_F(EnvMLocalInfoTest, TheMaskChoosesWhatEachEnvironmentCarries)
{
    if (kqtest::ranInPreloadedChild())
        return;
    emptyHost();
    KQC::KQCEID local;
    local.generate();
    write("etc/kqagent/KQSVpsAgent.conf",
          "<message name=\"configuration\"><str key=\"localEid\">" + local.toString() + "</str></message>\n");
    container(101, "NAME=\"web\"\nNAMESERVER=\"10.0.0.1\"\n");
    KQC::KQCEnvVector envs;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), envs, kAll, true)) << KQC::getErrorMessage();
    ASSERT_EQ(1u, envs.size());
    EXPECT_FALSE(envs[0]->getParentEID().isValid()) << "the full mask sets no parent";

    KQC::KQCEnvVector basic;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), basic, 1 | 16, false)) << KQC::getErrorMessage();
    ASSERT_EQ(1u, basic.size());
    KQS::KQSEnvConfig reduced(*basic[0]->getConfig());
    KQC::KQCOptionalProperty<std::string> name;
    reduced.getName(name);
    EXPECT_EQ("web", name.get());
    KQC::KQCOptionalProperty<KQC::KQCStringList> nameservers;
    reduced.getNameservers(nameservers);
    EXPECT_FALSE(nameservers.isSpecified());
    KQC::KQCOptionalProperty<KQC::KQCEnvType> type;
    reduced.getType(type);
    EXPECT_EQ(KQS::KQSEnv::type, type.get().str());
    EXPECT_EQ(local, basic[0]->getParentEID());

    KQC::KQCEnvVector servers;
    ASSERT_EQ(0, envm.getInfoEx(KQC::KQCEIDSet(), servers, 2, false)) << KQC::getErrorMessage();
    KQS::KQSEnvConfig onlyServers(*servers[0]->getConfig());
    onlyServers.getName(name);
    EXPECT_FALSE(name.isSpecified());
    onlyServers.getNameservers(nameservers);
    ASSERT_TRUE(nameservers.isSpecified());
    EXPECT_EQ(KQC::KQCStringList{"10.0.0.1"}, nameservers.get());
    EXPECT_FALSE(servers[0]->getParentEID().isValid());
}
