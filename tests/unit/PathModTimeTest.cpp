// Stamps of files: every way of looking (by path, from an open folder, from
// a stat result) sees the same changes, and only changes.
#include "KQS/PathModTime.h"

#include "TempHost.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KQS::KQSPathModTime;

TEST(PathModTimeTest, EveryWayOfLookingSeesTheSameChanges)
{
    kqtest::TempDir dir;
    const std::string path = dir.path("101.conf");
    int folder = ::open(dir.dir().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    struct Step {
        const char* change;
        bool changed;
    } steps[] = {
        {"", true},  // never looked at: changed
        {"", false},
        {"write", true},
        {"", false},
        {"replace", true},  // a rename over it: another inode
        {"remove", true},
        {"", false},  // still missing
        {"write", true},
    };
    KQSPathModTime byPath, fromFolder, fromStat;
    for (const Step& step : steps) {
        std::string change = step.change;
        if (change == "write")
            dir.write("101.conf", "VE_ROOT=\"/r\"\n" + std::string(byPath.known() ? "x" : ""));
        else if (change == "replace")
            dir.write("tmp", "VE_ROOT=\"/r\"\nx"), ::rename(dir.path("tmp").c_str(), path.c_str());
        else if (change == "remove")
            ::unlink(path.c_str());
        struct stat st;
        bool exists = ::stat(path.c_str(), &st) == 0;
        EXPECT_EQ(byPath.update(path), step.changed) << "after '" << change << "'";
        EXPECT_EQ(fromFolder.update(folder, "101.conf"), step.changed) << "after '" << change << "'";
        // A stat result exists only for a file that is there.
        if (exists) {
            bool expected = step.changed || !fromStat.known();
            EXPECT_EQ(fromStat.update(st), expected) << "after '" << change << "'";
        } else {
            fromStat.reset();
        }
        EXPECT_TRUE(byPath == fromFolder);
    }
    ::close(folder);
}

} // namespace
