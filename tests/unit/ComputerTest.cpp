#include "KQC/Computer.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

namespace {

class ComputerTest : public ::testing::Test {
protected:
    int getSystem() { return KQC::KQCComputerMLocal(KQC::KQCAccessProvider()).getSystem(info); }

    kqtest::TempHost host;
    KQC::KQCSystemInfo info;
};

TEST_F(ComputerTest, ReadsTheReleaseFileAndTheMachineLeavingMissingIdsUnspecified)
{
    host.write("etc/os-release", "# comment\nNAME=\"Debian GNU/Linux\"\nID=debian\nVERSION_ID=\"12\"\n"
                                 "PRETTY_NAME='Debian 12'\n");
    ASSERT_EQ(0, getSystem()) << KQC::getErrorMessage();
    struct utsname names;
    ASSERT_EQ(0, uname(&names));
    EXPECT_EQ(names.sysname, info.os.platform.get());
    EXPECT_EQ("debian", info.os.distribution.get());
    EXPECT_EQ("12", info.os.version.get());
    EXPECT_EQ(names.release, info.os.kernel.get());
    EXPECT_EQ(names.machine, info.architecture);

    // Values without an id stay unspecified.
    info = KQC::KQCSystemInfo();
    host.write("etc/os-release", "NAME=\"Some \\\"quoted\\\" Linux\"\nVERSION_ID=\n");
    ASSERT_EQ(0, getSystem());
    EXPECT_FALSE(info.os.distribution.isSpecified());
    EXPECT_FALSE(info.os.version.isSpecified());
}

TEST_F(ComputerTest, AMissingReleaseFileFailsButKeepsWhatWasFound)
{
    EXPECT_EQ(-1, getSystem());
    EXPECT_EQ("can't read the release file '" + host.path("etc/os-release") + "': No such file or directory",
              std::string(KQC::getErrorMessage()));
    EXPECT_TRUE(info.os.platform.isSpecified());
    EXPECT_FALSE(info.architecture.empty());
}

TEST_F(ComputerTest, OsInfoAddsTheFirstCpusClock)
{
    host.write("etc/os-release", "ID=debian\n");
    const struct {
        const char* cpuinfo;
        int rc;
        unsigned long clock;
    } cases[] = {
        {"processor\t: 0\ncpu MHz\t\t: 2394.458\n\nprocessor\t: 1\ncpu MHz\t\t: 800.000\n", 0, 2394},
        {"processor\t: 0\nmodel name\t: no clock here\n", -1, 0},
        {"cpu MHz garbage\ncpu MHz : 1000\n", 0, 1000},
    };
    for (const auto& c : cases) {
        host.write("proc/cpuinfo", c.cpuinfo);
        EXPECT_EQ(c.rc, KQC::KQCComputerMLocal(KQC::KQCAccessProvider()).getOsInfo(info)) << c.cpuinfo;
        EXPECT_EQ(c.clock, info.cpuClockMHz) << c.cpuinfo;
    }
}

} // namespace
