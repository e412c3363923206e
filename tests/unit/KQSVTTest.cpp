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

// Each release file alone: what it yields, or its refusal (nullptr).
TEST_F(KQSVTTest, ReleaseFilesGiveVersionAndBuild)
{
    struct Case {
        bool bare;  // the bare-metal release file, or the packing list
        std::string text;
        const char* version;
        const char* build;
    } cases[] = {
        {true, "Zentravix Server Bare Metal 5.0.2 (71)\n", "5.0.2", "71"},
        // The product words are compared without regard to case; anything
        // may stand between the version and the build.
        {true, "zentravix SERVER bare METAL 6.1 release (1234) x86_64", "6.1.0", "1234"},
        {true, "Zentravix Server Metal 5.0.0 (71)", nullptr, nullptr},
        {true, "Zentravix Server Bare Metal", nullptr, nullptr},
        {true, "Zentravix Server Bare Metal 5.0.0 71", nullptr, nullptr},
        {true, "Zentravix Server Bare Metal 5.0.0 (71", nullptr, nullptr},
        {true, "Zentravix Server Bare Metal 5.0.0 (build)", nullptr, nullptr},
        {true, "", nullptr, nullptr},
        {true, std::string(300, 'Z') + " Server Bare Metal 5.0.0 (71)", nullptr, nullptr},
        {false, "kernel-2.6.32\ncorvantis-release-4.6.1-205\ncorvantis-release-9.9.9-1\n", "4.6.1", "205"},
        {false, "kernel-2.6.32\ncorvantis-tools-4.6.0-205\n", nullptr, nullptr},
        {false, "corvantis-release-4.6.0\n", nullptr, nullptr},
        {false, "corvantis-release--205\n", nullptr, nullptr},
        {false, "corvantis-release-4.6.0-0\n", nullptr, nullptr},
        {false, "corvantis-release-4.6.0-\n", nullptr, nullptr},
        {false, " corvantis-release-4.6.0-205\n", nullptr, nullptr},
    };
    // Not having the product is an answer: the thread's message stays.
    KQC::setErrorMessage("earlier failure");
    EXPECT_EQ(KQSVT().getBareMetalPackage(m_version, m_build), 1);  // no file
    EXPECT_EQ(KQSVT().getCorvantisPackage(m_version, m_build), 1);
    EXPECT_STREQ(KQC::getErrorMessage(), "earlier failure");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        m_version = m_build = "stale";
        ASSERT_EQ(c.bare ? bareMetal(c.text) : corvantis(c.text), c.version != nullptr);
        if (c.version) {
            EXPECT_EQ(m_version, c.version);
            EXPECT_EQ(m_build, c.build);
        }
    }
}

// IPv6 comes with bare metal 5.0 build 72 or the container product 4.6
// build 206 (patch numbers take no part); the bare-metal file is asked
// first, and one that is not understood does not count.
TEST_F(KQSVTTest, IPv6ComesWithTheReleasesThatHaveIt)
{
    EXPECT_FALSE(KQSVT().isIPv6Available());
    struct Case {
        const char* bare;     // nullptr: no such file
        const char* packing;  // nullptr: no such file
        bool ipv6;
    } cases[] = {
        {"Zentravix Server Bare Metal 5.0.0 (71)", nullptr, false},
        {"Zentravix Server Bare Metal 5.0.0 (72)", nullptr, true},
        {"Zentravix Server Bare Metal 5.0.9 (71)", nullptr, false},
        {"Zentravix Server Bare Metal 5.1.0 (1)", nullptr, true},
        {"Zentravix Server Bare Metal 4.9.0 (900)", nullptr, false},
        {"Zentravix Server Bare Metal 6.0.0 (0)", nullptr, true},
        {nullptr, "corvantis-release-4.6.0-205\n", false},
        {nullptr, "corvantis-release-4.6.0-206\n", true},
        {nullptr, "corvantis-release-4.7.0-1\n", true},
        {nullptr, "corvantis-release-4.5.9-999\n", false},
        {"Zentravix Server Bare Metal 5.0.0 (1)", "corvantis-release-4.7.0-1\n", false},
        {"Something else entirely", "corvantis-release-4.7.0-1\n", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.bare ? c.bare : "-") + " / " + (c.packing ? c.packing : "-"));
        std::remove(m_host.path(kBareMetal).c_str());
        std::remove(m_host.path(kPackingList).c_str());
        if (c.bare)
            bareMetal(c.bare);
        if (c.packing)
            corvantis(c.packing);
        EXPECT_EQ(KQSVT().isIPv6Available(), c.ipv6);
    }
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
