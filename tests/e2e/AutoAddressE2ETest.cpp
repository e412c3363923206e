// Containers created with automatic addresses from the host's pool, through
// the console on simulated hosts; and samples imported from files.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace {

const char kOsTemplate[] = "simos-9-x86_64";
const char kPool[] = "etc/kqagent/ip-pool.conf";

class AutoAddressE2ETest : public kqtest::E2ETest {
protected:
    void SetUp() override { ASSERT_EQ(0, host.simulated(simulatorOptions())); }
    virtual std::string simulatorOptions() const { return ""; }

    kqtest::RunResult create(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"create", "--ostemplate", kOsTemplate});
        return json(args);
    }
    std::vector<std::string> listedAddresses()
    {
        std::vector<std::string> out;
        const boost::json::object listing = json({"list"}).json();
        for (const auto& env : listing.at("envs").as_array())
            if (env.as_object().count("addresses"))
                for (const auto& address : env.as_object().at("addresses").as_array())
                    out.push_back(std::string(address.as_string()));
        return out;
    }
    size_t listedCount() { return json({"list"}).json().at("envs").as_array().size(); }
};

class AutoAddressPoolE2ETest : public AutoAddressE2ETest {
protected:
    std::string simulatorOptions() const override { return "--ip-pool 10.7.0.0/29"; }
};

TEST_F(AutoAddressPoolE2ETest, AnAutomaticAddressSkipsTheOnesInUseAndIsListed)
{
    ASSERT_EQ(0, host.kqsim("add 101 --state running --ip 10.7.0.1/29"));

    kqtest::RunResult made = create({"--name", "auto1", "--ip", "auto"});
    ASSERT_EQ(0, made.exitCode) << made.out << made.err;
    EXPECT_NE(std::string::npos, made.err.find("Adapter venet0 gets address 10.7.0.2/29")) << made.err;
    const auto env = made.json().at("env").as_object();
    const int veid = static_cast<int>(env.at("veid").as_int64());
    EXPECT_EQ("10.7.0.2/29", env.at("addresses").as_array().at(0).as_string());

    std::vector<std::string> listed = listedAddresses();
    EXPECT_EQ(1, std::count(listed.begin(), listed.end(), "10.7.0.2/29"));
    EXPECT_EQ("10.7.0.2/29", kqtest::bashValue(host.path("etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf"),
                                                "IP_ADDRESS"));

    // A fixed address beside an automatic one: both end up on the container.
    kqtest::RunResult mixed = create({"--ip", "10.9.9.9/24", "--ip", "auto"});
    ASSERT_EQ(0, mixed.exitCode) << mixed.out;
    auto addresses = mixed.json().at("env").as_object().at("addresses").as_array();
    ASSERT_EQ(2u, addresses.size());
    EXPECT_EQ("10.9.9.9/24", addresses[0].as_string());
    EXPECT_EQ("10.7.0.3/29", addresses[1].as_string());
}

TEST_F(AutoAddressE2ETest, ConcurrentCreatesGetDifferentAddresses)
{
    host.write(kPool, "10.8.0.0/28\n");
    const std::string agent = std::string(KQ_BIN_DIR) + "/kqagent --root '" + host.root() + "' --json create "
                              "--ostemplate " + kOsTemplate + " --ip auto";
    std::string script;
    for (int i = 0; i < 4; ++i)
        script += agent + " > '" + host.path("out" + std::to_string(i)) + "' 2>/dev/null & ";
    ASSERT_EQ(0, kqtest::run(script + "wait"));

    std::set<std::string> given;
    for (int i = 0; i < 4; ++i) {
        const std::string out = host.read("out" + std::to_string(i));
        ASSERT_NE(std::string::npos, out.find("\"rc\":0")) << out;
        given.insert(std::string(boost::json::parse(out).as_object().at("env").as_object().at("addresses")
                                     .as_array().at(0).as_string()));
    }
    EXPECT_EQ(4u, given.size());
    std::vector<std::string> listed = listedAddresses();
    EXPECT_EQ(given, std::set<std::string>(listed.begin(), listed.end()));
}

class AutoAddressIPv6E2ETest : public AutoAddressE2ETest {
protected:
    std::string simulatorOptions() const override { return "--ipv6"; }
};

TEST_F(AutoAddressIPv6E2ETest, AnAdapterAsksForAnIPv6Address)
{
    host.write(kPool, "10.8.0.0/24\nfd00:1::/64\n");
    kqtest::RunResult made = create({"--netif", "name=eth0,ip=auto6,ip=auto"});
    ASSERT_EQ(0, made.exitCode) << made.out << made.err;
    // Listing shows the default host-routed adapter beside the one asked for.
    boost::json::array addresses;
    const boost::json::object result = made.json();
    for (const auto& veth : result.at("env").as_object().at("veths").as_array())
        if (veth.as_object().at("name").as_string() == "eth0")
            addresses = veth.as_object().at("addresses").as_array();
    ASSERT_EQ(2u, addresses.size()) << made.out;
    EXPECT_EQ("fd00:1::1/64", addresses[0].as_string());
    EXPECT_EQ("10.8.0.1/24", addresses[1].as_string());
}

