// Repair, stop-repair, move and clone through the console on simulated
// hosts: what lands on the host, what the tools were asked, and what the
// listing says afterwards.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class RepairE2ETest : public kqtest::SimulatedE2ETest {
protected:
    std::string area(int veid) const { return host.path("kq/private/" + std::to_string(veid)); }
    std::string value(int veid, const std::string& key) const { return kqtest::bashValue(confPath(veid), key); }
};

struct Layout {
    const char* option;
    const char* fileTree;  // of the repaired container
};

} // namespace

TEST_F(RepairE2ETest, RepairAndStopRepairRoundTripInBothLayouts)
{
    const Layout layouts[] = {{"3", "/root"}, {"4", "/fs/root"}};
    for (const Layout& layout : layouts) {
        SCOPED_TRACE(std::string("layout ") + layout.option);
        ASSERT_EQ(0, host.kqsim("fault --clear"));
        ASSERT_EQ(0, host.kqsim(std::string("add 101 --state running --hostname web1 --ip 10.0.0.11/24 ") +
                                "--offline-management yes --layout " + layout.option));
        const std::string accounts = std::string(layout.fileTree) + "/etc/";
        host.write("kq/private/101" + accounts + "passwd", "root:x:0:0::/root:/bin/sh\nann:x:500:500::/home/ann:/bin/sh\n");
        host.write("kq/private/101" + accounts + "group", "root:x:0:\nann:x:500:\n");

        kqtest::RunResult repair = json({"repair", "101"});
        ASSERT_EQ(0, repair.exitCode) << repair.out << repair.err;
        auto envs = listing();
        ASSERT_EQ(1u, envs.size());  // the repair container is not listed
        EXPECT_EQ(7, envs[101].at("state").as_int64());

        // The repair container: made, configured and started.
        const int repairVeid = 10000000;
        EXPECT_EQ("4", value(repairVeid, "VE_TYPE"));
        EXPECT_EQ("101", value(repairVeid, "REPAIRED_VEID"));
        EXPECT_EQ("web1", value(repairVeid, "HOSTNAME"));
        EXPECT_EQ("10.0.0.11/24", value(repairVeid, "IP_ADDRESS"));
        EXPECT_EQ("10000:10000", value(repairVeid, "DISKSPACE"));
        const std::string repairTree = area(repairVeid) + "/fs/root/etc/";
        for (const char* file : {"passwd", "shadow", "group"})
            EXPECT_EQ(host.read("kq/private/101" + accounts + file), kqtest::readFile(repairTree + file)) << file;
        EXPECT_EQ(host.read("etc/kqagent/repair/motd.sample"), kqtest::readFile(repairTree + "motd"));
        // The repaired container: marked, its repair-time scripts in place.
        EXPECT_EQ("5", value(101, "VE_TYPE"));
        EXPECT_EQ("no", value(101, "OFFLINE_MANAGEMENT"));
        struct stat st;
        ASSERT_EQ(0, ::stat((area(101) + "/scripts/mount").c_str(), &st));
        EXPECT_EQ(0755u, st.st_mode & 07777);
        EXPECT_EQ(host.read("etc/kqagent/repair/umount-repair.sample"), kqtest::readFile(area(101) + "/scripts/umount"));
        EXPECT_NE(std::string::npos, host.calls().find("[\"kqctl\",\"--skiplock\",\"start\",\"10000000\"]"));

        kqtest::RunResult stop = json({"stop-repair", "101"});
        ASSERT_EQ(0, stop.exitCode) << stop.out << stop.err;
        envs = listing();
        ASSERT_EQ(1u, envs.size());
        EXPECT_EQ(6, envs[101].at("state").as_int64());
        EXPECT_EQ("0", value(101, "VE_TYPE"));
        EXPECT_EQ("yes", value(101, "OFFLINE_MANAGEMENT"));  // as before the repair
        EXPECT_FALSE(kqtest::exists(confPath(repairVeid)));
        EXPECT_FALSE(kqtest::exists(area(repairVeid)));
        EXPECT_FALSE(kqtest::exists(area(101) + "/scripts/mount"));
        EXPECT_NE(std::string::npos, host.calls().find("[\"kqctl\",\"--skiplock\",\"destroy\",\"10000000\"]"));

        ASSERT_EQ(0, kqtest::agent(host.root(), {"stop", "101"}).exitCode);
        ASSERT_EQ(0, kqtest::agent(host.root(), {"destroy", "101"}).exitCode);
    }
}

