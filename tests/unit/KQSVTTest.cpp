// Release detection from the release files of a temporary host, and the
// vswap test (once per process, so in children of this program).
#include "KQSVT.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

using namespace KQS;

const char kBareMetal[] = "etc/zentravix-release";
const char kPackingList[] = "usr/share/corvantis-release/packing.lst";

class KQSVTTest : public ::testing::Test {
protected:
    bool bareMetal(const std::string& text)
    {
        m_host.write(kBareMetal, text);
        return KQSVT().getBareMetalPackage(m_version, m_build) == 0;
    }
    bool corvantis(const std::string& text)
    {
        m_host.write(kPackingList, text);
        return KQSVT().getCorvantisPackage(m_version, m_build) == 0;
    }

    kqtest::TempHost m_host;
    std::string m_version;
    std::string m_build;
};

TEST_F(KQSVTTest, PackageVersionReadsAsFarAsItGoes)
{
    EXPECT_EQ(PackageVersion::parse("5.1.3").toString(), "5.1.3");
    EXPECT_EQ(PackageVersion::parse("4.6").toString(), "4.6.0");
    EXPECT_EQ(PackageVersion::parse("4.x.7").toString(), "4.0.0");
    EXPECT_EQ(PackageVersion::parse("1.2.3.4").toString(), "1.2.3");
    EXPECT_TRUE(PackageVersion::parse("release").empty());
    EXPECT_TRUE(PackageVersion::parse("").empty());
    EXPECT_FALSE(PackageVersion::parse("0.0.1").empty());
}

TEST_F(KQSVTTest, BareMetalReleaseGivesVersionAndBuild)
{
    ASSERT_TRUE(bareMetal("Zentravix Server Bare Metal 5.0.2 (71)\n"));
    EXPECT_EQ(m_version, "5.0.2");
    EXPECT_EQ(m_build, "71");
    // The product words are compared without regard to case; anything may
    // stand between the version and the build.
    ASSERT_TRUE(bareMetal("zentravix SERVER bare METAL 6.1 release (1234) x86_64"));
    EXPECT_EQ(m_version, "6.1.0");
    EXPECT_EQ(m_build, "1234");
}

TEST_F(KQSVTTest, BareMetalReleaseThatIsNotOursIsRefused)
{
    // Not having the product is an answer: the thread's message stays.
    KQC::setErrorMessage("earlier failure");
    EXPECT_EQ(KQSVT().getBareMetalPackage(m_version, m_build), 1);  // no file
    EXPECT_STREQ(KQC::getErrorMessage(), "earlier failure");
    EXPECT_FALSE(bareMetal("Zentravix Server Metal 5.0.0 (71)"));
    EXPECT_FALSE(bareMetal("Zentravix Server Bare Metal"));
    EXPECT_FALSE(bareMetal("Zentravix Server Bare Metal 5.0.0 71"));
    EXPECT_FALSE(bareMetal("Zentravix Server Bare Metal 5.0.0 (71"));
    EXPECT_FALSE(bareMetal("Zentravix Server Bare Metal 5.0.0 (build)"));
    EXPECT_FALSE(bareMetal(""));
    EXPECT_FALSE(bareMetal(std::string(300, 'Z') + " Server Bare Metal 5.0.0 (71)"));
}

TEST_F(KQSVTTest, PackingListGivesVersionAndBuild)
{
    ASSERT_TRUE(corvantis("kernel-2.6.32\ncorvantis-release-4.6.1-205\ncorvantis-release-9.9.9-1\n"));
    EXPECT_EQ(m_version, "4.6.1");
    EXPECT_EQ(m_build, "205");
}

TEST_F(KQSVTTest, PackingListWithoutAUsableLineIsRefused)
{
    EXPECT_EQ(KQSVT().getCorvantisPackage(m_version, m_build), 1);  // no file
    EXPECT_FALSE(corvantis("kernel-2.6.32\ncorvantis-tools-4.6.0-205\n"));
    EXPECT_FALSE(corvantis("corvantis-release-4.6.0\n"));
    EXPECT_FALSE(corvantis("corvantis-release--205\n"));
    EXPECT_FALSE(corvantis("corvantis-release-4.6.0-0\n"));
    EXPECT_FALSE(corvantis("corvantis-release-4.6.0-\n"));
    EXPECT_FALSE(corvantis(" corvantis-release-4.6.0-205\n"));
}

TEST_F(KQSVTTest, IPv6ComesWithBareMetalFiveZeroBuild72)
{
    EXPECT_FALSE(KQSVT().isIPv6Available());
    bareMetal("Zentravix Server Bare Metal 5.0.0 (71)");
    EXPECT_FALSE(KQSVT().isIPv6Available());
    bareMetal("Zentravix Server Bare Metal 5.0.0 (72)");
    EXPECT_TRUE(KQSVT().isIPv6Available());
    // The patch number takes no part.
    bareMetal("Zentravix Server Bare Metal 5.0.9 (71)");
    EXPECT_FALSE(KQSVT().isIPv6Available());
    bareMetal("Zentravix Server Bare Metal 5.1.0 (1)");
    EXPECT_TRUE(KQSVT().isIPv6Available());
    bareMetal("Zentravix Server Bare Metal 4.9.0 (900)");
    EXPECT_FALSE(KQSVT().isIPv6Available());
    bareMetal("Zentravix Server Bare Metal 6.0.0 (0)");
    EXPECT_TRUE(KQSVT().isIPv6Available());
}

TEST_F(KQSVTTest, IPv6ComesWithContainerProductFourSixBuild206)
{
    corvantis("corvantis-release-4.6.0-205\n");
    EXPECT_FALSE(KQSVT().isIPv6Available());
    corvantis("corvantis-release-4.6.0-206\n");
    EXPECT_TRUE(KQSVT().isIPv6Available());
    corvantis("corvantis-release-4.7.0-1\n");
    EXPECT_TRUE(KQSVT().isIPv6Available());
    corvantis("corvantis-release-4.5.9-999\n");
    EXPECT_FALSE(KQSVT().isIPv6Available());
}

TEST_F(KQSVTTest, BareMetalReleaseIsAskedFirst)
{
    corvantis("corvantis-release-4.7.0-1\n");
    bareMetal("Zentravix Server Bare Metal 5.0.0 (1)");
    EXPECT_FALSE(KQSVT().isIPv6Available());
    // A bare-metal file that is not understood does not count.
    bareMetal("Something else entirely");
    EXPECT_TRUE(KQSVT().isIPv6Available());
}

// ---- vswap: decided once per process ----------------------------------------

TEST(KQSVTVSwapTest, PresentFlagIsKeptForTheProcess)
{
    if (kqtest::ranInPreloadedChild())
        return;
    std::string flag = kqtest::hostRoot() + "/proc/kq/vswap";
    kqtest::writeFile(flag, "");
    EXPECT_TRUE(KQSVT().isVSwapAvailable());
    std::remove(flag.c_str());
    EXPECT_TRUE(KQSVT().isVSwapAvailable());
}

TEST(KQSVTVSwapTest, AbsentFlagIsKeptForTheProcess)
{
    if (kqtest::ranInPreloadedChild())
        return;
    EXPECT_FALSE(KQSVT().isVSwapAvailable());
    kqtest::writeFile(kqtest::hostRoot() + "/proc/kq/vswap", "");
    EXPECT_FALSE(KQSVT().isVSwapAvailable());
}

} // namespace
