// The simulated control tool: what each action does to the host's files,
// and the container's transition lock.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

namespace fs = std::filesystem;

class SimToolKqctlTest : public simtest::SimHostReadyTest {
protected:
    RunResult kqctl(const std::vector<std::string>& args) { return tool("kqctl", args); }

    void expectDone(const std::vector<std::string>& args)
    {
        RunResult result = kqctl(args);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_FALSE(result.out.empty()) << "every action prints progress";
    }

    std::string lockFile(int veid) const { return at("kq/lock/" + std::to_string(veid) + ".lck"); }
    std::string dumpFile(int veid) const { return at("kq/dump/Dump." + std::to_string(veid)); }
    bool isRunning(int veid) const
    {
        std::vector<std::string> list = runningList();
        return std::find(list.begin(), list.end(), std::to_string(veid)) != list.end();
    }
};

TEST_F(SimToolKqctlTest, StartStopAndRestart)
{
    addContainer({"101"});
    expectDone({"start", "101"});
    EXPECT_TRUE(isRunning(101));
    EXPECT_EQ(mounts(), mountLine(101));
    EXPECT_TRUE(fs::is_directory(rootDir(101)));

    RunResult again = kqctl({"start", "101"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_NE(again.out.find("already running"), std::string::npos);

    expectDone({"stop", "101", "--fast"});
    EXPECT_FALSE(isRunning(101));
    EXPECT_EQ(mounts(), "");
    EXPECT_EQ(kqctl({"stop", "101"}).exitCode, 0) << "stopping a stopped container is fine";
    EXPECT_EQ(kqctl({"stop", "101", "--slow"}).exitCode, 2);
    EXPECT_FALSE(fs::exists(lockFile(101)));

    // Restart leaves a running container running and starts a stopped one.
    addContainer({"102", "--state", "running"});
    addContainer({"103"});
    expectDone({"restart", "102"});
    expectDone({"restart", "103"});
    EXPECT_TRUE(isRunning(102));
    EXPECT_TRUE(isRunning(103));
    EXPECT_EQ(mounts(), mountLine(102) + mountLine(103));
}

TEST_F(SimToolKqctlTest, MountAndUmount)
{
    addContainer({"101"});
    expectDone({"mount", "101"});
    EXPECT_EQ(mounts(), mountLine(101));
    EXPECT_FALSE(isRunning(101));
    expectDone({"mount", "101"});
    EXPECT_EQ(mounts(), mountLine(101)) << "mounted once only";
    expectDone({"umount", "101"});
    EXPECT_EQ(mounts(), "");
    expectDone({"umount", "101"});

    addContainer({"102", "--state", "running"});
    RunResult running = kqctl({"umount", "102"});
    EXPECT_EQ(running.exitCode, 32);
    EXPECT_EQ(mounts(), mountLine(102));
}

TEST_F(SimToolKqctlTest, SuspendAndResume)
{
    addContainer({"101", "--state", "running"});
    expectDone({"suspend", "101"});
    EXPECT_TRUE(fs::is_regular_file(dumpFile(101)));
    EXPECT_FALSE(isRunning(101));
    EXPECT_EQ(mounts(), "");
    EXPECT_EQ(kqctl({"suspend", "101"}).exitCode, 31);

    expectDone({"resume", "101"});
    EXPECT_FALSE(fs::exists(dumpFile(101)));
    EXPECT_TRUE(isRunning(101));
    EXPECT_EQ(mounts(), mountLine(101));

    addContainer({"102"});
    RunResult noDump = kqctl({"resume", "102"});
    EXPECT_EQ(noDump.exitCode, 1);
    EXPECT_FALSE(isRunning(102));

    // Starting a suspended container drops its dump.
    addContainer({"103", "--state", "suspended"});
    expectDone({"start", "103"});
    EXPECT_TRUE(isRunning(103));
    EXPECT_FALSE(fs::exists(dumpFile(103)));
}

TEST_F(SimToolKqctlTest, DestroyRemovesEverythingOfAContainerThatDoesNotRun)
{
    addContainer({"101", "--state", "mounted"});
    addContainer({"102", "--layout", "4", "--state", "suspended"});
    expectDone({"destroy", "101"});
    expectDone({"destroy", "102"});
    for (int veid : {101, 102}) {
        EXPECT_FALSE(fs::exists(fs::symlink_status(at("etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf"))));
        EXPECT_FALSE(fs::exists(at("kq/private/" + std::to_string(veid))));
        EXPECT_FALSE(fs::exists(rootDir(veid)));
    }
    EXPECT_FALSE(fs::exists(dumpFile(102)));
    EXPECT_EQ(mounts(), "");
    EXPECT_EQ(kqctl({"destroy", "101"}).exitCode, 11);

    addContainer({"103", "--state", "running"});
    EXPECT_EQ(kqctl({"destroy", "103"}).exitCode, 32) << "a running container stays";
    EXPECT_TRUE(fs::exists(at("etc/sysconfig/kq-scripts/103.conf")));
    EXPECT_TRUE(fs::exists(at("kq/private/103/root/etc/passwd")));
}

TEST_F(SimToolKqctlTest, ExecNeverRunsAnything)
{
    addContainer({"101", "--state", "running"});
    addContainer({"102"});
    std::string marker = dir() + "/ran";
    EXPECT_EQ(kqctl({"exec", "101", "touch " + marker}).exitCode, 1);
    RunResult stopped = kqctl({"exec", "102", "touch " + marker});
    EXPECT_EQ(stopped.exitCode, 1);
    EXPECT_EQ(stopped.err, "Container is not running\n");
    EXPECT_FALSE(fs::exists(marker));
}

TEST_F(SimToolKqctlTest, BadCommandLinesAndQuietRuns)
{
    addContainer({"101"});
    EXPECT_EQ(kqctl({}).exitCode, 2);
    EXPECT_EQ(kqctl({"fly", "101"}).exitCode, 2);
    EXPECT_EQ(kqctl({"start"}).exitCode, 2);
    EXPECT_EQ(kqctl({"start", "abc"}).exitCode, 2);
    EXPECT_EQ(kqctl({"--bogus", "start", "101"}).exitCode, 2);
    RunResult missing = kqctl({"start", "999"});
    EXPECT_EQ(missing.exitCode, 11);
    EXPECT_EQ(missing.err, "Container 999 does not exist\n");
    EXPECT_FALSE(isRunning(101));

    RunResult result = kqctl({"--quiet", "start", "101"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(isRunning(101));
}

TEST_F(SimToolKqctlTest, LockHeldByALiveProcessRefusesOthersAreTakenOver)
{
    addContainer({"101"});
    std::string held = std::to_string(getpid()) + "\nmounting";
    kqtest::writeFile(lockFile(101), held);
    RunResult result = kqctl({"start", "101"});
    EXPECT_EQ(result.exitCode, 9);
    EXPECT_EQ(result.err, "Container already locked\n");
    EXPECT_FALSE(isRunning(101));
    EXPECT_EQ(kqtest::readFile(lockFile(101)), held) << "somebody else's lock stays as it was";

    expectDone({"--skiplock", "start", "101"});
    EXPECT_TRUE(isRunning(101));
    EXPECT_EQ(kqtest::readFile(lockFile(101)), held);

    // The lock of a dead process, or garbage, is taken over.
    addContainer({"102"});
    addContainer({"103"});
    kqtest::writeFile(lockFile(102), std::to_string(kqtest::deadPid()) + "\nstopping");
    kqtest::writeFile(lockFile(103), "");
    expectDone({"start", "102"});
    expectDone({"mount", "103"});
    EXPECT_TRUE(isRunning(102));
    EXPECT_EQ(mounts(), mountLine(101) + mountLine(102) + mountLine(103));
    ASSERT_EQ(0, ::unlink(lockFile(101).c_str()));
    std::vector<std::string> leftovers;
    for (const auto& entry : fs::directory_iterator(at("kq/lock")))
        leftovers.push_back(entry.path().string());
    EXPECT_TRUE(leftovers.empty()) << leftovers.front();
}

TEST_F(SimToolKqctlTest, ConcurrentActionsOnDifferentContainersKeepEveryChange)
{
    const int count = 6;
    for (int i = 0; i < count; ++i)
        addContainer({std::to_string(200 + i)});
    std::vector<std::vector<std::string>> runs;
    for (int i = 0; i < count; ++i)
        runs.push_back({"start", std::to_string(200 + i)});
    for (const RunResult& result : toolsAtOnce("kqctl", runs))
        EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(runningList().size(), static_cast<size_t>(count));
    EXPECT_EQ(simtest::lines(mounts()).size(), static_cast<size_t>(count));
}

TEST_F(SimToolKqctlTest, CreateMakesALayout4ContainerFromASampleOrRefuses)
{
    expectDone({"create", "200", "--config", "basic", "--name", "web", "--hostname", "web.sim.test"});
    std::string privateArea = at("kq/private/200");
    EXPECT_EQ(fs::read_symlink(at("etc/sysconfig/kq-scripts/200.conf")).string(), privateArea + "/ve.conf");
    EXPECT_EQ(kqtest::readFile(privateArea + "/.ve.layout"), "4\n");
    EXPECT_TRUE(fs::is_regular_file(privateArea + "/fs/root/etc/shadow"));
    std::string config = kqtest::readFile(privateArea + "/ve.conf");
    for (const std::string& line : {"VE_ROOT=\"" + rootDir(200) + "\"", "VE_PRIVATE=\"" + privateArea + "\"",
                                    std::string("DISKSPACE=\"2097152:2306867\""), std::string("NAME=\"web\""),
                                    std::string("HOSTNAME=\"web.sim.test\""), std::string("ORIGIN_SAMPLE=\"basic\""),
                                    std::string("OSTEMPLATE=\"simos-9-x86_64\"")})
        EXPECT_NE(config.find(line + "\n"), std::string::npos) << line << " in\n" << config;
    EXPECT_FALSE(fs::exists(lockFile(200)));

    // Refusals.
    addContainer({"101"});
    EXPECT_EQ(kqctl({"create", "101", "--config", "basic"}).exitCode, 44);
    EXPECT_EQ(kqctl({"create", "201", "--config", "missing"}).exitCode, 1);
    EXPECT_EQ(kqctl({"create", "201", "--config", "basic", "--ostemplate", "missing-os"}).exitCode, 1);
    EXPECT_EQ(kqctl({"create", "201", "--colour", "red"}).exitCode, 2);
    EXPECT_FALSE(fs::exists(at("kq/private/201")));
    fs::create_directories(at("kq/private/202"));
    EXPECT_EQ(kqctl({"create", "202", "--config", "basic"}).exitCode, 44);
}

TEST_F(SimToolKqctlTest, SetSavesOptionsThroughTheLink)
{
    ASSERT_EQ(kqctl({"create", "200", "--config", "basic"}).exitCode, 0);
    kqtest::writeFile(at("etc/sysconfig/kq-scripts/ve-extra.conf-sample"),
                       "DISKSPACE=\"1:2\"\nIP_ADDRESS=\"10.9.9.9\"\nCPUUNITS=\"77\"\n");
    expectDone({"set", "200", "--save", "--setmode", "restart", "--ipdel", "all", "--ipadd", "10.0.0.2/24",
                "--ipadd", "10.0.0.3/24", "--hostname", "", "--name", "renamed", "--description", "two words",
                "--applyconfig", "extra", "--offline_management", "yes"});
    EXPECT_TRUE(fs::is_symlink(at("etc/sysconfig/kq-scripts/200.conf")));
    std::string config = kqtest::readFile(at("kq/private/200/ve.conf"));
    for (const char* line : {"IP_ADDRESS=\"10.0.0.2/24 10.0.0.3/24\"", "HOSTNAME=\"\"", "NAME=\"renamed\"",
                             "DESCRIPTION=\"two words\"", "DISKSPACE=\"1:2\"", "CPUUNITS=\"77\"",
                             "OFFLINE_MANAGEMENT=\"yes\""})
        EXPECT_NE(config.find(std::string(line) + "\n"), std::string::npos) << line << " in\n" << config;
    expectDone({"set", "200", "--save", "--ipdel", "10.0.0.2"});
    EXPECT_NE(kqtest::readFile(at("kq/private/200/ve.conf")).find("IP_ADDRESS=\"10.0.0.3/24\"\n"), std::string::npos);
}

TEST_F(SimToolKqctlTest, SetEditsAdaptersAndNameservers)
{
    addContainer({"101", "--netif", "name=venet0,host_routed=yes"});
    std::string file = at("etc/sysconfig/kq-scripts/101.conf");
    auto netif = [&] {
        RunResult result = bash("source '" + file + "' && printf '%s' \"$NETIF\"");
        return result.out;
    };
    expectDone({"set", "101", "--netif_add", "eth0", "--save"});
    EXPECT_EQ(netif(), "name=venet0,host_routed=yes;name=eth0,mac=02:4b:00:00:65:01");
    expectDone({"set", "101", "--ifname", "eth0", "--mac", "02:00:00:00:00:07", "--dhcp", "no", "--ipdel", "all",
                "--ipadd", "10.0.0.5/24", "--network=lan", "--gw", "10.0.0.1", "--save"});
    EXPECT_EQ(netif(), "name=venet0,host_routed=yes;"
                       "name=eth0,mac=02:00:00:00:00:07,dhcp=no,ip=10.0.0.5/24,network=lan,gw=10.0.0.1");
    expectDone({"set", "101", "--ifname", "eth0", "--network=", "--netif_mac_renew", "--save"});
    EXPECT_EQ(netif().find("network="), std::string::npos);
    EXPECT_EQ(netif().find("02:00:00:00:00:07"), std::string::npos);
    expectDone({"set", "101", "--netif_del", "eth0", "--save"});
    EXPECT_EQ(netif(), "name=venet0,host_routed=yes");
    EXPECT_EQ(kqctl({"set", "101", "--netif_del", "eth9", "--save"}).exitCode, 1);
    EXPECT_EQ(kqctl({"set", "101", "--mac", "02:00:00:00:00:01", "--save"}).exitCode, 2) << "--mac needs --ifname";

    expectDone({"set", "101", "--save", "--nameserver", "10.0.0.53", "--nameserver", "10.0.0.54"});
    EXPECT_NE(kqtest::readFile(file).find("NAMESERVER=\"10.0.0.53 10.0.0.54\"\n"), std::string::npos);
    expectDone({"unset", "101", "--save", "--nameserver"});
    EXPECT_EQ(kqtest::readFile(file).find("NAMESERVER="), std::string::npos);
}

TEST_F(SimToolKqctlTest, SetUserPasswordAndRefusals)
{
    addContainer({"101"});
    expectDone({"set", "101", "--save", "--userpasswd", "root:n3w:pass"});
    std::string shadow = kqtest::readFile(at("kq/private/101/root/etc/shadow"));
    EXPECT_EQ(shadow.compare(0, 8, "root:$6$"), 0);
    expectDone({"set", "101", "--save", "--userpasswd", "alice:pw"});
    EXPECT_NE(kqtest::readFile(at("kq/private/101/root/etc/passwd")).find("alice:x:1000:1000:"), std::string::npos);
    EXPECT_EQ(kqctl({"set", "101", "--save", "--userpasswd", "nocolon"}).exitCode, 2);
    EXPECT_EQ(kqctl({"set", "101", "--save", "--onboot", "perhaps"}).exitCode, 2);
    EXPECT_EQ(kqctl({"set", "101", "--bogus"}).exitCode, 2);
    EXPECT_EQ(kqctl({"set", "999", "--save", "--name", "x"}).exitCode, 11);
    EXPECT_EQ(kqctl({"unset", "101", "--save", "--bogus"}).exitCode, 2);
    expectDone({"unset", "101", "--save", "--offline_service", "--iptables", "--rate"});
}

} // namespace
