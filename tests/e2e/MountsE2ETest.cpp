// Device mounts through kqagent: live mounts on the simulated host, their
// records in the container's scripts or the host's table, and refusals.
#include "E2EFixture.h"

#include <gtest/gtest.h>

namespace {

class MountsE2ETest : public kqtest::SimulatedE2ETest {
protected:
    MountsE2ETest() : SimulatedE2ETest({"101 --state running", "102 --state stopped"}) {}
    boost::json::object agent(const std::vector<std::string>& args) { return json(args).json(); }
    // "device point type persistent mounted" per mount.
    std::vector<std::string> mounts(const std::string& ct)
    {
        boost::json::object result = agent({"mount", "list", ct});
        EXPECT_EQ(result["rc"].as_int64(), 0) << result["error"].as_string();
        std::vector<std::string> out;
        for (const auto& value : result["mounts"].as_array()) {
            const boost::json::object& m = value.as_object();
            out.push_back(std::string(m.at("device").as_string()) + " " + std::string(m.at("point").as_string()) +
                          " " + std::string(m.at("type").as_string()) + (m.at("persistent").as_bool() ? " p" : " -") +
                          (m.at("mounted").as_bool() ? " m" : " -"));
        }
        return out;
    }
    std::string script(const std::string& kind) { return host.read("etc/sysconfig/kq-scripts/101." + kind); }
};

TEST_F(MountsE2ETest, PersistentLiveMountJourney)
{
    EXPECT_EQ(agent({"mount", "add", "101", "--device", "/dev/sdb1", "--point", "/mnt/x", "--type", "ext4",
                     "--persistent", "--now"})["rc"].as_int64(),
              0);
    EXPECT_NE(host.read("proc/mounts").find("/dev/sdb1 " + host.root() + "/kq/root/101/mnt/x ext4"),
              std::string::npos);
    EXPECT_NE(script("mount").find("\nmount -n -t ext4 /dev/sdb1 $VE_ROOT/mnt/x\nexit 0\n"), std::string::npos);
    EXPECT_NE(script("umount").find("\numount $VE_ROOT/mnt/x\nexit 0\n"), std::string::npos);
    EXPECT_EQ(mounts("101"), std::vector<std::string>{"/dev/sdb1 /mnt/x ext4 p m"});

    boost::json::object again = agent({"mount", "add", "101", "--device", "/dev/sdb1", "--point", "/mnt/x", "--type",
                                       "ext4", "--persistent"});
    EXPECT_EQ(again["rc"].as_int64(), -4);

    EXPECT_EQ(agent({"mount", "rm", "101", "--point", "/mnt/x", "--now"})["rc"].as_int64(), 0);
    EXPECT_EQ(mounts("101"), std::vector<std::string>{"/dev/sdb1 /mnt/x ext4 p -"});
    EXPECT_EQ(agent({"mount", "rm", "101", "--point", "/mnt/x", "--persistent"})["rc"].as_int64(), 0);
    EXPECT_EQ(mounts("101"), std::vector<std::string>{});
    EXPECT_EQ(script("mount").find("/mnt/x"), std::string::npos);
}

TEST_F(MountsE2ETest, ScriptLinesAfterExitAreDroppedAndUnknownDevicesNotListed)
{
    kqtest::writeFile(host.path("etc/sysconfig/kq-scripts/101.mount"),
                      "#!/bin/bash\n  # mount -n /dev/sdb1 $VE_ROOT/comment\nmount -n /dev/nosuch $VE_ROOT/gone\n"
                      "mount -n /dev/sda1 $VE_ROOT/old\nexit 0\nmount -n /dev/sdb1 $VE_ROOT/late\n");
    EXPECT_EQ(mounts("101"), (std::vector<std::string>{"/dev/sda1 /old auto p -", "/dev/sdb1 /late auto p -"}));
    EXPECT_EQ(agent({"mount", "add", "101", "--device", "/dev/sdb1", "--point", "/new", "--type", "xfs",
                     "--persistent"})["rc"].as_int64(),
              0);
    EXPECT_EQ(script("mount"), "#!/bin/bash\n  # mount -n /dev/sdb1 $VE_ROOT/comment\nmount -n /dev/nosuch $VE_ROOT/gone\n"
                               "mount -n /dev/sda1 $VE_ROOT/old\nmount -n -t xfs /dev/sdb1 $VE_ROOT/new\nexit 0\n");
}

TEST_F(MountsE2ETest, HostMountsLiveInTheFileSystemTable)
{
    kqtest::writeFile(host.path("etc/fstab"), "# table\n/dev/sda1 / ext4 defaults 0 1\n"
                                              "/dev/sdb1 /backup ext4,xfs noauto 0 0\nnone /proc proc defaults 0 0\n"
                                              "/dev/sdc /odd oddfs defaults 0 0\n");
    EXPECT_EQ(agent({"mount", "add", "host", "--device", "/dev/sdb1", "--point", "/data", "--type", "ext4",
                     "--persistent", "--now"})["rc"].as_int64(),
              0);
    EXPECT_NE(host.read("etc/fstab").find("/dev/sdb1\t/data\text4\tdefaults\t0\t0\n"), std::string::npos);
    EXPECT_EQ(mounts("host"), (std::vector<std::string>{"/dev/sdb1 /data ext4 p m", "/dev/sda1 / ext4 p -",
                                                         "/dev/sdb1 /backup ext4,xfs - -", "none /proc proc p -"}));
    // Container mounts are not the host's.
    agent({"mount", "add", "101", "--device", "/dev/sda1", "--point", "/m", "--type", "ext4", "--now"});
    EXPECT_EQ(mounts("host").size(), 4u);
}

TEST_F(MountsE2ETest, RefusalsBadRequestsAndFailedMountsChangeNothing)
{
    const struct {
        std::vector<std::string> args;
        int rc;
    } cases[] = {
        {{"--deny", "74", "mount", "add", "101", "--device", "/dev/sdb1", "--point", "rel", "--type", "ext4", "--now"},
         414},
        {{"--deny", "74", "mount", "rm", "101", "--point", "/x", "--now"}, 414},
        {{"--deny", "73", "mount", "list", "101"}, 414},
        {{"mount", "add", "101", "--device", "/dev/sdb1", "--point", "rel", "--type", "ext4", "--now"}, -7},
        {{"mount", "add", "101", "--device", "/dev/sdb1", "--point", "/a/../../../x", "--type", "ext4", "--now"}, -7},
        {{"mount", "add", "102", "--device", "/dev/sdb1", "--point", "/x", "--type", "ext4", "--now"}, -8},
        {{"mount", "list", "102"}, -8},
    };
    for (const auto& c : cases)
        EXPECT_EQ(agent(c.args)["rc"].as_int64(), c.rc) << c.args.back();
    EXPECT_EQ(host.calls().find("\"mount\""), std::string::npos) << host.calls();

    // A live mount the tool fails is not recorded either.
    kqtest::writeFile(host.path("etc/kqsim/faults"), "mount * 32 special device does not exist\n");
    boost::json::object result =
        agent({"mount", "add", "101", "--device", "/dev/sdb1", "--point", "/d", "--type", "ext4", "--persistent", "--now"});
    EXPECT_EQ(result["rc"].as_int64(), -6);
    EXPECT_FALSE(kqtest::exists(host.path("etc/sysconfig/kq-scripts/101.mount")));
}

} // namespace
