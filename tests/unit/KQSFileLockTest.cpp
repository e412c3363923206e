#include "KQSEnvConfigLock.h"
#include "KQSFileLock.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

namespace {

// Whether util-linux flock(1) could take the lock without waiting.
bool othersCanLock(const std::string& path) { return kqtest::run("flock -n '" + path + "' true") == 0; }

} // namespace

TEST(KQSFileLockTest, LocksBetweenProcessesAndKeepsTheFile)
{
    kqtest::TempHost host;
    std::string path = host.path("current_veid.lock");
    KQS::KQSFileLock lock(path);
    EXPECT_EQ(-1, lock.unlock()) << "nothing opened yet";
    EXPECT_FALSE(kqtest::exists(path)) << "construction opens nothing";

    ASSERT_EQ(0, lock.lock(true));
    EXPECT_TRUE(kqtest::exists(path));
    EXPECT_FALSE(othersCanLock(path));
    EXPECT_EQ(0, lock.unlock());
    EXPECT_TRUE(othersCanLock(path));
    EXPECT_TRUE(kqtest::exists(path));
    // The descriptor is reused by the next lock.
    EXPECT_EQ(0, lock.lock(false));
    EXPECT_FALSE(othersCanLock(path));
}

TEST(KQSFileLockTest, ReportsAFileThatCannotBeCreated)
{
    kqtest::TempHost host;
    KQS::KQSFileLock lock(host.path("no/such/folder/x.lock"));
    EXPECT_EQ(-1, lock.lock(true));
    EXPECT_EQ("can't create lock file \"" + host.path("no/such/folder/x.lock") + "\"", KQC::getErrorMessage());
}

TEST(KQSEnvConfigLockTest, CreatesExclusivelyAndNeverRemovesSomebodyElsesFile)
{
    kqtest::TempHost host;
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path("etc/kqagent/configs") + "'"));
    KQC::KQCEID eid = KQC::KQCGUIDBase::generateNew();
    std::string lockPath = host.path("etc/kqagent/configs/" + eid.toString() + ".lck");

    {
        KQS::KQSEnvConfigLock first;
        ASSERT_EQ(0, first.lock(eid));
        EXPECT_TRUE(kqtest::exists(lockPath));
        KQS::KQSEnvConfigLock second;
        EXPECT_EQ(-1, second.lock(eid));
    }
    EXPECT_FALSE(kqtest::exists(lockPath)) << "the holder removes its file";

    host.write("etc/kqagent/configs/" + eid.toString() + ".lck", "");
    {
        KQS::KQSEnvConfigLock failing;
        EXPECT_EQ(-1, failing.lock(eid));
        failing.unlock();
    }
    EXPECT_TRUE(kqtest::exists(lockPath)) << "a failed locker leaves an existing file alone";
}
