// Container enumeration. The pieces that read only files run on a temporary
// host in this process; whatever asks the kernel (the running list and the
// whole listing) runs in a preloaded child on the simulated kernel.
#include "KQSVEActionSystemLinux.h"

#include "PreloadedRun.h"
#include "PropertyOf.h"
#include "TempHost.h"

#include "KQC/Error.h"
#include "KQC/Log.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <unistd.h>

namespace {

using namespace KQS;
using kqtest::propertyOf;
using kqtest::valueOf;
typedef KQSVEActionSystemLinux VE;

// ---- a host's files ---------------------------------------------------------

// A pid that no process can have: pids stay below pid_max.
std::string deadPid()
{
    std::ifstream in("/proc/sys/kernel/pid_max");
    long max = 0;
    in >> max;
    return std::to_string(max > 0 ? max : INT_MAX);
}

std::string livePid()
{
    return std::to_string(::getpid());
}

class Host {
public:
    explicit Host(const std::string& root) : m_root(root) {}

    std::string path(const std::string& relative) const { return m_root + "/" + relative; }
    void write(const std::string& relative, const std::string& text) const { kqtest::writeFile(path(relative), text); }
    void remove(const std::string& relative) const { kqtest::run("rm -rf '" + path(relative) + "'"); }
    void mkdir(const std::string& relative) const { kqtest::run("mkdir -p '" + path(relative) + "'"); }

    void settings(bool withLockDir = true, bool withDumpDir = true) const
    {
        std::string text = "VE_ROOT=\"" + path("kq/root/$VEID") + "\"\n";
        text += "VE_PRIVATE=\"" + path("kq/private/$VEID") + "\"\n";
        if (withLockDir)
            text += "LOCKDIR=\"" + path("kq/lock") + "\"\n";
        if (withDumpDir)
            text += "DUMPDIR=\"" + path("kq/dump") + "\"\n";
        write("etc/sysconfig/kq", text);
        mkdir("kq/lock");
        mkdir("kq/dump");
        mkdir("etc/sysconfig/kq-scripts");
        write("proc/mounts", "proc /proc proc rw 0 0\n");
    }

    // A stopped container: its configuration file and private area.
    void container(int veid, const std::string& extra = "", bool privateArea = true) const
    {
        std::string id = std::to_string(veid);
        write(configPath(veid), "VE_ROOT=\"" + path("kq/root/" + id) + "\"\nVE_PRIVATE=\"" +
                                    path("kq/private/" + id) + "\"\n" + extra);
        if (privateArea)
            mkdir("kq/private/" + id);
    }
    static std::string configPath(int veid) { return "etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf"; }