TEST_F(RepairE2ETest, TheRepairVeidIsTheFirstFreeOneFromTenMillion)
{
    ASSERT_EQ(0, host.kqsim("add 101"));
    ASSERT_EQ(0, host.kqsim("add 10000000"));
    ASSERT_EQ(0, host.kqsim("add 10000001"));
    ASSERT_EQ(0, host.kqsim("add 10000003"));
    kqtest::RunResult repair = json({"repair", "101"});
    ASSERT_EQ(0, repair.exitCode) << repair.out;
    EXPECT_NE(std::string::npos, host.calls().find("\"create\",\"10000002\""));
    EXPECT_EQ("101", value(10000002, "REPAIRED_VEID"));
}

TEST_F(RepairE2ETest, MoveAndCloneRunTheMigrationToolWithTheseArguments)
{
    ASSERT_EQ(0, host.kqsim("add 101 --state running"));
    struct Case {
        std::vector<std::string> command;
        const char* call;
        int movedTo;  // a container the listing then has
    } cases[] = {
        {{"clone", "101", "205", "203"}, R"(["kqmlocal","-C","101:203::","203:205::"])", 205},
        {{"clone", "101", "207", "--a", "p", "--b", "q:r"}, R"(["kqmlocal","-C","101:207:p:q:r"])", 207},
        {{"move", "101", "301", "--a", "x", "--b", "y"}, R"(["kqmlocal","-s","101:301:x:y"])", 301},
        {{"move", "301", "302"}, R"(["kqmlocal","-s","301:302::"])", 302},
    };
    for (const Case& c : cases) {
        kqtest::RunResult run = json(c.command);
        EXPECT_EQ(0, run.exitCode) << c.call << run.out;
        EXPECT_NE(std::string::npos, host.calls().find(std::string(c.call) + "\n")) << c.call;
        EXPECT_EQ(1u, listing().count(c.movedTo)) << c.call;
    }
    // The moved container kept its identity and state; every copy has its own.
    auto envs = listing();
    ASSERT_EQ(4u, envs.size());
    EXPECT_EQ(6, envs[302].at("state").as_int64());
    EXPECT_EQ(3, envs[203].at("state").as_int64());
    std::set<std::string> eids;
    for (const auto& env : envs)
        eids.insert(std::string(env.second.at("eid").as_string()));
    EXPECT_EQ(4u, eids.size());
}

TEST_F(RepairE2ETest, MigrationToolFailuresBecomeTheseResults)
{
    ASSERT_EQ(0, host.kqsim("add 101"));
    struct Case {
        const char* exit;
        std::vector<std::string> command;
        int rc;
        const char* message;
    } cases[] = {
        {"9", {"move", "101", "301"}, -101, "kqmlocal move Container#101 failed: busy"},
        {"1", {"move", "101", "301"}, 1, "kqmlocal move Container#101 failed: busy"},
        {"9", {"clone", "101", "301", "302"}, -101, "kqmlocal clone Container#101 failed: busy"},
        {"1", {"clone", "101", "301"}, 1, "kqmlocal clone Container#101 failed: busy"},
        {"signal:9", {"move", "101", "301"}, 1, "kqmlocal move Container#101 failed: busy"},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(0, host.kqsim("fault --clear"));
        ASSERT_EQ(0, host.kqsim(std::string("fault kqmlocal '*' ") + c.exit + " busy"));
        kqtest::RunResult run = json(c.command);
        EXPECT_EQ(1, run.exitCode) << c.exit;
        EXPECT_EQ(c.rc, run.json().at("rc").as_int64()) << c.exit;
        EXPECT_EQ(c.message, run.json().at("error").as_string()) << c.exit;
    }
    EXPECT_EQ(1u, listing().count(101));
}

