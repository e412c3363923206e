// kqsim, the admin tool: making hosts, containers, kernel values.
#include "SimToolTestSupport.h"

#include <dlfcn.h>

namespace {

using simtest::lines;
using simtest::RunResult;

namespace fs = std::filesystem;

class KqsimTest : public simtest::SimHostTest {
protected:
    std::string configOf(int veid) const
    {
        return kqtest::readFile(at("etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf"));
    }

    // A value of a configuration file as bash reads it.
    std::string sourced(const std::string& file, const std::string& key)
    {
        RunResult result = bash("source '" + file + "' && printf '%s' \"$" + key + "\"");
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }

    bool isRegular(const std::string& relative) const { return fs::is_regular_file(at(relative)); }
};

TEST_F(KqsimTest, InitMakesTheHostTreeWithTemplatesAndRelease)
{
    initHost();
    std::string settings = kqtest::readFile(at("etc/sysconfig/kq"));
    EXPECT_NE(settings.find("VE_ROOT=\"" + root() + "/kq/root/$VEID\"\n"), std::string::npos) << settings;
    EXPECT_NE(settings.find("VE_PRIVATE=\"" + root() + "/kq/private/$VEID\"\n"), std::string::npos);
    EXPECT_NE(settings.find("LOCKDIR=\"" + root() + "/kq/lock\"\n"), std::string::npos);
    EXPECT_NE(settings.find("DUMPDIR=\"" + root() + "/kq/dump\"\n"), std::string::npos);
    EXPECT_NE(settings.find("TEMPLATE=\"" + root() + "/kq/template\"\n"), std::string::npos);
    for (const char* folder : {"kq/lock", "kq/dump", "kq/root", "kq/private", "etc/kqagent/configs",
                               "var/lib/kqagent", "var/lib/kqsim"})
        EXPECT_TRUE(fs::is_directory(at(folder))) << folder;
    for (const char* empty : {"proc/mounts", "var/log/kqsim/calls.log", "etc/kqsim/faults", "dev/kqctl"}) {
        EXPECT_TRUE(isRegular(empty)) << empty;
        EXPECT_EQ(kqtest::readFile(at(empty)), "") << empty;
    }
    EXPECT_TRUE(isRegular("etc/sysconfig/kq-scripts/ve-basic.conf-sample"));
    EXPECT_NE(kqtest::readFile(at("proc/cpuinfo")).find("cpu MHz\t\t: 1000.000"), std::string::npos);
    EXPECT_TRUE(isRegular("etc/os-release"));
    EXPECT_EQ(fs::read_symlink(at("bin/kqps")).string(), simtest::toolsDir() + "/kqps");
    // The agent's data files come from the project's framework/data/etc.
    for (const char* file : {"repairve.conf", "motd.sample", "mount-repair.sample", "umount-repair.sample"})
        EXPECT_TRUE(isRegular(std::string("etc/kqagent/repair/") + file)) << file;
    EXPECT_TRUE(isRegular("etc/kqagent/mount-action.sample"));

    // Templates come with their configuration files.
    std::string osConf = kqtest::readFile(at("kq/template/simos-9-x86_64/conf/simos-9-x86_64.conf.20260101"));
    EXPECT_NE(osConf.find("%cached\nyes\n"), std::string::npos);
    EXPECT_NE(osConf.find("%basedir\nsimos-9-x86_64\n"), std::string::npos);
    EXPECT_NE(osConf.find("%base_version 20260101\n"), std::string::npos);
    EXPECT_TRUE(isRegular("kq/template/simos-9-x86_64-20260101.tar.gz"));
    std::string appConf = kqtest::readFile(at("kq/template/webstack/conf/webstack.conf.20260101"));
    EXPECT_NE(appConf.find("%cached\nno\n"), std::string::npos);
    EXPECT_NE(appConf.find("%version 20260101\nhttpd\n"), std::string::npos);
    EXPECT_FALSE(isRegular("kq/template/webstack-20260101.tar.gz"));

    // Without --ipv6 the release has no IPv6.
    EXPECT_EQ(kqtest::readFile(at("usr/share/corvantis-release/packing.lst")), "corvantis-release-4.6.0-120\n");
    EXPECT_FALSE(fs::exists(at("proc/net/if_inet6")));
    fs::remove_all(root());
    initHost({"--ipv6"});
    EXPECT_EQ(kqtest::readFile(at("usr/share/corvantis-release/packing.lst")), "corvantis-release-4.7.0-310\n");
    EXPECT_TRUE(isRegular("proc/net/if_inet6"));

    // The environment file, and the exports "env" prints from it.
    std::vector<std::string> env = lines(kqtest::readFile(at("etc/kqsim/env")));
    std::string preload = std::string(KQ_LIB_DIR) + "/libkqsimkernel.so";
    EXPECT_EQ(env, (std::vector<std::string>{"KQ_HOST_ROOT=" + root(), "KQSIM_BIN=" + simtest::toolsDir(),
                                             "KQSIM_PRELOAD=" + preload}));
    RunResult result = kqsim({"env", root()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::vector<std::string> exports = lines(result.out);
    ASSERT_GE(exports.size(), 3u);
    EXPECT_EQ(exports[0], "export KQ_HOST_ROOT=" + root());
    EXPECT_EQ(exports[1], "export PATH=" + simtest::toolsDir() + ":$PATH");
    EXPECT_EQ(exports[2], "export LD_PRELOAD=" + preload);
    if (exports.size() > 3) {
        EXPECT_EQ(exports[3], "export ASAN_OPTIONS=verify_asan_link_order=0") << "sanitized builds only";
    }
}

TEST_F(KqsimTest, InitRefusesExistingContent)
{
    initHost();
    RunResult again = kqsim({"init", root()});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_NE(again.err.find("already a simulated host"), std::string::npos) << again.err;

    std::string other = dir() + "/other";
    fs::create_directories(other);
    kqtest::writeFile(other + "/file", "x");
    EXPECT_EQ(kqsim({"init", other}).exitCode, 1);
    EXPECT_EQ(kqtest::readFile(other + "/file"), "x");

    std::string empty = dir() + "/empty";
    fs::create_directories(empty);
    EXPECT_EQ(kqsim({"init", empty}).exitCode, 0);
}

TEST_F(KqsimTest, AddMakesEachState)
{
    initHost();
    addContainer({"101"});
    addContainer({"102", "--state", "mounted"});
    addContainer({"103", "--state", "suspended"});
    addContainer({"104", "--state", "running"});
    // Odd VEIDs are accepted too.
    addContainer({"0"});
    addContainer({"1", "--state", "running"});
    EXPECT_TRUE(fs::exists(at("etc/sysconfig/kq-scripts/0.conf")));
    EXPECT_EQ(mounts(), mountLine(102) + mountLine(104) + mountLine(1));
    EXPECT_EQ(runningList(), (std::vector<std::string>{"1", "104"}));
    EXPECT_TRUE(isRegular("kq/dump/Dump.103"));
    EXPECT_FALSE(fs::exists(at("kq/dump/Dump.101")));
    for (int veid : {101, 102, 103, 104}) {
        std::string config = configOf(veid);
        EXPECT_NE(config.find("VE_ROOT=\"" + rootDir(veid) + "\"\n"), std::string::npos) << config;
        EXPECT_NE(config.find("VE_PRIVATE=\"" + root() + "/kq/private/" + std::to_string(veid) + "\"\n"),
                  std::string::npos);
        EXPECT_NE(config.find("OSTEMPLATE=\"simos-9-x86_64\"\n"), std::string::npos);
    }
}

TEST_F(KqsimTest, AddLayoutsPlaceTheFileTreeAndConfiguration)
{
    initHost();
    addContainer({"101"});
    addContainer({"102", "--layout", "4"});
    std::string private3 = at("kq/private/101");
    EXPECT_TRUE(fs::is_regular_file(private3 + "/root/etc/passwd"));
    EXPECT_TRUE(fs::is_regular_file(private3 + "/root/etc/group"));
    EXPECT_FALSE(fs::exists(private3 + "/.ve.layout"));
    EXPECT_FALSE(fs::is_symlink(at("etc/sysconfig/kq-scripts/101.conf")));

    std::string private4 = at("kq/private/102");
    EXPECT_EQ(kqtest::readFile(private4 + "/.ve.layout"), "4\n");
    EXPECT_TRUE(fs::is_regular_file(private4 + "/fs/root/etc/shadow"));
    EXPECT_TRUE(fs::is_directory(private4 + "/scripts"));
    EXPECT_EQ(fs::read_symlink(at("etc/sysconfig/kq-scripts/102.conf")).string(), private4 + "/ve.conf");
    EXPECT_NE(configOf(102).find("VE_PRIVATE=\"" + private4 + "\""), std::string::npos);
}

TEST_F(KqsimTest, AddRootPasswordIsSecret)
{
    initHost();
    addContainer({"101"});
    std::string shadow = kqtest::readFile(at("kq/private/101/root/etc/shadow"));
    ASSERT_EQ(shadow.compare(0, 8, "root:$6$"), 0) << shadow;
    std::string hash = shadow.substr(5, shadow.find(':', 5) - 5);
    void* library = dlopen("libcrypt.so.1", RTLD_NOW);
    ASSERT_NE(library, nullptr);
    auto cryptFunction = reinterpret_cast<char* (*)(const char*, const char*)>(dlsym(library, "crypt"));
    ASSERT_NE(cryptFunction, nullptr);
    EXPECT_EQ(std::string(cryptFunction("secret", hash.c_str())), hash);
    EXPECT_NE(std::string(cryptFunction("wrong", hash.c_str())), hash);
    dlclose(library);
}

TEST_F(KqsimTest, AddOptionsReadBackExactlyThroughBash)
{
    initHost();
    std::string name = "a \"quoted\" $HOME `x` \\ 'single'\nsecond line";
    addContainer({"101", "--name", name, "--hostname", "ct101.sim.test", "--ip", "10.0.0.2/24", "--ip",
                  "fd00::2/64", "--ostemplate", "other-os", "--type", "5", "--offline-management", "yes"});
    std::string file = at("etc/sysconfig/kq-scripts/101.conf");
    // The name is stored as the control tool stores it: escaped once more
    // inside the file's quoting, for the listing to undo.
    EXPECT_EQ(sourced(file, "NAME"), "a \\\"quoted\\\" \\$HOME \\`x\\` \\\\ 'single'\nsecond line");
    EXPECT_EQ(sourced(file, "HOSTNAME"), "ct101.sim.test");
    EXPECT_EQ(sourced(file, "IP_ADDRESS"), "10.0.0.2/24 fd00::2/64");
    EXPECT_EQ(sourced(file, "OSTEMPLATE"), "other-os");
    EXPECT_EQ(sourced(file, "VE_TYPE"), "5");
    EXPECT_EQ(sourced(file, "OFFLINE_MANAGEMENT"), "yes");

    // Adapters are stored as one line.
    addContainer({"102", "--netif", "name=eth0,ip=10.0.0.2/24,ip=10.0.0.3/24,dhcp=no,gw=10.0.0.1,ns=10.0.0.53",
                  "--netif", "host_routed=yes,name=venet0", "--netif", "name=eth1,mac=02:00:00:00:00:09,dhcp=yes"});
    EXPECT_EQ(sourced(at("etc/sysconfig/kq-scripts/102.conf"), "NETIF"),
              "name=eth0,ip=10.0.0.2/24,ip=10.0.0.3/24,dhcp=no,gw=10.0.0.1,ns=10.0.0.53,mac=02:4b:00:00:66:00;"
              "name=venet0,host_routed=yes;"
              "name=eth1,mac=02:00:00:00:00:09,dhcp=yes");
}

// Malformed requests of every command are usage errors that change nothing.
TEST_F(KqsimTest, MalformedRequestsAreUsageErrors)
{
    initHost();
    const std::vector<std::vector<std::string>> requests = {
        {"add", "101", "--netif", "ip=10.0.0.2/24"}, {"add", "101", "--netif", "name=eth0,colour=red"},
        {"add", "101", "--netif", "name=eth0,dhcp=maybe"}, {"add", "101", "--state", "sleeping"},
        {"add", "101", "--layout", "5"}, {"add", "abc"}, {"set", "101", "colour", "red"},
        {"set", "101", "quota.loaded", "2"}, {"set", "101", "quota.block_hard", "many"},
        {"set", "101", "quota.inode_soft", "-1"}, {"set", "101", "net.1", "1 2 3"}, {"set", "101", "cpu", "1 2 3 4 5"},
        {"set", "101", "loadavg", "1 2 x"}, {"set", "101", "slm", "1:2"}, {"set", "101", "ubc.x", "1 2 3 4 5 6 7 8"},
        {"set", "101", "ubc.2", "1 2"}, {"set", "101", "veth.eth0.state", "half"},
        {"set", "101", "fault.ioctl", "EBOGUS 1"}, {"set", "101", "fault.ioctl", "EBUSY"},
        {"set", "101", "fault.ubc503", "EPERM"}, {"set", "101", "veth..state", "up"},
        {"set", "101", "fault.open", "ENOENT 2"}, {"set", "x", "cpu", "1 2 3 4 5 6"}, {"proc", "101", "0", "1"},
        {"proc", "101", "x", "1"}, {"fault", "kqctl", "start", "256"}, {"fault", "kqctl", "start", "signal:x"},
        {"fault", "kqctl", "start", "sleep:"}, {"fault", "kqctl"}};
    for (std::vector<std::string> request : requests) {
        request.insert(request.begin() + 1, root());
        EXPECT_EQ(kqsim(request).exitCode, 2) << request[0] << " " << request.back();
    }
    EXPECT_NE(kqsim({"set", root(), "101", "colour", "red"}).err.find("unknown key 'colour'"), std::string::npos);
    EXPECT_EQ(kqsim({"frobnicate"}).exitCode, 2);
    EXPECT_EQ(kqsim({}).exitCode, 2);
    EXPECT_FALSE(fs::exists(at("etc/sysconfig/kq-scripts/101.conf")));
    EXPECT_FALSE(fs::exists(at("var/lib/kqsim/kernel/101")));
    EXPECT_FALSE(fs::exists(at("var/lib/kqsim/proc/101")));
    EXPECT_EQ(kqtest::readFile(at("etc/kqsim/faults")), "");
}

TEST_F(KqsimTest, AddRefusesAnotherFolderAndAnExistingContainer)
{
    initHost();
    EXPECT_EQ(kqsim({"add", dir(), "101"}).exitCode, 1);

    addContainer({"101"});
    RunResult again = kqsim({"add", root(), "101"});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_NE(again.err.find("already exists"), std::string::npos) << again.err;
}

TEST_F(KqsimTest, SetStoresKernelValues)
{
    initHost();
    struct Case {
        const char* key;
        const char* value;
        const char* file;
    } cases[] = {
        {"quota.loaded", "0", "kernel/101/quota.loaded"},
        {"quota.block_usage", "4096", "kernel/101/quota.block_usage"},
        {"net.1", "10 20 30 40", "kernel/101/net.1"},
        {"cpu", "1 2 3 4 5 6", "kernel/101/cpu"},
        {"loadavg", "0.15 1.00 2.50", "kernel/101/loadavg"},
        {"slm", "1:2:300,4:5:600", "kernel/101/slm"},
        {"veth.eth0.state", "down", "kernel/101/veth.eth0.state"},
        {"veth.eth0.addresses", "10.0.0.9/24 fd00::9/64", "kernel/101/veth.eth0.addresses"},
        {"ubc.count", "24", "kernel/host/ubc.count"},
        {"ubc.3", "1 2 3 4 5 6 7 18446744073709551615", "kernel/host/ubc.3"},
        {"fault.ioctl", "ENOTTY 2", "kernel/host/fault.ioctl"},
        {"fault.ubc503", "ENOSYS", "kernel/host/fault.ubc503"},
        {"fault.open", "ENOENT", "kernel/host/fault.open"},
    };
    for (const Case& c : cases) {
        RunResult result = kqsim({"set", root(), "101", c.key, c.value});
        ASSERT_EQ(result.exitCode, 0) << c.key << ": " << result.err;
        EXPECT_EQ(kqtest::readFile(at(std::string("var/lib/kqsim/") + c.file)), c.value) << c.key;
    }
}

TEST_F(KqsimTest, ProcAppendsProcessLines)
{
    initHost();
    ASSERT_EQ(kqsim({"proc", root(), "101", "1", "4242"}).exitCode, 0);
    ASSERT_EQ(kqsim({"proc", root(), "101", "17", "4243", "/usr/sbin/httpd -k start"}).exitCode, 0);
    EXPECT_EQ(kqtest::readFile(at("var/lib/kqsim/proc/101")), "1 4242 init\n17 4243 /usr/sbin/httpd -k start\n");
}

TEST_F(KqsimTest, FaultRulesAreCheckedAndCleared)
{
    initHost();
    ASSERT_EQ(kqsim({"fault", root(), "kqctl", "start", "32", "Container is running"}).exitCode, 0);
    ASSERT_EQ(kqsim({"fault", root(), "kqps", "*", "signal:9"}).exitCode, 0);
    ASSERT_EQ(kqsim({"fault", root(), "kqctl", "stop", "sleep:1"}).exitCode, 0);
    EXPECT_EQ(kqtest::readFile(at("etc/kqsim/faults")),
              "kqctl start 32 Container is running\nkqps * signal:9\nkqctl stop sleep:1\n");
    ASSERT_EQ(kqsim({"fault", root(), "--clear"}).exitCode, 0);
    EXPECT_EQ(kqtest::readFile(at("etc/kqsim/faults")), "");
}

TEST_F(KqsimTest, CallsPrintsTheLog)
{
    initHost();
    kqtest::writeFile(at("var/log/kqsim/calls.log"), "[\"kqctl\",\"start\",\"101\"]\n");
    RunResult result = kqsim({"calls", root()});
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "[\"kqctl\",\"start\",\"101\"]\n");
}

} // namespace
