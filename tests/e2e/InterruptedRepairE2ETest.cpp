// Repair, stop-repair, move and clone killed part-way (SIGKILL to the
// console and the tool it runs): the next listing describes the host as it
// is, no container's data is lost, and stop-repair takes a half-done repair
// away.
#include "AgentRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/prctl.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// The marker of the container's own data, in its file tree.
const char kMarker[] = "/root/srv/data.txt";
const char kMarkerText[] = "kept\n";

// kqagent in a process group of its own, so that one kill takes it and the
// tools it runs.
class AgentProcess {
public:
    AgentProcess(const std::string& root, const std::vector<std::string>& args)
    {
        std::vector<std::string> argv = {std::string(KQ_BIN_DIR) + "/kqagent", "--root", root};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char*> pointers = kqtest::cStringArray(argv);
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        m_pid = ::fork();
        if (m_pid == 0) {
            ::setpgid(0, 0);
            int null = ::open("/dev/null", O_RDWR);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::execv(pointers[0], pointers.data());
            ::_exit(127);
        }
        ::setpgid(m_pid, m_pid);
    }
    ~AgentProcess() { kill(); }

    void kill()
    {
        if (m_pid <= 0)
            return;
        ::kill(-m_pid, SIGKILL);
        // The tools it ran die orphaned; as their subreaper this process
        // reaps them too. Until a dead tool is reaped its pid still shows in
        // /proc, and a lock it held would look live to the next listing.
        int status = 0;
        while (::waitpid(-m_pid, &status, 0) > 0 || errno == EINTR) {
        }
        m_pid = -1;
    }

private:
    pid_t m_pid = -1;
};

struct Listed {
    int state = 0;
    int transition = 0;
    std::string privateArea;
};

class InterruptedRepairE2ETest : public ::testing::Test {
protected:
    void prepare(kqtest::TempHost& host, const char* layout)
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim(std::string("add 101 --state running --ip 10.0.0.11/24 --layout ") + layout));
        const std::string tree = std::string(layout) == "4" ? "kq/private/101/fs" : "kq/private/101";
        host.write(tree + kMarker, kMarkerText);
        // Registered before anything is killed, as on a host in use.
        ASSERT_EQ(0, kqtest::agent(host.root(), {"list"}).exitCode);
    }

    static void waitForCall(const kqtest::TempHost& host, const std::string& call)
    {
        for (int i = 0; i < 3000 && host.calls().find(call) == std::string::npos; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ASSERT_NE(std::string::npos, host.calls().find(call)) << host.calls();
    }

    // The listing, checked against the host's files: every container listed
    // has its configuration and private area, no transition is claimed by
    // the dead, state 7 exactly for the containers marked under repair, and
    // the marked data is in exactly one private area, of a listed container.
    static std::map<int, Listed> truthfulListing(const kqtest::TempHost& host)
    {
        kqtest::RunResult run = kqtest::agent(host.root(), {"--json", "list"});
        EXPECT_EQ(0, run.exitCode) << run.out << run.err;
        std::map<int, Listed> listed;
        const boost::json::object result = run.json();
        if (!result.contains("envs"))
            return listed;
        for (const auto& value : result.at("envs").as_array()) {
            const auto& env = value.as_object();
            Listed& entry = listed[static_cast<int>(env.at("veid").as_int64())];
            entry.state = static_cast<int>(env.at("state").as_int64());
            entry.transition = static_cast<int>(env.at("transition").as_int64());
            entry.privateArea = std::string(env.at("ve_private").as_string());
        }
        int holders = 0;
        for (const auto& item : listed) {
            const std::string conf = host.path("etc/sysconfig/kq-scripts/" + std::to_string(item.first) + ".conf");
            EXPECT_TRUE(kqtest::exists(item.second.privateArea)) << item.first;
            EXPECT_EQ(0, item.second.transition) << item.first;
            EXPECT_EQ(kqtest::bashValue(conf, "VE_TYPE") == "5", item.second.state == 7) << item.first;
            for (const char* tree : {"", "/fs"})
                if (kqtest::readFile(item.second.privateArea + tree + kMarker) == kMarkerText)
                    ++holders;
        }
        EXPECT_EQ(1, holders) << "the container's data must be with exactly one listed container";
        return listed;
    }

    // No repair container is left and 101 is out of repair.
    static void expectNoRepairLeft(const kqtest::TempHost& host)
    {
        for (const char* veid : {"10000000", "10000001", "10000002"})
            EXPECT_FALSE(kqtest::exists(host.path(std::string("etc/sysconfig/kq-scripts/") + veid + ".conf"))) << veid;
        EXPECT_NE(7, truthfulListing(host)[101].state);
    }
};

} // namespace

