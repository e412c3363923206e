#include "KQSEnvLock.h"

#include "TempHost.h"

#include "KQC/EnvCache.h"
#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <map>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class EnvLockTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host.write("etc/sysconfig/kq", "# host settings\nLOCKDIR=\"" + host.path("lock") + "\"\n");
        ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("lock") + "'"));
    }
    std::string lockFile(int veid) const { return "lock/" + std::to_string(veid) + ".lck"; }

    kqtest::TempHost host;
};

// A live child that waits to be killed.
struct LiveChild {
    LiveChild() : pid(fork())
    {
        if (pid == 0) {
            pause();
            _exit(0);
        }
    }
    ~LiveChild()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_t pid;
};

} // namespace

TEST_F(EnvLockTest, WritesPidAndTransitionByNameAndRemovesTheFileOnUnlock)
{
    {
        KQS::KQSEnvLock lock(101, 4);
        ASSERT_EQ(0, lock.lock()) << KQC::getErrorMessage();
        EXPECT_EQ(std::to_string(getpid()) + "\nstarting", host.read(lockFile(101)));
        EXPECT_EQ(host.path(lockFile(101)), lock.path());
    }
    EXPECT_FALSE(kqtest::exists(host.path(lockFile(101))));

    // Transitions outside the table are written as unknown; the ends of the
    // table and a name with a dash as the tools read them.
    for (int state : {0, 1, 21, 101, -3}) {
        KQS::KQSEnvLock lock(200, state);
        ASSERT_EQ(0, lock.lock());
        EXPECT_EQ(std::to_string(getpid()) + "\nunknown", host.read(lockFile(200))) << state;
    }
    for (auto known : std::map<int, std::string>{{2, "creating"}, {11, "starting-repair"}, {20, "restarting"}}) {
        KQS::KQSEnvLock lock(200, known.first);
        ASSERT_EQ(0, lock.lock());
        EXPECT_EQ(std::to_string(getpid()) + "\n" + known.second, host.read(lockFile(200))) << known.first;
    }
}

// Files that name no running process. Kill with 0 or a negative pid reaches
// process groups rather than one process, and a number past the largest
// pid, or too big to read, names nobody either.
TEST_F(EnvLockTest, TakesOverStaleAndGarbageLocks)
{
    const std::string stale[] = {std::to_string(kqtest::deadPid()) + "\nmounting",
                                 "not a pid at all",
                                 "",
                                 "0\nmounting",
                                 "-1\nmounting",
                                 "-" + std::to_string(getpgrp()) + "\nmounting",
                                 "-2147483648\nmounting",
                                 "2147483647\nmounting",
                                 "99999999999999999999\nmounting"};
    int veid = 300;
    for (const std::string& content : stale) {
        host.write(lockFile(veid), content);
        KQS::KQSEnvLock lock(veid, 18);
        EXPECT_EQ(0, lock.lock()) << content << ": " << KQC::getErrorMessage();
        EXPECT_EQ(std::to_string(getpid()) + "\nsuspending", host.read(lockFile(veid))) << content;
        ++veid;
    }
}

TEST_F(EnvLockTest, RefusesALockHeldByALiveProcess)
{
    LiveChild holder;
    std::string content = std::to_string(holder.pid) + "\nmounting";
    host.write(lockFile(104), content);
    KQS::KQSEnvLock lock(104, 4);
    EXPECT_EQ(-1, lock.lock());
    EXPECT_STREQ("Environment locked (in 'mounting' transition)", KQC::getErrorMessage());
    EXPECT_FALSE(lock.locked());
    EXPECT_EQ(content, host.read(lockFile(104))) << "somebody else's lock stays untouched";

    host.write(lockFile(105), std::to_string(holder.pid));
    KQS::KQSEnvLock noWord(105, 4);
    EXPECT_EQ(-1, noWord.lock());
    EXPECT_STREQ("Environment locked (in 'unknown' transition)", KQC::getErrorMessage());

    // The first process always runs, and belongs to another user when the
    // tests do not run as root: it still holds the lock.
    host.write(lockFile(108), "1\nstopping");
    KQS::KQSEnvLock init(108, 4);
    EXPECT_EQ(-1, init.lock());
    EXPECT_STREQ("Environment locked (in 'stopping' transition)", KQC::getErrorMessage());
}

TEST_F(EnvLockTest, ResolvesTheContainerFromTheEnvironmentWhenNoVeidIsGiven)
{
    KQS::KQSEnvLock nothing(0, 4);
    EXPECT_EQ(1, nothing.setPathLazy());
    EXPECT_STREQ("Both VE's id and eid are invalid", KQC::getErrorMessage());
    EXPECT_EQ(-1, nothing.lock());

    KQS::KQSEnvLock unknown(0, 4);
    unknown.eid = KQC::KQCGUIDBase::generateNew();
    EXPECT_EQ(1, unknown.setPathLazy());
    EXPECT_EQ("Cannot find VE by eid '" + unknown.eid.toString() + "'", KQC::getErrorMessage());
}

TEST_F(EnvLockTest, AFailedWriteStillCountsAsLocked)
{
    host.write("etc/sysconfig/kq", "LOCKDIR=\"" + host.path("missing/folder") + "\"\n");
    KQS::KQSEnvLock lock(106, 4);
    EXPECT_EQ(-1, lock.lock());
    EXPECT_STREQ("Can't create lock", KQC::getErrorMessage());
    EXPECT_TRUE(lock.locked());
}

TEST_F(EnvLockTest, LockingTwiceIsAProgrammingError)
{
    KQS::KQSEnvLock lock(107, 4);
    ASSERT_EQ(0, lock.lock());
    EXPECT_DEATH(lock.lock(), "!m_locked");
    lock.unlock();
    EXPECT_DEATH(lock.unlock(), "m_locked");
}
