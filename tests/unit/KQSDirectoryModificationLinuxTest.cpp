// The directory notifier with real directories and the real notification
// signal.
#include "KQSDirectoryModificationLinux.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <csignal>
#include <dirent.h>
#include <string>
#include <unistd.h>

namespace {

using KQS::KQSDirectoryModificationLinux;

KQSDirectoryModificationLinux& notifier() { return KQSDirectoryModificationLinux::getInstance(); }

int openDescriptors()
{
    int count = 0;
    DIR* dir = ::opendir("/proc/self/fd");
    while (dir && ::readdir(dir))
        ++count;
    if (dir)
        ::closedir(dir);
    return count;
}

bool signalBlocked()
{
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, KQSDirectoryModificationLinux::notificationSignal()) == 1;
}

// The signal arrives when the kernel sends it, not at once: ask until the
// change shows (each "no change" answer lets pending signals in).
bool changeShows(const std::string& path)
{
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (notifier().checkDir(path.c_str()) == 1)
            return true;
        ::usleep(5000);
    }
    return false;
}

class KQSDirectoryModificationLinuxTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        notifier().unregisterDir(dir.dir().c_str());
        // Leave the thread as the next test expects it.
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, KQSDirectoryModificationLinux::notificationSignal());
        sigprocmask(SIG_UNBLOCK, &only, nullptr);
    }

    kqtest::TempDir dir;
};

TEST_F(KQSDirectoryModificationLinuxTest, AFirstCheckAndACreatedRenamedOrRemovedFileAreSeenThroughTheSignal)
{
    ASSERT_EQ(0, notifier().registerDir(dir.dir().c_str()));
    struct sigaction installed;
    sigaction(KQSDirectoryModificationLinux::notificationSignal(), nullptr, &installed);
    EXPECT_EQ(&KQSDirectoryModificationLinux::handler, installed.sa_sigaction);

    // The first check reports a change; the signal stays blocked until a
    // no-change answer.
    ASSERT_EQ(1, notifier().checkDir(dir.dir().c_str()));
    EXPECT_TRUE(signalBlocked()) << "a reported change leaves the signal blocked";
    ASSERT_EQ(0, notifier().checkDir(dir.dir().c_str()));
    EXPECT_FALSE(signalBlocked());
    dir.write("created", "x");
    EXPECT_TRUE(changeShows(dir.dir())) << "creation";
    ASSERT_EQ(0, ::rename(dir.path("created").c_str(), dir.path("renamed").c_str()));
    EXPECT_TRUE(changeShows(dir.dir())) << "rename";
    ASSERT_EQ(0, ::unlink(dir.path("renamed").c_str()));
    EXPECT_TRUE(changeShows(dir.dir())) << "removal";
}

TEST_F(KQSDirectoryModificationLinuxTest, UnknownPathsCountAsChangedAndFailedRegistrationsLeaveNothing)
{
    dir.write("plain", "not a folder");
    struct Case {
        std::string path;
        const char* message;
    };
    const Case cases[] = {
        {dir.path("missing"), "open dir "},
        {dir.path("plain"), "fcntl on dir "},
    };
    for (const Case& c : cases) {
        int before = openDescriptors();
        EXPECT_EQ(-1, notifier().registerDir(c.path.c_str())) << c.path;
        EXPECT_EQ(0, std::string(KQC::getErrorMessage()).find(c.message + c.path + " : ")) << KQC::getErrorMessage();
        EXPECT_EQ(before, openDescriptors()) << c.path;
        EXPECT_EQ(1, notifier().checkDir(c.path.c_str())) << c.path;
        EXPECT_EQ(1, notifier().unregisterDir(c.path.c_str())) << c.path;
    }
}

TEST_F(KQSDirectoryModificationLinuxTest, RegisteringTwiceOpensTheDirectoryOnce)
{
    int before = openDescriptors();
    ASSERT_EQ(0, notifier().registerDir(dir.dir().c_str()));
    ASSERT_EQ(0, notifier().registerDir(dir.dir().c_str()));
    EXPECT_EQ(before + 1, openDescriptors());
    EXPECT_EQ(0, notifier().unregisterDir(dir.dir().c_str()));
    EXPECT_EQ(before, openDescriptors());
    EXPECT_EQ(1, notifier().unregisterDir(dir.dir().c_str()));
}

} // namespace