TEST_F(InterruptedRepairE2ETest, KilledWhileAToolHangsStopRepairTakesTheRestAway)
{
    struct Case {
        const char* command;  // killed; a stop-repair follows a finished repair
        const char* fault;    // the tool run that hangs
        const char* call;     // its call in the log
        bool marked;          // whether the container is under repair by then
    } cases[] = {
        {"repair", "kqctl create sleep:60", R"(["kqctl","--skiplock","create","10000000")", false},
        {"repair", "kqctl start sleep:60", R"(["kqctl","--skiplock","start","10000000"])", true},
        // The repair container goes first, the mark last.
        {"stop-repair", "kqctl destroy sleep:60", R"(["kqctl","--skiplock","destroy","10000000"])", true},
    };
    for (const char* layout : {"3", "4"}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.command) + ", " + c.fault + ", layout " + layout);
            kqtest::TempHost host;
            prepare(host, layout);
            if (std::string(c.command) == "stop-repair")
                ASSERT_EQ(0, kqtest::agent(host.root(), {"repair", "101"}).exitCode);
            ASSERT_EQ(0, host.kqsim(std::string("fault ") + c.fault));
            {
                AgentProcess agent(host.root(), {c.command, "101"});
                waitForCall(host, c.call);
            }
            ASSERT_EQ(0, host.kqsim("fault --clear"));
            EXPECT_EQ(c.marked ? 7 : 6, truthfulListing(host)[101].state);
            if (c.marked) {
                kqtest::RunResult stop = kqtest::agent(host.root(), {"--json", "stop-repair", "101"});
                EXPECT_EQ(0, stop.exitCode) << stop.out;
            } else {
                // The dead repair's lock is stale: a new repair goes ahead.
                kqtest::RunResult again = kqtest::agent(host.root(), {"--json", "repair", "101"});
                EXPECT_EQ(0, again.exitCode) << again.out;
                EXPECT_EQ(0, kqtest::agent(host.root(), {"stop-repair", "101"}).exitCode);
            }
            expectNoRepairLeft(host);
        }
    }
}

TEST_F(InterruptedRepairE2ETest, KilledAtAnyMomentTheListingIsTruthful)
{
    // Kill times spread over the console's start and its work; where each
    // lands differs from run to run, and every landing must leave a host
    // the listing describes and that stop-repair (or a new repair and
    // stop-repair) brings back.
    for (int delay : {150, 250, 300, 350, 400, 450, 550}) {
        SCOPED_TRACE("repair killed after " + std::to_string(delay) + " ms");
        kqtest::TempHost host;
        prepare(host, delay % 100 == 50 ? "4" : "3");
        {
            AgentProcess agent(host.root(), {"repair", "101"});
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        }
        if (truthfulListing(host)[101].state != 7) {
            kqtest::RunResult again = kqtest::agent(host.root(), {"--json", "repair", "101"});
            if (again.exitCode != 0) {
                // Only a creation killed half-way may stand in the way: its
                // private area is there without a configuration, and the
                // tool refuses to make the same container over it.
                EXPECT_EQ(0u, again.json().at("error").as_string().find("kqctl create 10000000 failed")) << again.out;
                EXPECT_NE(7, truthfulListing(host)[101].state);
                continue;
            }
        }
        EXPECT_EQ(0, kqtest::agent(host.root(), {"stop-repair", "101"}).exitCode);
        expectNoRepairLeft(host);
    }
    for (int delay : {150, 220, 250, 270, 290, 320}) {
        SCOPED_TRACE("move killed after " + std::to_string(delay) + " ms");
        kqtest::TempHost host;
        prepare(host, delay % 20 == 0 ? "4" : "3");
        {
            AgentProcess agent(host.root(), {"move", "101", "301"});
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        }
        auto listed = truthfulListing(host);
        EXPECT_EQ(1u, listed.count(101) + listed.count(301));
    }
}

// Killed before the tool acted: the source is untouched and listed, and no
// half-registered copy is.
TEST_F(InterruptedRepairE2ETest, AMoveOrCloneKilledBeforeTheToolActedLeavesTheContainerWhereItWas)
{
    for (const char* command : {"move", "clone"}) {
        SCOPED_TRACE(command);
        kqtest::TempHost host;
        prepare(host, "4");
        ASSERT_EQ(0, host.kqsim("fault kqmlocal '*' sleep:60"));
        {
            AgentProcess agent(host.root(), {command, "101", "301"});
            waitForCall(host, std::string(R"(["kqmlocal",")") + (command[0] == 'm' ? "-s" : "-C") + R"(","101:301::"])");
        }
        ASSERT_EQ(0, host.kqsim("fault --clear"));
        auto listed = truthfulListing(host);
        EXPECT_EQ(6, listed[101].state);
        EXPECT_EQ(0u, listed.count(301));
        // Nothing stands in the way of doing it again.
        EXPECT_EQ(0, kqtest::agent(host.root(), {command, "101", "301"}).exitCode);
        std::set<int64_t> veids;
        const boost::json::object again = kqtest::agent(host.root(), {"--json", "list"}).json();
        for (const auto& env : again.at("envs").as_array())
            veids.insert(env.at("veid").as_int64());
        EXPECT_EQ((command[0] == 'm' ? std::set<int64_t>{301} : std::set<int64_t>{101, 301}), veids);
    }
}
