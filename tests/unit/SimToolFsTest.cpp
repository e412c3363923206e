// The simulator's file helpers: atomic replacement and single-write appends.
#include "SimToolTestSupport.h"

#include "KQSim/Fs.h"

#include "KQC/Error.h"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

class SimToolFsTest : public simtest::SimHostTest {
protected:
    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        EXPECT_EQ(KQSim::listDirectory(dir(), names), 0);
        return names;
    }
};

TEST_F(SimToolFsTest, AtomicWriteReplacesAndSetsTheMode)
{
    std::string path = dir() + "/file";
    kqtest::writeFile(path, "old");
    ASSERT_EQ(KQSim::writeFileAtomic(path, "new", 0600), 0) << KQC::getErrorMessage();
    EXPECT_EQ(kqtest::readFile(path), "new");
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(entries(), std::vector<std::string>{"file"}) << "no temporary file is left";
}

TEST_F(SimToolFsTest, FailedAtomicWriteLeavesNothingBehind)
{
    std::string target = dir() + "/folder";
    fs::create_directories(target + "/inside");
    EXPECT_EQ(KQSim::writeFileAtomic(target, "text"), -1);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find("rename"), std::string::npos) << KQC::getErrorMessage();
    EXPECT_TRUE(fs::is_directory(target + "/inside"));
    EXPECT_EQ(entries(), std::vector<std::string>{"folder"});
    EXPECT_EQ(KQSim::writeFileAtomic(dir() + "/missing/file", "text"), -1);
}

TEST_F(SimToolFsTest, AppendReadAndTreeHelpers)
{
    std::string path = dir() + "/log";
    ASSERT_EQ(KQSim::appendOnce(path, "one\n"), 0);
    ASSERT_EQ(KQSim::appendOnce(path, "two\n"), 0);
    EXPECT_EQ(kqtest::readFile(path), "one\ntwo\n");
    EXPECT_EQ(KQSim::appendOnce(dir() + "/missing/log", "x"), -1);

    std::string content;
    EXPECT_EQ(KQSim::readFile(dir() + "/none", content), -1);
    fs::create_directories(dir() + "/a/b");
    kqtest::writeFile(dir() + "/a/b/file", "x");
    fs::create_symlink("b/file", dir() + "/a/link");
    ASSERT_EQ(KQSim::copyTree(dir() + "/a", dir() + "/c"), 0) << KQC::getErrorMessage();
    EXPECT_EQ(kqtest::readFile(dir() + "/c/b/file"), "x");
    EXPECT_EQ(fs::read_symlink(dir() + "/c/link").string(), "b/file") << "links are copied as links";
    ASSERT_EQ(KQSim::removeTree(dir() + "/a"), 0);
    EXPECT_FALSE(KQSim::entryExists(dir() + "/a"));
    EXPECT_EQ(KQSim::removeTree(dir() + "/a"), 0) << "a missing tree is fine";
    EXPECT_EQ(KQSim::absolutePath("/x/./y/../z/"), "/x/z");
}

} // namespace
