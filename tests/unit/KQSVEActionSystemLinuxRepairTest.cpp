// Repair, stop-repair and clone refusing what they cannot work with, on a
// simulated host: the result, the message, and that nothing was run.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <functional>
#include <unistd.h>

using KQS::KQSEnvConfig;
using KQS::KQSVEActionSystemLinux;

namespace {

class RepairRefusalTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --state stopped"));
    }

    kqtest::TempHost host;
};

KQSEnvConfig withVeid(int veid, int type = -1)
{
    KQSEnvConfig config;
    config.setVeid(veid);
    if (type >= 0)
        config.setVEType(type);
    return config;
}

} // namespace

TEST_F(RepairRefusalTest, RefusesBeforeAnythingIsRun)
{
    typedef std::function<int(KQS::KQSEnvMLocal&)> Call;
    struct Case {
        const char* what;
        Call call;
        int result;
        const char* message;
    } cases[] = {
        {"repair without a VEID", [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c; return KQSVEActionSystemLinux::repair(m, c); },
         -7, "veid is absent."},
        {"repair without an OS template",
         [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c = withVeid(101); return KQSVEActionSystemLinux::repair(m, c); }, -4,
         "Error reading Container 101 configuration file. Attempt to read OSTEMPLATE value."},
        {"stop-repair without a VEID",
         [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c; return KQSVEActionSystemLinux::stopRepair(m, c); }, -7,
         "ctid is absent."},
        {"stop-repair of a container not under repair",
         [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c = withVeid(101, 0); return KQSVEActionSystemLinux::stopRepair(m, c); },
         -7, "unknown Container 101 type."},
        {"stop-repair of a container without a type",
         [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c = withVeid(101); return KQSVEActionSystemLinux::stopRepair(m, c); },
         -7, "unknown Container 101 type."},
        {"stop-repair of a repair container",
         [](KQS::KQSEnvMLocal& m) { KQSEnvConfig c = withVeid(101, 4); return KQSVEActionSystemLinux::stopRepair(m, c); },
         -7, "unknown Container 101 type."},
        {"clone into no VEID at all",
         [](KQS::KQSEnvMLocal& m) { return KQSVEActionSystemLinux::clone(m, 101, {}, "", ""); }, -1,
         "assertion failed: newVeids.size() > 0"},
    };
    for (const Case& c : cases) {
        KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
        EXPECT_EQ(c.result, c.call(envm)) << c.what;
        EXPECT_STREQ(c.message, KQC::getErrorMessage()) << c.what;
        EXPECT_EQ("", host.calls()) << c.what;
    }
}

TEST_F(RepairRefusalTest, ARepairVeidLockedByALiveProcessIsNotTaken)
{
    // Our own pid: a live holder, as a second repair on its way would be.
    host.write("kq/lock/10000000.lck", std::to_string(::getpid()) + "\nstarting-repair");
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    KQSEnvConfig config = withVeid(101);
    EXPECT_EQ(-5, KQSVEActionSystemLinux::repair(envm, config));
    EXPECT_STREQ("Cant lock repair Container", KQC::getErrorMessage());
    EXPECT_EQ("", host.calls());
    EXPECT_TRUE(kqtest::exists(host.path("kq/lock/10000000.lck")));
}

TEST_F(RepairRefusalTest, StopRepairWithoutARepairContainerStillClearsTheMark)
{
    // What a repair killed right after marking leaves behind.
    host.write("etc/sysconfig/kq-scripts/101.conf", host.read("etc/sysconfig/kq-scripts/101.conf") + "VE_TYPE=\"5\"\n");
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    KQSEnvConfig config = withVeid(101, 5);
    EXPECT_EQ(0, KQSVEActionSystemLinux::stopRepair(envm, config)) << KQC::getErrorMessage();
    EXPECT_EQ("0", kqtest::bashValue(host.path("etc/sysconfig/kq-scripts/101.conf"), "VE_TYPE"));
    EXPECT_EQ("", host.calls());
}