    void running(const std::string& veids) const { write("var/lib/kqsim/running", veids); }
    void mounted(int veid) const
    {
        std::ofstream(path("proc/mounts"), std::ios::app) << "/dev/simfs " << path("kq/root/" + std::to_string(veid))
                                                          << " simfs rw,relatime 0 0\n";
    }
    void dumped(int veid) const { write("kq/dump/Dump." + std::to_string(veid), "image"); }
    void locked(int veid, const std::string& pid, const std::string& word) const
    {
        write("kq/lock/" + std::to_string(veid) + ".lck", pid + "\n" + word + "\n");
    }
    void kernel(int veid, const std::string& key, const std::string& value) const
    {
        write("var/lib/kqsim/kernel/" + std::to_string(veid) + "/" + key, value + "\n");
    }

private:
    std::string m_root;
};

int stateOf(const KQSVPSList& list, int veid)
{
    auto found = list.find(veid);
    return found == list.end() ? -1 : found->second.state;
}

// VEID -> state of every container listed.
std::map<int, int> statesOf(const KQSVPSList& list)
{
    std::map<int, int> states;
    for (const auto& item : list)
        states[item.first] = item.second.state;
    return states;
}

std::vector<std::string> addressesOf(const KQSEnvConfig& config)
{
    std::vector<std::string> texts;
    for (const KQC::KQCIPAddress& address : kqtest::valueOf(config, &KQSEnvConfig::getAddresses))
        texts.push_back(address.toString());
    return texts;
}

// The live state of each adapter, in order.
std::vector<int> statusesOf(const KQSEnvConfig& config)
{
    std::vector<int> statuses;
    for (const KQSNetVEth& adapter : kqtest::valueOf(config, &KQSEnvConfig::getNetVEths))
        statuses.push_back(adapter.getStatus());
    return statuses;
}

// ---- on a temporary host in this process -----------------------------------

class KQSVEActionSystemLinuxListTest : public ::testing::Test {
protected:
    kqtest::TempHost m_temp;
    Host m_host{m_temp.root()};
};

// A lock names a transition only while its holder lives; a word outside
// the table is an unknown transition, a broken or missing lock none.
TEST_F(KQSVEActionSystemLinuxListTest, LocksGiveTransitionsWhileTheHolderLives)
{
    const std::string live = livePid() + "\n", dead = deadPid() + "\n";
    struct Case {
        std::string lock;  // "-": no lock file
        int result;
        int transition;
    } cases[] = {
        {live + "stopping\n", 0, 5},   {live + "creating\n", 0, 2},
        {live + "restarting\n", 0, 20}, {live + "check-updating\n", 0, 101},
        {live + "checkpointing\n", 0, 1}, {live + "Starting\n", 0, 1},
        {live + "\n", 0, 0},            {dead + "starting\n", -1, 0},
        {"-", -1, 0},                   {"", -1, 0},
        {"starting 123\n", -1, 0},      {"-1 starting\n", -1, 0},
        {"0 starting\n", -1, 0},        {"\x01\x02\xff", -1, 0},
    };
    const std::string lockDir = m_host.path("kq/lock");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.lock);
        if (c.lock == "-")
            m_host.remove("kq/lock/101.lck");
        else
            m_host.write("kq/lock/101.lck", c.lock);
        int transition = -5;
        KQC::setErrorMessage("%s", "");
        EXPECT_EQ(VE::getVPSTransition(lockDir, 101, &transition), c.result);
        EXPECT_EQ(transition, c.transition);
        if (c.result != 0) {
            EXPECT_STRNE(KQC::getErrorMessage(), "");
        }
    }
    int transition = 0;
    EXPECT_EQ(VE::getVPSTransition(m_host.path("no/such/folder"), 101, &transition), -1);
    m_host.locked(101, livePid(), "mounting");
    EXPECT_EQ(VE::getVPSTransition(lockDir, 101, nullptr), 0);
}

TEST_F(KQSVEActionSystemLinuxListTest, OnlyWholeVeidConfNamesAreContainers)
{
    // A missing folder fails every time, not only the first.
    std::set<int> veids;
    EXPECT_EQ(VE::getVeidList(veids), -1);
    EXPECT_EQ(VE::getVeidList(veids), -1);
    m_host.settings();
    ASSERT_EQ(VE::getVeidList(veids), 0);
    EXPECT_TRUE(veids.empty());
    for (const char* name : {"101.conf", "1.conf", "0.conf", "101.conf.orig", "102.conf~", "103.conf.bak", "abc.conf",
                             "-5.conf", "+7.conf", " 8.conf", "99999999999.conf", ".conf", "ve-basic.conf-sample",
                             "104.mount"})
        m_host.write(std::string("etc/sysconfig/kq-scripts/") + name, "");
    ASSERT_EQ(VE::getVeidList(veids), 0) << KQC::getErrorMessage();
    EXPECT_EQ(veids, (std::set<int>{1, 101}));

    // A new file is seen; the kept answer serves while nothing changes.
    m_host.write("etc/sysconfig/kq-scripts/105.conf", "");
    ASSERT_EQ(VE::getVeidList(veids), 0);
    EXPECT_EQ(veids, (std::set<int>{1, 101, 105}));
    veids.clear();
    ASSERT_EQ(VE::getVeidList(veids), 0);
    EXPECT_EQ(veids, (std::set<int>{1, 101, 105}));
}