TEST_F(RepairE2ETest, BadRepairInputChangesNothing)
{
    ASSERT_EQ(0, host.kqsim("add 101"));
    ASSERT_EQ(0, host.kqsim("add 102"));
    // 102 lost its private area: the host no longer has it as a container,
    // so the console's start forgets it before the repair could be asked.
    std::filesystem::remove_all(area(102));
    struct Case {
        std::vector<std::string> command;
        int rc;
        const char* message;
    } cases[] = {
        {{"stop-repair", "101"}, -7, "unknown Container 101 type."},
        {{"repair", "102"}, 3804, "eid for ctid#102 not found"},
        {{"repair", "999"}, 3804, nullptr},
    };
    for (const Case& c : cases) {
        kqtest::RunResult run = json(c.command);
        EXPECT_EQ(c.rc, run.json().at("rc").as_int64()) << c.command[0] << " " << c.command[1];
        if (c.message) {
            EXPECT_EQ(c.message, run.json().at("error").as_string());
        }
    }
    EXPECT_EQ("", host.calls());
    EXPECT_FALSE(kqtest::exists(confPath(10000000)));
}

TEST_F(RepairE2ETest, StopRepairTakesDownWhatServesTheContainerAndNothingElse)
{
    ASSERT_EQ(0, host.kqsim("add 101 --type 5"));
    ASSERT_EQ(0, host.kqsim("add 102 --type 5"));
    struct Case {
        int veid;
        const char* record;  // appended to its configuration
        bool stays;
    } cases[] = {
        {10000000, "", false},                       // serves nobody: a repair died before recording
        {10000001, "REPAIRED_VEID=\"101\"\n", false},
        {10000002, "REPAIRED_VEID=\"102\"\n", true},  // another container's
        {10000003, "", true},                        // still being made: its lock is held
    };
    for (const Case& c : cases) {
        ASSERT_EQ(0, host.kqsim("add " + std::to_string(c.veid) + " --type 4 --state running"));
        host.write("etc/sysconfig/kq-scripts/" + std::to_string(c.veid) + ".conf",
                   kqtest::readFile(confPath(c.veid)) + c.record);
    }
    host.write("kq/lock/10000003.lck", std::to_string(::getpid()) + "\ncreating");

    kqtest::RunResult stop = json({"stop-repair", "101"});
    ASSERT_EQ(0, stop.exitCode) << stop.out;
    for (const Case& c : cases)
        EXPECT_EQ(c.stays, kqtest::exists(confPath(c.veid))) << c.veid;
    auto envs = listing();
    EXPECT_EQ(3, envs[101].at("state").as_int64());
    EXPECT_EQ(7, envs[102].at("state").as_int64());
}

TEST_F(RepairE2ETest, AnInterruptedCloneOrMoveIsSortedOutByTheNextListing)
{
    // Both are left as if the console died right after the migration tool:
    // a copy still carrying its source's record of identity, and a moved
    // container whose agent-side file still names the old VEID.
    ASSERT_EQ(0, host.kqsim("add 101 --state running"));
    ASSERT_EQ(0, host.kqsim("add 103 --state stopped"));
    auto before = listing();
    const std::string source = std::string(before[101].at("eid").as_string());
    const std::string moved = std::string(before[103].at("eid").as_string());

    ASSERT_EQ(0, host.kqsim("add 102 --state stopped"));
    host.write("kq/private/102/.kqs/eid.conf", kqtest::readFile(area(101) + "/.kqs/eid.conf"));
    ASSERT_EQ(0, kqtest::run("eval \"$(" KQ_BIN_DIR "/kqsim env '" + host.root() + "')\" && kqmlocal -s 103:104:: >/dev/null"));

    auto after = listing();
    ASSERT_EQ(3u, after.size());
    EXPECT_EQ(source, std::string(after[101].at("eid").as_string())) << "the source keeps its identity";
    EXPECT_NE(source, std::string(after[102].at("eid").as_string())) << "the copy gets one of its own";
    EXPECT_EQ(moved, std::string(after[104].at("eid").as_string())) << "the moved container keeps its identity";
}
