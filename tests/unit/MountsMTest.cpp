// Mount records: the script-line state machine, script rewriting and the
// host's file-system table. Live mounts run end to end (MountsE2ETest).
#include "MountsM.h"

#include "KQSResult.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using KQC::KQCDevMountInfo;
using KQS::MountsM;

struct LineCase {
    const char* line;
    int mode;
    int expected;
    const char* device;
    const char* type;
    const char* point;
};

TEST(MountsMTest, ScriptLinesParseByTheModesGrammar)
{
    const LineCase cases[] = {
        {"mount -n -t ext3 /dev/sdb1 $VE_ROOT/mnt", 0, 0, "/dev/sdb1", "ext3", "/mnt"},
        {"mount -t xfs -n /dev/sdc $VE_ROOT/a/b", 0, 0, "/dev/sdc", "xfs", "/a/b"},
        {"mount\t-n\t/dev/sdd\t$VE_ROOT/x\n", 0, 0, "/dev/sdd", "old", "/x"},
        {"mount -n -t ext3 /dev/sdb1 /mnt", 0, -1, "", "", ""},
        {"mount -o ro -t ext3 /dev/sdb1 $VE_ROOT/mnt", 0, -1, "", "", ""},
        {"mount -n -t ext3 /dev/sdb1", 0, -1, "", "", ""},
        {"umount $VE_ROOT/mnt", 1, 0, "keep", "old", "/mnt"},
        {"umount $VE_ROOT/mnt", 0, -1, "", "", ""},
        {"mount -n -t ext3 /dev/sdb1 $VE_ROOT/mnt", 1, -1, "", "", ""},
        {"mountfoo -n /dev/sdb1 $VE_ROOT/y", 0, 0, "/dev/sdb1", "old", "/y"},
        {"mount $VE_ROOT/x /dev/sdb1 $VE_ROOT/y", 0, -1, "", "", ""},
        {"", 0, -1, "", "", ""},
        {"exit 0", 1, -1, "", "", ""},
    };
    for (const LineCase& c : cases) {
        KQCDevMountInfo info(c.mode == 1 ? "keep" : "", "", "old", false, false);
        ASSERT_EQ(MountsM::readMountStr(c.line, c.mode, info), c.expected) << c.line;
        if (c.expected != 0)
            continue;
        EXPECT_EQ(info.getDevice(), c.device) << c.line;
        EXPECT_EQ(info.getFsType(), c.type) << c.line;
        EXPECT_EQ(info.getMountPoint(), c.point) << c.line;
        EXPECT_TRUE(info.isPersistent()) << c.line;
    }
}

TEST(MountsMTest, WrittenLinesReadBack)
{
    KQCDevMountInfo info("/dev/sdb1", "/data", "ext4", true, true);
    EXPECT_EQ(MountsM::setMountStr(0, info), "mount -n -t ext4 /dev/sdb1 $VE_ROOT/data");
    EXPECT_EQ(MountsM::setMountStr(1, info), "umount $VE_ROOT/data");
    for (int mode : {0, 1}) {
        KQCDevMountInfo back;
        ASSERT_EQ(MountsM::readMountStr(MountsM::setMountStr(mode, info).c_str(), mode, back), 0);
        EXPECT_EQ(back.getMountPoint(), "/data");
    }
}

struct ScriptCase {
    const char* what;
    const char* script;
    int mode;
    int remove;
    int expected;
    const char* result;
};

TEST(MountsMTest, ScriptsAreRewrittenUpToTheirExit)
{
    KQCDevMountInfo info("/dev/sdb1", "/data", "ext4", true, true);
    const ScriptCase cases[] = {
        {"add to the sample", "#!/bin/bash\nexit 0\n", 0, 0, 0,
         "#!/bin/bash\nmount -n -t ext4 /dev/sdb1 $VE_ROOT/data\nexit 0\n"},
        {"add an umount line", "#!/bin/bash\nexit 0\n", 1, 0, 0, "#!/bin/bash\numount $VE_ROOT/data\nexit 0\n"},
        {"add twice", "mount -n -t xfs /dev/sdc $VE_ROOT/data\nexit 0\n", 0, 0, KQS::KQS_MOUNT_ERR_RECORDED, ""},
        {"remove keeps other lines", "a\nmount -n -t ext4 /dev/sdb1 $VE_ROOT/data\nmount -n /dev/x $VE_ROOT/d2\nexit 0\n",
         0, 1, 0, "a\nmount -n /dev/x $VE_ROOT/d2\nexit 0\n"},
        {"lines after exit 0 go", "a\nexit 0\nb\nexit 0\n", 0, 1, 0, "a\nexit 0\n"},
        {"a script without exit gets one", "a\nb", 1, 1, 0, "a\nb\nexit 0\n"},
        {"an indented exit is a line like others", "  exit 0\n", 1, 1, 0, "  exit 0\nexit 0\n"},
    };
    for (const ScriptCase& c : cases) {
        std::istringstream in(c.script);
        std::ostringstream out;
        EXPECT_EQ(MountsM::processMountInFile(in, out, info, c.mode, c.remove), c.expected) << c.what;
        if (c.expected == 0) {
            EXPECT_EQ(out.str(), c.result) << c.what;
        }
    }
}