TEST_F(KQSVEActionSystemLinuxListTest, MountPointsOfKnownRootsAreMounted)
{
    std::set<int> veids;
    EXPECT_EQ(VE::getMountedVPSList(veids), -1);
    EXPECT_STREQ(KQC::getErrorMessage(), "Cannot open file /proc/mounts");

    VE::m_vpsRoots[m_host.path("kq/root/101")] = 101;
    VE::m_vpsRoots[m_host.path("kq/root/102")] = 102;
    m_host.write("proc/mounts", "garbage\n\n/dev/simfs " + m_host.path("kq/root/101") +
                                    " simfs rw 0 0\n/dev/simfs " + m_host.path("kq/root/1020") + " simfs rw 0 0\n" +
                                    "/dev/simfs " + m_host.path("kq/root") + " simfs rw 0 0\n");
    ASSERT_EQ(VE::getMountedVPSList(veids), 0);
    EXPECT_EQ(veids, std::set<int>{101});
}

TEST_F(KQSVEActionSystemLinuxListTest, TypePredicatesNeedAConfigurationWithTheType)
{
    boost::shared_ptr<KQSEnvConfig> none;
    EXPECT_FALSE(VE::isVPSExist(none));
    EXPECT_FALSE(VE::isVPSRepaired(none));
    EXPECT_FALSE(VE::isVPSForRepair(none));
    EXPECT_FALSE(VE::isVPSForTempOper(none));
    boost::shared_ptr<KQSEnvConfig> config(new KQSEnvConfig());
    EXPECT_FALSE(VE::isVPSExist(config));
    // Type -> made for a repair, under repair, a temporary operation.
    for (int type : {0, 4, 5, 6}) {
        if (type)
            config->setVEType(type);
        EXPECT_EQ(std::vector<bool>({VE::isVPSForRepair(config), VE::isVPSRepaired(config), VE::isVPSForTempOper(config)}),
                  std::vector<bool>({type == 4, type == 5, type == 6})) << type;
    }

    config->setVeid(101);
    config->setVEPrivateVar(m_host.path("kq/private/$VEID"));
    EXPECT_FALSE(VE::isVPSExist(config));
    m_host.write("kq/private/101", "a file, not a folder");
    EXPECT_FALSE(VE::isVPSExist(config));
    m_host.remove("kq/private/101");
    m_host.mkdir("kq/private/101");
    EXPECT_TRUE(VE::isVPSExist(config));
}

TEST_F(KQSVEActionSystemLinuxListTest, PrivateAndRootDirectoriesComeFromTheConfigurationFileTheLayoutFromTheArea)
{
    m_host.settings();
    m_host.container(101);
    std::string dir;
    ASSERT_EQ(VE::getPrivateDir(101, &dir), 0) << KQC::getErrorMessage();
    EXPECT_EQ(dir, m_host.path("kq/private/101"));
    ASSERT_EQ(VE::getRootDir(101, &dir), 0) << KQC::getErrorMessage();
    EXPECT_EQ(dir, m_host.path("kq/root/101"));
    // Older files keep the VEID variable.
    m_host.write(Host::configPath(102), "VE_PRIVATE=\"" + m_host.path("kq/private/$VEID") + "\"\n");
    ASSERT_EQ(VE::getPrivateDir(102, &dir), 0);
    EXPECT_EQ(dir, m_host.path("kq/private/102"));
    EXPECT_EQ(VE::getRootDir(102, &dir), -1);
    EXPECT_EQ(VE::getPrivateDir(103, &dir), -1);
    EXPECT_EQ(VE::getPrivateDir(101, nullptr), -1);

    // The layout version is asked of the control library.
    EXPECT_EQ(VE::getVEPrivateLayoutVersion(m_host.path("kq/private/101")), 3);
    m_host.write("kq/private/101/.ve.layout", "4\n");
    EXPECT_EQ(VE::getVEPrivateLayoutVersion(m_host.path("kq/private/101")), 4);
    EXPECT_EQ(VE::getVEPrivateLayoutVersion(m_host.path("kq/private/999")), -1);
    EXPECT_STRNE(KQC::getErrorMessage(), "");
}

