// Client-named files beneath a trusted folder: what is written lands where
// the name says and nowhere else.
#include "KQC/Beneath.h"
#include "KQC/Error.h"

#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <sys/stat.h>

namespace {

mode_t modeOf(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

class BeneathTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, kqtest::run("mkdir -p '" + base + "'")); }

    kqtest::TempHost host;
    const std::string base = host.path("base");
};

} // namespace

TEST_F(BeneathTest, WritesThroughNewFoldersKeepingAnExistingFilesMode)
{
    ASSERT_EQ(0, KQC::writeFileBeneath(base, "a/b/c", "one", 0700)) << KQC::getErrorMessage();
    EXPECT_EQ("one", host.read("base/a/b/c"));
    EXPECT_EQ(0644u, modeOf(base + "/a/b/c"));
    EXPECT_EQ(0700u, modeOf(base + "/a/b") & ~0077u);

    ASSERT_EQ(0, ::chmod((base + "/a/b/c").c_str(), 0600));
    ASSERT_EQ(0, KQC::writeFileBeneath(base, "a/b/c", "two"));
    EXPECT_EQ(0600u, modeOf(base + "/a/b/c"));
    std::string text;
    ASSERT_EQ(0, KQC::readFileBeneath(base, "a/b/c", text));
    EXPECT_EQ("two", text);
    // Nothing but the file is left in its folder: the temporary was renamed.
    EXPECT_EQ("c\n", kqtest::commandOutput("ls -A '" + base + "/a/b'"));

    ASSERT_EQ(0, KQC::removeFileBeneath(base, "a/b/c"));
    EXPECT_FALSE(kqtest::exists(base + "/a/b/c"));
    EXPECT_EQ(-1, KQC::removeFileBeneath(base, "a/b/c"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_STREQ("No such file or directory", KQC::getErrorMessage());
}

TEST_F(BeneathTest, OnlyOrdinaryRelativeNamesAreAccepted)
{
    struct Case {
        const char* name;
        bool accepted;
    } cases[] = {
        {"x", true},       {"a/b/c", true},  {"a..b", true},  {"..x", true}, {"", false},
        {"/x", false},     {"a/../x", false}, {"..", false},   {".", false},  {"a//b", false},
        {"a/", false},     {"./a", false},    {"a/./b", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.accepted ? 0 : -1, KQC::checkBeneathName(c.name)) << c.name;
        if (!c.accepted) {
            EXPECT_EQ(EINVAL, errno) << c.name;
        }
    }
    // Each part handed to the system ends at its NUL: "..\0" would be "..".
    EXPECT_EQ(-1, KQC::checkBeneathName(std::string("x/..\0/..\0/y", 11)));
}

TEST_F(BeneathTest, ALinkPlantedDeeperIsRefusedAndLeftAlone)
{
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + base + "/a' '" + host.path("outside") + "' && ln -s '" +
                             host.path("outside") + "' '" + base + "/a/b'"));
    EXPECT_EQ(-1, KQC::writeFileBeneath(base, "a/b/c", "x"));
    EXPECT_EQ(ELOOP, errno);
    EXPECT_EQ("'" + base + "/a/b' is a symbolic link", std::string(KQC::getErrorMessage()));
    EXPECT_EQ("", kqtest::commandOutput("ls -A '" + host.path("outside") + "'"));
    EXPECT_TRUE(kqtest::exists(base + "/a/b"));
}