TEST_F(AutoAddressE2ETest, APoolThatCannotServeStopsTheCreationBeforeAnythingIsMade)
{
    struct {
        const char* pool;  // nullptr: no pool file
        std::vector<std::string> args;
        int rc;
        const char* message;
    } cases[] = {
        {nullptr, {"--ip", "auto"}, 3901, "no address pool is configured"},
        {"# empty\n", {"--ip", "auto"}, 3901, "has no ranges"},
        {"10.0.0.0/24\n10.0.0.7/24\n", {"--ip", "auto"}, 3902, "line 2: '10.0.0.7/24' has host bits set"},
        {"10.7.0.1/32\n", {"--ip", "auto"}, 3903, "the address pool has no free IPv4 address left"},
        {"10.7.0.2/32\n", {"--ip", "auto", "--ip", "auto"}, 3903, "no free IPv4 address left"},
        {"10.7.0.0/24\n", {"--ip", "auto6"}, 3903, "the address pool has no IPv6 range"},
    };
    ASSERT_EQ(0, host.kqsim("add 101 --ip 10.7.0.1/24"));
    for (const auto& c : cases) {
        std::remove(host.path(kPool).c_str());
        if (c.pool)
            host.write(kPool, c.pool);
        kqtest::RunResult run = create(c.args);
        EXPECT_EQ(1, run.exitCode) << c.message;
        auto result = run.json();
        EXPECT_EQ(c.rc, result.at("rc").as_int64()) << run.out;
        EXPECT_NE(std::string::npos, std::string(result.at("error").as_string()).find(c.message)) << run.out;
        EXPECT_EQ(1u, listedCount()) << c.message;
    }
    // The creation that got one address of two gave it back.
    EXPECT_EQ(std::string::npos, host.read("var/lib/kqagent/ip-pool.leases").find("10.7.0.2 "));
}

TEST_F(AutoAddressE2ETest, ImportedSamplesKeepTheirIdentityOnce)
{
    const std::string id = "{6b1a7c52-9e0d-4f3b-8a21-5d4c3b2a1f00}";
    host.write("in/web.conf", "NAME=\"webimp\"\nHOSTNAME=\"w1\"\nUUID=\"" + id + "\"\nVEID=\"77\"\n");
    kqtest::RunResult first = json({"sample", "import", host.path("in/web.conf")});
    ASSERT_EQ(0, first.exitCode) << first.out;
    EXPECT_EQ(id, first.json().at("id").as_string());
    EXPECT_NE(std::string::npos, first.err.find("Importing template 'webimp'")) << first.err;

    kqtest::RunResult second = json({"sample", "import", host.path("in/web.conf")});
    ASSERT_EQ(0, second.exitCode) << second.out;
    EXPECT_NE(id, second.json().at("id").as_string());
    kqtest::RunResult shown = json({"sample", "show", id});
    EXPECT_EQ("webimp", shown.json().at("samples").as_array().at(0).as_object().at("name").as_string());
    EXPECT_EQ("w1", kqtest::bashValue(host.path("etc/sysconfig/kq-scripts/ve-webimp_1.conf-sample"), "HOSTNAME"));

    // A file that does not read writes nothing.
    host.write("in/bad.conf", "NAME=\"unterminated\n");
    const size_t before = json({"sample", "list"}).json().at("samples").as_array().size();
    kqtest::RunResult bad = json({"sample", "import", host.path("in/bad.conf")});
    EXPECT_EQ(1, bad.exitCode) << bad.out;
    EXPECT_NE(std::string::npos, bad.out.find("can't parse sample file")) << bad.out;
    EXPECT_EQ(1, json({"sample", "import", host.path("in/none.conf")}).exitCode);
    EXPECT_EQ(before, json({"sample", "list"}).json().at("samples").as_array().size());
}

TEST_F(AutoAddressE2ETest, ImportWithoutTheCreateRightNeedsTheSampleRightOnAContainer)
{
    host.write("in/s.conf", "NAME=\"s\"\n");
    const std::string file = host.path("in/s.conf");
    kqtest::RunResult noContainers = json({"--deny", "63", "sample", "import", file});
    EXPECT_EQ(414, noContainers.json().at("rc").as_int64()) << noContainers.out;
    EXPECT_EQ("access denied: right 63 on the host", noContainers.json().at("error").as_string());

    ASSERT_EQ(0, host.kqsim("add 101"));
    EXPECT_EQ(0, json({"--deny", "63", "sample", "import", file}).exitCode);
    EXPECT_EQ(414, json({"--deny", "63,23", "sample", "import", file}).json().at("rc").as_int64());
}

} // namespace