// ---- on the simulated kernel, in preloaded children -----------------------

class KQSVEActionSystemLinuxListKernelTest : public ::testing::Test {
protected:
    Host m_host{kqtest::hostRoot()};
};

TEST_F(KQSVEActionSystemLinuxListKernelTest, RunningListLeavesTheHostOutAndGrowsItsRoom)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.running("101\n102\n");
    std::set<int> veids;
    ASSERT_EQ(VE::getRunVPSList(veids), 0) << KQC::getErrorMessage();
    EXPECT_EQ(veids, (std::set<int>{101, 102}));
    m_host.running("");
    ASSERT_EQ(VE::getRunVPSList(veids), 0);
    EXPECT_TRUE(veids.empty());

    // More than the first buffer holds: it grows its room.
    std::string running;
    for (int veid = 1000; veid < 4000; ++veid)
        running += std::to_string(veid) + "\n";
    m_host.running(running);
    ASSERT_EQ(VE::getRunVPSList(veids), 0) << KQC::getErrorMessage();
    EXPECT_EQ(veids.size(), 3000u);
    EXPECT_EQ(*veids.begin(), 1000);
    EXPECT_EQ(*veids.rbegin(), 3999);
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, RunningListFallsBackToTheBeancounters)
{
    if (kqtest::ranInPreloadedChild())
        return;
    // No control device: the beancounter ids are the running containers.
    m_host.write("var/lib/kqsim/kernel/host/fault.open", "ENOENT\n");
    std::string running;
    for (int veid = 1000; veid < 2100; ++veid)
        running += std::to_string(veid) + "\n";
    m_host.running(running);
    std::set<int> veids;
    ASSERT_EQ(VE::getRunVPSList(veids), 0) << KQC::getErrorMessage();
    EXPECT_EQ(veids.size(), 1100u);
    EXPECT_EQ(veids.count(0), 0u);
    // Neither way works.
    m_host.write("var/lib/kqsim/kernel/host/fault.ubc503", "EPERM\n");
    EXPECT_EQ(VE::getRunVPSList(veids), -1);
    EXPECT_STRNE(KQC::getErrorMessage(), "");
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, StatesComeFromTheHostsRecords)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101);                             // stopped
    m_host.container(102), m_host.mounted(102);        // mounted
    m_host.container(103), m_host.dumped(103);         // suspended
    m_host.container(104);                             // running
    m_host.container(105), m_host.dumped(105);         // running with a dump
    m_host.container(106), m_host.mounted(106), m_host.dumped(106);
    m_host.container(107, "", false);                  // no private area: gone
    m_host.container(108), m_host.write("kq/private/108/dump/Dump", "image");
    m_host.container(1);                               // never listed
    m_host.container(0);                               // the host
    m_host.write("etc/sysconfig/kq-scripts/101.conf.orig", "VE_PRIVATE=\"/\"\n");
    m_host.running("1\n104\n105\n");

    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(list), (std::map<int, int>{{101, 3}, {102, 4}, {103, 5}, {104, 6}, {105, 6}, {106, 5}, {108, 5}}));
    for (const auto& item : list)
        EXPECT_EQ(item.second.transition, 0) << item.first;

    // A refresh finds the states afresh.
    m_host.running("");
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(stateOf(list, 104), 3);
    EXPECT_EQ(stateOf(list, 105), 5);
}

