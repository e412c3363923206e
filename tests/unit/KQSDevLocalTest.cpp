// The device manager's façade: the right comes first, drives and
// forwarding are not supported.
#include "KQSDevLocal.h"

#include "KQSResult.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using KQC::KQCDevMountInfo;
using KQS::KQSDevLocal;

KQC::KQCAccessProvider clientWithout(std::set<int> denied)
{
    return KQC::KQCAccessProvider(new KQC::KQCAccessProviderPrototype(
        boost::shared_ptr<KQC::KQCClientContext>(new KQC::KQCClientContext("test", std::move(denied)))));
}

TEST(KQSDevLocalTest, EveryOperationChecksItsRightFirst)
{
    kqtest::TempHost host;
    const KQC::KQCEID eid = KQC::KQCEID::EID_LOCAL;
    const KQCDevMountInfo relative("/dev/sdb1", "rel", "ext4", true, true);
    std::vector<KQCDevMountInfo> mounts;
    std::vector<KQC::KQCForwardDevice> forwards;
    KQC::KQCDeviceList devices;
    KQC::KQCDeviceInfo info;
    std::string drive = "untouched";
    const struct {
        const char* name;
        int right;
        int allowed;
        std::function<int(KQSDevLocal&)> call;
    } cases[] = {
        {"getMounts", 73, KQS::KQS_MOUNT_ERR_ENV, [&](KQSDevLocal& m) { return m.getMounts(eid, &mounts); }},
        {"newMount", 74, KQS::KQS_MOUNT_ERR_MOUNT_POINT, [&](KQSDevLocal& m) { return m.newMount(eid, relative); }},
        {"unmount", 74, KQS::KQS_MOUNT_ERR_MOUNT_POINT, [&](KQSDevLocal& m) { return m.unmount(eid, relative); }},
        {"getInfo", 73, -1, [&](KQSDevLocal& m) { return m.getInfo(&info); }},
        {"createDrive", 74, -424, [&](KQSDevLocal& m) { return m.createDrive(eid, relative, &drive); }},
        {"deleteDrive", 74, -424, [&](KQSDevLocal& m) { return m.deleteDrive(eid, relative); }},
        {"resizeDrive", 74, -424, [&](KQSDevLocal& m) { return m.resizeDrive(eid, relative); }},
        {"forwardDevice", 74, -424, [&](KQSDevLocal& m) { return m.forwardDevice(KQC::KQCForwardDevice()); }},
        {"removeForward", 74, -424, [&](KQSDevLocal& m) { return m.removeForward(KQC::KQCForwardDevice(), true); }},
        {"listForward", 73, -424, [&](KQSDevLocal& m) { return m.listForward(&forwards, eid); }},
        {"listDevice", 73, -424, [&](KQSDevLocal& m) { return m.listDevice(&devices, devices); }},
    };
    for (const auto& c : cases) {
        KQSDevLocal refused(clientWithout({c.right}));
        EXPECT_EQ(c.call(refused), KQC::KQC_ERR_ACCESS_DENIED) << c.name;
        KQSDevLocal other(clientWithout({c.right == 73 ? 74 : 73}));
        EXPECT_EQ(c.call(other), c.allowed) << c.name;
    }
    EXPECT_EQ(drive, "untouched");
}

} // namespace