class MountsMHostTest : public ::testing::Test {
protected:
    kqtest::TempHost host;
};

TEST_F(MountsMHostTest, ScriptsStartFromTheSampleAndRemovingFromNothingWritesNothing)
{
    host.write("etc/kqagent/mount-action.sample", "#!/bin/bash\nexit 0\n");
    KQCDevMountInfo info("/dev/sdb1", "/data", "ext4", true, false);
    std::ostringstream added;
    EXPECT_EQ(MountsM::updateScript(added, host.path("none").c_str(), info, 0, 0), 0);
    EXPECT_EQ(added.str(), "#!/bin/bash\nmount -n -t ext4 /dev/sdb1 $VE_ROOT/data\nexit 0\n");
    std::ostringstream removed;
    EXPECT_EQ(MountsM::updateScript(removed, host.path("none").c_str(), info, 0, 1), 0);
    EXPECT_EQ(removed.str(), "");
    ::unlink(host.path("etc/kqagent/mount-action.sample").c_str());
    std::ostringstream nothing;
    EXPECT_EQ(MountsM::updateScript(nothing, host.path("none").c_str(), info, 0, 0), KQS::KQS_MOUNT_ERR_FILE);
}

TEST_F(MountsMHostTest, TheFileSystemTableLosesEveryLineOfTheMountPointPrefix)
{
    host.write("etc/fstab", "# /data comment stays\n/dev/sda1 / ext4 defaults 0 1\n/dev/sdb1 /data ext4 defaults 0 0\n"
                            "/dev/sdc /data2 xfs defaults 0 0\n\n");
    KQCDevMountInfo info("/dev/sdd", "/data", "ext3", true, true);
    ASSERT_EQ(MountsM::updateFStab(info, 0), 0);
    EXPECT_EQ(host.read("etc/fstab"),
              "# /data comment stays\n/dev/sda1 / ext4 defaults 0 1\n\n/dev/sdd\t/data\text3\tdefaults\t0\t0\n");
    ASSERT_EQ(MountsM::updateFStab(info, 1), 0);
    EXPECT_EQ(host.read("etc/fstab"), "# /data comment stays\n/dev/sda1 / ext4 defaults 0 1\n\n");
    info.setMountPoint("/");
    EXPECT_EQ(MountsM::updateFStab(info, 1), KQS::KQS_MOUNT_ERR_FILE);
    ::unlink(host.path("etc/fstab").c_str());
    info.setMountPoint("/x");
    EXPECT_EQ(MountsM::updateFStab(info, 0), KQS::KQS_MOUNT_ERR_FILE);
}

TEST_F(MountsMHostTest, BadMountPointsAreRefusedBeforeAnythingRuns)
{
    const struct {
        const char* point;
        const char* message;
    } cases[] = {
        {"mnt/x", "can not create relative path 'mnt/x'"},
        {"", "can not create relative path ''"},
        {"/mnt/../../etc", "mount point '/mnt/../../etc' leaves its root"},
    };
    for (const auto& c : cases) {
        KQCDevMountInfo info("/dev/sdb1", c.point, "ext4", true, true);
        EXPECT_EQ(MountsM::operateDevice(KQC::KQCEID::EID_LOCAL, info, 0), KQS::KQS_MOUNT_ERR_MOUNT_POINT) << c.point;
        EXPECT_STREQ(KQC::getErrorMessage(), c.message);
    }
    ASSERT_EQ(::symlink("/etc", host.path("escape").c_str()), 0);
    KQCDevMountInfo linked("/dev/sdb1", "/escape/x", "ext4", true, false);
    EXPECT_EQ(MountsM::operateDevice(KQC::KQCEID::EID_LOCAL, linked, 0), KQS::KQS_MOUNT_ERR_MOUNT_POINT);
    EXPECT_FALSE(kqtest::exists("/etc/x"));
    EXPECT_EQ(host.calls(), "");
}

} // namespace
