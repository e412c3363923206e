// The simulated host's mount and umount: they only change the kernel's
// mount table, and fail as the system's tools do.
#include "SimToolTestSupport.h"

namespace {

using simtest::RunResult;

class SimToolMountTest : public simtest::SimHostReadyTest {};

TEST_F(SimToolMountTest, MountAndUmountChangeOnlyTheTable)
{
    std::string dir = root() + "/mnt/x";
    std::filesystem::create_directories(dir);
    const struct {
        const char* tool;
        std::vector<std::string> args;
        int exitCode;
        bool mountedAfter;
    } steps[] = {
        {"mount", {"-n", "-t", "ext4", "/dev/sdb1", dir}, 0, true},
        {"mount", {"-n", "-t", "ext4", "/dev/sdb1", dir}, 32, true},
        {"umount", {dir}, 0, false},
        {"umount", {dir}, 32, false},
        {"mount", {"-n", "/dev/sdb1", root() + "/nowhere"}, 32, false},
        {"mount", {"-x", "/dev/sdb1", dir}, 1, false},
        {"umount", {}, 1, false},
    };
    for (const auto& step : steps) {
        RunResult result = tool(step.tool, step.args);
        EXPECT_EQ(result.exitCode, step.exitCode) << step.tool << " " << result.err;
        EXPECT_EQ(mounts().find("/dev/sdb1 " + dir + " ext4 rw 0 0\n") != std::string::npos, step.mountedAfter)
            << step.tool << ": " << mounts();
    }
    EXPECT_NE(kqtest::readFile(at("var/log/kqsim/calls.log")).find("[\"umount\",\"" + dir + "\"]"),
              std::string::npos);
}

TEST_F(SimToolMountTest, InitGivesTheHostDevicesAndFileSystemTypes)
{
    EXPECT_NE(kqtest::readFile(at("proc/partitions")).find(" sdb1\n"), std::string::npos);
    EXPECT_NE(kqtest::readFile(at("proc/filesystems")).find("\text4\n"), std::string::npos);
}

} // namespace
