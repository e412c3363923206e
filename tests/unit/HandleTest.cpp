#include "KQC/Handle.h"

#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

// Set in the environment of a copy of this test program that plays the
// second process holding the lock.
const char* const kRoleVariable = "KQ_HANDLE_TEST_ROLE";
const char* const kFileVariable = "KQ_HANDLE_TEST_FILE";

class HandleTest : public ::testing::Test {
protected:
    void SetUp() override { m_file = m_temp.path("lock"); }

    KQC::KQCHandle openLockFile() const
    {
        return KQC::KQCHandle(::open(m_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    }

    bool descriptorOpen(int fd) const { return ::fcntl(fd, F_GETFD) != -1; }

    kqtest::TempDir m_temp;
    std::string m_file;
};

TEST_F(HandleTest, OwnsMovesAndGivesUpItsDescriptor)
{
    int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        KQC::KQCHandle handle(fd);
        EXPECT_TRUE(handle.isValid());
        EXPECT_EQ(handle.get(), fd);
    }
    EXPECT_FALSE(descriptorOpen(fd));

    fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        KQC::KQCHandle handle(fd);
        EXPECT_EQ(handle.release(), fd);
        EXPECT_FALSE(handle.isValid());
    }
    EXPECT_TRUE(descriptorOpen(fd));
    ::close(fd);

    KQC::KQCHandle empty;
    EXPECT_FALSE(empty.isValid());
    EXPECT_EQ(empty.get(), -1);
    EXPECT_EQ(empty.lock(false), -1);
    EXPECT_NE(std::string(KQC::getErrorMessage()), "");
    EXPECT_EQ(empty.unlock(), -1);

    // Moves and resets.
    int first = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    int second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    KQC::KQCHandle a(first);
    KQC::KQCHandle b(std::move(a));
    EXPECT_FALSE(a.isValid());
    EXPECT_EQ(b.get(), first);

    KQC::KQCHandle c(second);
    c = std::move(b);  // the old descriptor of c is closed
    EXPECT_EQ(c.get(), first);
    EXPECT_FALSE(descriptorOpen(second));

    c.reset();
    EXPECT_FALSE(c.isValid());
    EXPECT_FALSE(descriptorOpen(first));
}

TEST_F(HandleTest, ExcludesSecondOpenFileInSameProcess)
{
    KQC::KQCHandle holder = openLockFile();
    KQC::KQCHandle other = openLockFile();
    ASSERT_TRUE(holder.isValid());
    ASSERT_TRUE(other.isValid());

    ASSERT_EQ(holder.lock(false), 0);
    errno = 0;
    EXPECT_EQ(other.lock(false), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find("can't lock"), std::string::npos);

    ASSERT_EQ(holder.unlock(), 0);
    EXPECT_EQ(other.lock(false), 0);
    EXPECT_EQ(other.lock(true), 0);  // taking it again is not a conflict

    // Closing the holder releases the lock.
    ASSERT_EQ(holder.lock(false), -1);
    other.reset();
    EXPECT_EQ(holder.lock(false), 0);
}

TEST_F(HandleTest, WaitsForAndHoldsAgainstTheSystemFlockTool)
{
    // The tool holds the lock until we close its standard input.
    KQC::GenExec tool;
    std::string command = "flock '" + m_file + "' sh -c 'echo held; cat >/dev/null'";
    const char* argv[] = {"/bin/sh", "-c", command.c_str(), nullptr};
    ASSERT_EQ(tool.execComplexBegin(argv, 0), 0);
    std::string line;
    ASSERT_EQ(tool.gets(line), 0);
    EXPECT_EQ(line, "held");

    KQC::KQCHandle waiter = openLockFile();
    EXPECT_EQ(waiter.lock(false), -1);
    std::string rest;
    ASSERT_EQ(tool.execComplexGet(rest), 0);
    EXPECT_EQ(tool.execComplexEnd(), 0);
    EXPECT_EQ(waiter.lock(true), 0);

    EXPECT_EQ(kqtest::run("flock -n '" + m_file + "' true"), 1);
    ASSERT_EQ(waiter.unlock(), 0);
    EXPECT_EQ(kqtest::run("flock -n '" + m_file + "' true"), 0);
}

// The second process: started by the test below as a copy of this program.
TEST_F(HandleTest, SecondProcessRole)
{
    const char* role = std::getenv(kRoleVariable);
    if (role == nullptr)
        GTEST_SKIP() << "runs only as the second process of another test";
    KQC::KQCHandle handle(::open(std::getenv(kFileVariable), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(handle.isValid());
    if (std::string(role) == "try") {
        std::printf(handle.lock(false) == 0 ? "got\n" : "busy\n");
        std::fflush(stdout);
        return;
    }
    ASSERT_EQ(handle.lock(true), 0);
    std::printf("locked\n");
    std::fflush(stdout);
    char byte;
    while (::read(0, &byte, 1) > 0) {
    }
}

TEST_F(HandleTest, ExcludesAnotherProcess)
{
    ASSERT_TRUE(openLockFile().isValid());  // the other process opens it without creating
    std::string roleHold = std::string(kRoleVariable) + "=hold";
    std::string roleTry = std::string(kRoleVariable) + "=try";
    std::string file = std::string(kFileVariable) + "=" + m_file;
    const char* argv[] = {"/proc/self/exe", "--gtest_filter=HandleTest.SecondProcessRole", nullptr};

    KQC::GenExec other;
    const char* holdEnv[] = {roleHold.c_str(), file.c_str(), "ASAN_OPTIONS=detect_leaks=0", nullptr};
    other.saveEnv(holdEnv);
    ASSERT_EQ(other.execComplexBegin(argv, 0), 0);
    std::string line;
    ASSERT_EQ(other.gets(line), 0);
    while (line != "locked" && other.gets(line) == 0) {
    }
    ASSERT_EQ(line, "locked");

    KQC::KQCHandle mine = openLockFile();
    EXPECT_EQ(mine.lock(false), -1);
    std::string rest;
    ASSERT_EQ(other.execComplexGet(rest), 0);
    EXPECT_EQ(other.execComplexEnd(), 0) << other.getOutput(KQC::GenExec::ERR);
    ASSERT_EQ(mine.lock(false), 0);

    // Now we hold it: the other process must be refused.
    KQC::HWExec trier;
    const char* tryEnv[] = {roleTry.c_str(), file.c_str(), "ASAN_OPTIONS=detect_leaks=0", nullptr};
    ASSERT_EQ(trier.exec(0, argv, tryEnv), 0);
    EXPECT_NE(trier.getOutput(KQC::GenExec::OUT).find("busy\n"), std::string::npos);
}

} // namespace
