// The framework's device records and its local device manager.
#include "KQC/Devices.h"
#include "KQC/Error.h"

#include "TempHost.h"

#include <gtest/gtest.h>

namespace {

using KQC::KQCDevMountInfo;

TEST(DevicesTest, HostDevicesAndTypesComeFromTheKernelsFiles)
{
    kqtest::TempHost host;
    host.write("proc/partitions", "major minor  #blocks  name\n\n   8  0  100 sda\n   8  1 90 sda1\nbroken line\n");
    host.write("proc/filesystems", "nodev\tproc\n\text4\n\n");
    KQC::KQCDevMLocal manager{KQC::KQCAccessProvider()};
    KQC::KQCDeviceInfo info;
    ASSERT_EQ(manager.getInfo(&info), 0);
    ASSERT_EQ(info.devices.size(), 2u);
    EXPECT_EQ(info.devices[1].path, "/dev/sda1");
    EXPECT_EQ(info.devices[1].sizeKiB, 90u);
    EXPECT_EQ(info.fileSystems, (std::vector<std::string>{"proc", "ext4"}));
    EXPECT_TRUE(KQC::includedInInfo(info, "/dev/sda"));
    EXPECT_FALSE(KQC::includedInInfo(info, "/dev/sdb"));
    EXPECT_TRUE(KQC::fsTypeKnown(info, "proc"));
    EXPECT_FALSE(KQC::fsTypeKnown(info, "nodev"));

    ::unlink(host.path("proc/filesystems").c_str());
    EXPECT_EQ(manager.getInfo(&info), -1);
    std::string out = "untouched";
    EXPECT_EQ(manager.createDrive(KQC::KQCEID(), KQCDevMountInfo(), &out), KQC::KQC_ERR_NOT_SUPPORTED);
    EXPECT_EQ(out, "untouched");
}

TEST(DevicesTest, MountsAreUniqueByDeviceAndPoint)
{
    std::vector<KQCDevMountInfo> mounts;
    EXPECT_TRUE(KQC::insertUnique(mounts, KQCDevMountInfo("/dev/a", "/x", "ext4", false, true)));
    EXPECT_FALSE(KQC::insertUnique(mounts, KQCDevMountInfo("/dev/a", "/x", "xfs", true, false)));
    EXPECT_TRUE(KQC::insertUnique(mounts, KQCDevMountInfo("/dev/b", "/x", "ext4", false, true)));
    EXPECT_EQ(mounts.size(), 2u);
    EXPECT_EQ(mounts[0].getFsType(), "ext4");
}

} // namespace