// Dumps in private areas are seen whenever they come and go, also between
// listings that remember what the areas held.
TEST_F(KQSVEActionSystemLinuxListKernelTest, DumpsInPrivateAreasComeAndGo)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101);
    struct Step {
        const char* change;
        int state;
    } steps[] = {
        {"", 3},
        {"mkdir -p kq/private/101/dump", 3},
        {"touch kq/private/101/dump/Dump", 5},
        {"rm kq/private/101/dump/Dump", 3},
        {"touch kq/private/101/dump/Dump", 5},
        {"rm -r kq/private/101/dump", 3},
        {"mkdir -p kq/private/101/dump && touch kq/private/101/dump/Dump", 5},
        {"rm -r kq/private/101", -1},
    };
    for (const Step& step : steps) {
        ASSERT_EQ(0, kqtest::run("cd '" + m_host.path("") + "' && " + (*step.change ? step.change : "true")));
        KQSVPSList list;
        ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
        EXPECT_EQ(stateOf(list, 101), step.state) << "after: " << step.change;
    }
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, LocksGiveTransitions)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101), m_host.locked(101, livePid(), "checkpointing");
    m_host.container(102), m_host.locked(102, deadPid(), "starting");
    m_host.container(103, "", false), m_host.locked(103, deadPid(), "starting");
    m_host.locked(104, livePid(), "creating");     // being created: no configuration yet
    m_host.write("kq/lock/105.lck", "garbage\n");
    m_host.write("kq/lock/106.lck.tmp", livePid() + " creating\n");
    m_host.locked(1, livePid(), "starting");

    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    std::map<int, int> transitions;
    for (const auto& item : list)
        transitions[item.first] = item.second.transition;
    EXPECT_EQ(transitions, (std::map<int, int>{{101, 1}, {102, 0}, {104, 2}}));
    EXPECT_EQ(list[104].state, 1);
    ASSERT_TRUE(list[104].config);
    EXPECT_EQ(valueOf(*list[104].config, &KQSEnvConfig::getVeid), 104);
    EXPECT_EQ(valueOf(*list[104].config, &KQSEnvConfig::getType).str(), "corvantis");
    EXPECT_FALSE(propertyOf(*list[104].config, &KQSEnvConfig::getVERootVar).isSpecified());

    // The creation finished and the lock went away.
    m_host.remove("kq/lock/104.lck");
    m_host.container(104);
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(list[104].transition, 0);
    EXPECT_EQ(list[104].state, 3);
    EXPECT_TRUE(propertyOf(*list[104].config, &KQSEnvConfig::getVERootVar).isSpecified());
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, RepairKindsAreSortedOut)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101);
    m_host.container(10000000, "VE_TYPE=\"4\"\n");   // made for a repair
    m_host.container(102, "VE_TYPE=\"5\"\n");        // under repair
    m_host.container(103, "VE_TYPE=\"6\"\n");        // a temporary operation
    m_host.running("10000000\n103\n");

    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(list), (std::map<int, int>{{101, 3}, {102, 7}, {10000000, 6}}));

    KQSVPSList withoutRepairs;
    ASSERT_EQ(VE::getVPSList(withoutRepairs, true, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(withoutRepairs), (std::map<int, int>{{101, 3}, {102, 7}}));
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, OnlyGivenContainersAreRefreshed)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101);
    m_host.container(102);
    m_host.running("102\n");
    KQSVPSList list;
    list[102];
    ASSERT_EQ(VE::getVPSList(list, false, true), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(list), (std::map<int, int>{{102, 6}}));
    // An empty list means every container.
    KQSVPSList all;
    ASSERT_EQ(VE::getVPSList(all, false, true), 0);
    EXPECT_EQ(statesOf(all), (std::map<int, int>{{101, 3}, {102, 6}}));
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, UnreadableConfigurationsAreNamedGoneOnesAreNot)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    struct Case {
        int veid;
        const char* make;  // what takes the place of the file at $F
        bool named;        // among the unreadable, with the file's path
        bool listed;
    };
    const Case cases[] = {
        {101, "mkfifo \"$F\"", true, false},
        {102, "mkdir \"$F\"", true, false},
        {103, "ln -s /nonexistent \"$F\"", true, false},
        {104, "truncate -s 64M \"$F\"", true, false},
        // Running: listed without its configuration, so not left out.
        {105, "mkfifo \"$F\"", false, true},
        // No file at all: a container that is gone, not a broken one.
        {106, "true", false, false},
    };
    KQSVPSList list;
    for (const Case& c : cases) {
        m_host.container(c.veid);
        const std::string file = m_host.path(Host::configPath(c.veid));
        ASSERT_EQ(0, kqtest::run("F='" + file + "'; rm -f \"$F\" && " + c.make)) << c.veid;
        list[c.veid];
    }
    m_host.running("105\n");
    KQSUnreadableList unreadable;
    ASSERT_EQ(VE::getVPSList(list, false, true, &unreadable), 0) << KQC::getErrorMessage();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.veid);
        EXPECT_EQ(c.listed, list.count(c.veid) == 1);
        ASSERT_EQ(c.named, unreadable.count(c.veid) == 1);
        if (c.named) {
            EXPECT_NE(std::string::npos, unreadable[c.veid].find(m_host.path(Host::configPath(c.veid))))
                << unreadable[c.veid];
        }
    }
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, ConfigurationIsReadAndCompleted)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101, "NAME='web \\$server'\nDESCRIPTION='line\\\\one'\n"
                          "NETIF=\"name=eth0,ip=0.0.0.0,ip=10.0.0.2/24;name=eth1,ip=10.0.1.2/24\"\n");
    m_host.container(102, "NETIF=\"name=eth0,ip=0.0.0.0;name=eth1,ip=0.0.0.0\"\n");
    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    ASSERT_TRUE(list[101].config);
    const KQSEnvConfig& config = *list[101].config;
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getName), "web $server");
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getDescription), "line\\one");
    EXPECT_EQ(valueOf(config, &KQSEnvConfig::getVeid), 101);
    EXPECT_TRUE(propertyOf(config, &KQSEnvConfig::getAddresses).isSpecified());
    EXPECT_EQ(addressesOf(config), (std::vector<std::string>{"10.0.0.2/24", "10.0.1.2/24"}));
    EXPECT_EQ(VE::m_vpsRoots[m_host.path("kq/root/101")], 101);

    // The walk stops at the first adapter left without addresses (the
    // host-routed adapter that every container has comes last).
    KQSNetVEthList adapters = valueOf(*list[102].config, &KQSEnvConfig::getNetVEths);
    ASSERT_EQ(adapters.size(), 3u);
    EXPECT_TRUE(adapters[0].getAddresses().empty());
    EXPECT_EQ(adapters[1].getAddresses().size(), 1u);
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, RunningContainersShowTheirLiveAdaptersAndHostRoutedAddresses)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101, "NETIF=\"name=venet0,host_routed=yes,ip=10.1.1.1;name=eth0,ip=10.0.0.2/24;"
                          "name=eth1,dhcp=yes\"\n");
    m_host.container(102, "NETIF=\"name=venet0,host_routed=yes,ip=10.1.1.2;name=eth0,ip=10.0.0.3/24\"\n");
    m_host.container(103, "IP_ADDRESS=\"10.0.0.5 10.0.0.6\"\nNETIF=\"name=eth0,ip=10.1.0.2/24\"\n");
    m_host.running("101\n103\n");
    m_host.kernel(103, "veth.eth0.state", "up");
    m_host.kernel(101, "veth.eth0.state", "down");
    m_host.kernel(101, "veth.eth1.state", "up");
    m_host.kernel(101, "veth.eth1.addresses", "192.168.5.7/24");
    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();

    const int up = KQSNetVEth::STATUS_UP, down = KQSNetVEth::STATUS_DOWN, unknown = KQSNetVEth::STATUS_UNKNOWN;
    EXPECT_EQ(statusesOf(*list[101].config), (std::vector<int>{up, down, up}));
    KQSNetVEthList adapters = valueOf(*list[101].config, &KQSEnvConfig::getNetVEths);
    ASSERT_EQ(adapters.size(), 3u);
    ASSERT_EQ(adapters[2].getAddresses().size(), 1u);
    EXPECT_EQ(adapters[2].getAddresses()[0].toString(), "192.168.5.7/24");
    EXPECT_EQ(addressesOf(*list[101].config).size(), 3u);

    // A stopped container's adapters have no live state.
    EXPECT_EQ(statusesOf(*list[102].config)[0], unknown);

    // Host-routed addresses are listed beside the adapters' own, on the
    // default adapter that comes last.
    EXPECT_EQ(addressesOf(*list[103].config), (std::vector<std::string>{"10.1.0.2/24", "10.0.0.5", "10.0.0.6"}));
    EXPECT_EQ(statusesOf(*list[103].config), (std::vector<int>{up, up}));
    EXPECT_EQ(valueOf(*list[103].config, &KQSEnvConfig::getNetVEths).back().getName(), "venet0");

    // It stops: the state it had while running does not stay.
    m_host.running("");
    ASSERT_EQ(VE::getVPSList(list, false, false), 0);
    EXPECT_EQ(statusesOf(*list[101].config), (std::vector<int>{unknown, unknown, unknown}));
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, AdapterBothUpAndDownIsLoggedAndTheContainerStays)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings();
    m_host.container(101, "NETIF=\"name=eth0,ip=10.0.0.2/24\"\n");
    m_host.running("101\n");
    m_host.kernel(101, "veth.eth0.state", "up down");
    ASSERT_EQ(KQC::LogSettings::setFile(m_host.path("agent.log")), 0);
    KQC::LogSettings::setThreshold(1);
    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(stateOf(list, 101), 6);
    EXPECT_NE(kqtest::readFile(m_host.path("agent.log"))
                  .find("can't get parameters for veth:invalid up/down status of VEth: ctid:101 veth:\"eth0\"\n"),
              std::string::npos);

    KQSEnvConfig config(*list[101].config);
    EXPECT_EQ(VE::getActualParametersForVEth(config), -1);
    EXPECT_STREQ(KQC::getErrorMessage(), "invalid up/down status of VEth: ctid:101 veth:\"eth0\"");
    config.unsetVeid();
    EXPECT_EQ(VE::getActualParametersForVEth(config), -1);
    EXPECT_STREQ(KQC::getErrorMessage(), "can't get CTID");
    KQSEnvConfig empty;
    EXPECT_EQ(VE::getActualParametersForVEth(empty), 0);
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, BrokenHostsGiveTheirResults)
{
    if (kqtest::ranInPreloadedChild())
        return;
    KQSVPSList list;
    // No host settings.
    EXPECT_EQ(VE::getVPSList(list, false, false), -7);
    m_host.settings();
    m_host.container(101);
    m_host.write("etc/sysconfig/kq-scripts/102.conf", "this is = not \"a shell file\n");
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(list), (std::map<int, int>{{101, 3}}));
    // The mount table cannot be read.
    m_host.remove("proc/mounts");
    ASSERT_EQ(KQC::LogSettings::setFile(m_host.path("agent.log")), 0);
    KQC::LogSettings::setThreshold(1);
    EXPECT_EQ(VE::getVPSList(list, false, false), -1);
    EXPECT_STREQ(KQC::getErrorMessage(), "Cannot open file /proc/mounts");
    EXPECT_NE(kqtest::readFile(m_host.path("agent.log")).find(" Cannot open file /proc/mounts\n"), std::string::npos);
    m_host.write("proc/mounts", "");
    // The lock folder is gone; a missing dump folder is not an error.
    m_host.remove("kq/dump");
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    m_host.remove("kq/lock");
    EXPECT_EQ(VE::getVPSList(list, false, false), -1);
    m_host.mkdir("kq/lock");
    // The configuration folder is gone.
    m_host.remove("etc/sysconfig/kq-scripts");
    EXPECT_EQ(VE::getVPSList(list, false, false), -1);
}

TEST_F(KQSVEActionSystemLinuxListKernelTest, HostWithoutLockOrDumpFolderSettings)
{
    if (kqtest::ranInPreloadedChild())
        return;
    m_host.settings(false, false);
    m_host.container(101), m_host.dumped(101);
    m_host.locked(102, livePid(), "creating");
    KQSVPSList list;
    ASSERT_EQ(VE::getVPSList(list, false, false), 0) << KQC::getErrorMessage();
    EXPECT_EQ(statesOf(list), (std::map<int, int>{{101, 3}}));
}

} // namespace
