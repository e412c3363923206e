// The kernel interface, on the simulated kernel: every test runs in a
// preloaded child (PreloadedRun.h), sets the kernel's state and faults
// through its state files, and issues the real calls.
#include "KQSKqStatLocal.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace KQS;

class KQSKqStatLocalTest : public ::testing::Test {
protected:
    static std::string kernelPath(const std::string& scope, const std::string& key)
    {
        return kqtest::hostRoot() + "/var/lib/kqsim/kernel/" + scope + "/" + key;
    }
    static void setKernel(const std::string& scope, const std::string& key, const std::string& value)
    {
        kqtest::writeFile(kernelPath(scope, key), value + "\n");
    }
    static void clearKernel(const std::string& scope, const std::string& key)
    {
        std::remove(kernelPath(scope, key).c_str());
    }
    // The units of an ioctl fault not yet used.
    static long faultUnitsLeft()
    {
        std::string text = kqtest::readFile(kernelPath("host", "fault.ioctl"));
        size_t blank = text.find(' ');
        return blank == std::string::npos ? -1 : std::atol(text.c_str() + blank);
    }
    // A user/group quota read of container 101; its value A is 14.
    static int readUgid(int request = int(KQ_IOC_QUOTA_UGID))
    {
        kq_quota_ugid_state state;
        std::memset(&state, 0, sizeof state);
        kq_quota_ugid_request record;
        std::memset(&record, 0, sizeof record);
        record.command = KQ_QUOTA_UGID_GET_PARAMS;
        record.quota_id = 101;
        record.buffer = &state;
        int result = kqLinDeviceCall(request, &record);
        if (result == 0 && state.value_a != 14)
            return -2;
        return result;
    }
};

// ---- ioctl retries -------------------------------------------------------

TEST_F(KQSKqStatLocalTest, NottyIsRetriedUnderTheOlderTypeByte)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("101", "quota.ugid_a", "14");
    // Only the older numbering of this request is known to the kernel, so
    // success proves that the retry rewrote the type byte.
    int unknownType = int(KQ_IOC_WITH_TYPE(KQ_IOC_QUOTA_UGID, 0x55));
    EXPECT_EQ(readUgid(unknownType), 0) << std::strerror(errno);
    EXPECT_EQ(KQ_IOC_WITH_TYPE(KQ_IOC_QUOTA_UGID, KQ_IOC_LEGACY_TYPE), 0xC0182A03u);
}

// ENOTTY and EBUSY get one more attempt each; other errors none.
TEST_F(KQSKqStatLocalTest, FailuresAreRetriedOnceOrNotAtAll)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("101", "quota.ugid_a", "14");
    struct Case {
        const char* fault;  // the error and how many calls it fails
        int result;
        int error;
        long unitsLeft;
    } cases[] = {
        {"ENOTTY 1", 0, 0, 0}, {"ENOTTY 3", -1, ENOTTY, 1}, {"EBUSY 1", 0, 0, 0},
        {"EBUSY 3", -1, EBUSY, 1}, {"EINVAL 2", -1, EINVAL, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.fault);
        setKernel("host", "fault.ioctl", c.fault);
        errno = 0;
        EXPECT_EQ(readUgid(), c.result);
        if (c.result != 0) {
            EXPECT_EQ(errno, c.error);
        }
        EXPECT_EQ(faultUnitsLeft(), c.unitsLeft);
    }
    // Quota not loaded: the kernel's ENOENT reaches the caller untouched.
    clearKernel("host", "fault.ioctl");
    setKernel("101", "quota.loaded", "0");
    errno = 0;
    EXPECT_EQ(readUgid(), -1);
    EXPECT_EQ(errno, ENOENT);
}

// ---- the device ------------------------------------------------------------

TEST_F(KQSKqStatLocalTest, DeviceIsOpenedOnceAndKept)
{
    if (kqtest::ranInPreloadedChild())
        return;
    int fd = openKQLinDevice();
    ASSERT_GE(fd, 0) << std::strerror(errno);
    EXPECT_EQ(openKQLinDevice(), fd);
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(KQSKqStatLocalTest, MissingDeviceFailsEveryCallUntilItAppears)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("host", "fault.open", "ENOENT");
    EXPECT_EQ(openKQLinDevice(), -1);
    kq_quota_ugid_state state;
    EXPECT_EQ(kqLinQuotaUgidCall(KQ_QUOTA_UGID_GET_STATE, 101, 0, 0, &state), -1);
    kqlist_veidctl list{0, 0, nullptr};
    EXPECT_EQ(kqLinGetVeidsCall(&list), -1);
    // A failed open is not remembered.
    clearKernel("host", "fault.open");
    EXPECT_GE(openKQLinDevice(), 0);
    EXPECT_EQ(kqLinGetVeidsCall(&list), 0);
}

// ---- the running list ------------------------------------------------------

TEST_F(KQSKqStatLocalTest, VeidListReportsEveryRunningContainer)
{
    if (kqtest::ranInPreloadedChild())
        return;
    kqtest::writeFile(kqtest::hostRoot() + "/var/lib/kqsim/running", "101\n102\n103\n");
    std::vector<uint32_t> veids(2, 0);
    kqlist_veidctl list{2, 0, veids.data()};
    // Too little room: the total tells the caller to ask again.
    EXPECT_EQ(kqLinGetVeidsCall(&list), 3);
    EXPECT_EQ(veids[0], 101u);
    EXPECT_EQ(veids[1], 102u);
    // One plain ioctl: a fault is not retried.
    setKernel("host", "fault.ioctl", "ENOTTY 1");
    errno = 0;
    EXPECT_EQ(kqLinGetVeidsCall(&list), -1);
    EXPECT_EQ(errno, ENOTTY);
}

// ---- the beancounter call --------------------------------------------------

TEST_F(KQSKqStatLocalTest, BeancounterCallFallsBackToTheOlderNumberForGood)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("host", "ubc.count", "3");
    setKernel("host", "fault.ubc503", "ENOSYS");
    EXPECT_EQ(kqLinUbstatCall(long(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0), 3);
    clearKernel("host", "fault.ubc503");
    EXPECT_EQ(kqLinUbstatCall(long(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0), 3);
}

TEST_F(KQSKqStatLocalTest, BeancounterNumberIsFixedByTheFirstCall)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("host", "ubc.count", "3");
    EXPECT_EQ(kqLinUbstatCall(long(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0), 3);
    // The first number worked; a later ENOSYS there is not a reason to move.
    setKernel("host", "fault.ubc503", "ENOSYS");
    errno = 0;
    EXPECT_EQ(kqLinUbstatCall(long(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0), -1);
    EXPECT_EQ(errno, ENOSYS);
}

TEST_F(KQSKqStatLocalTest, UbcQueryReturnsHeaderAndOneRecordPerParameter)
{
    if (kqtest::ranInPreloadedChild())
        return;
    setKernel("host", "ubc.count", "3");
    setKernel("host", "ubc.2", "20 21 22 23 24 25 26 27");
    setKernel("101", "ubc.1", "10 11 12 13 14 15 16 17");
    void* buffer = kqLinUbcQueryCall(101);
    ASSERT_NE(buffer, nullptr);
    const kq_ubstat_record* records =
        reinterpret_cast<const kq_ubstat_record*>(static_cast<char*>(buffer) + sizeof(kq_ubstat_header));
    EXPECT_EQ(records[0].barrier, 0u);
    EXPECT_EQ(records[1].barrier, 10u);
    EXPECT_EQ(records[1].maxheld, 13u);
    EXPECT_EQ(records[1].minheld, 14u);
    EXPECT_EQ(records[2].limit, 21u);
    std::free(buffer);
}

// The kernel's parameter count, shrinking after its first reading: the
// count is a pipe whose first reader gets `first`; once that reader has it
// open, a plain file holding `then` is renamed into the pipe's place, so
// every later reading gets `then`. The pipe is held open by no one but that
// reader, so the order is fixed whatever the threads' timing.
void shrinkCountAfterFirstReading(const std::string& fifo, const std::string& first, const std::string& then)
{
    std::string next = fifo + ".next";
    kqtest::writeFile(next, then + "\n");
    // Returns once the first reader has opened the pipe.
    int fd = ::open(fifo.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    EXPECT_EQ(::rename(next.c_str(), fifo.c_str()), 0);
    std::string text = first + "\n";
    EXPECT_EQ(::write(fd, text.data(), text.size()), ssize_t(text.size()));
    ::close(fd);
}

TEST_F(KQSKqStatLocalTest, UbcQueryGivesNullWhenTheCountShrinksMeanwhile)
{
    if (kqtest::ranInPreloadedChild({"ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1"}))
        return;
    std::string fifo = kernelPath("host", "ubc.count");
    kqtest::run("mkdir -p '" + kernelPath("host", "") + "'");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::thread kernel(shrinkCountAfterFirstReading, fifo, "3", "2");
    EXPECT_EQ(kqLinUbcQueryCall(101), nullptr);
    kernel.join();
}

TEST_F(KQSKqStatLocalTest, UbcQueryGivesNullForImpossibleCounts)
{
    const char* mayReturnNull = "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1:allocator_may_return_null=1";
    if (kqtest::ranInPreloadedChild({mayReturnNull}))
        return;
    // A count that wraps negative, one whose size overflows, one no memory holds.
    for (const char* count : {"18446744073709551615", "4611686018427387904", "17179869184"}) {
        setKernel("host", "ubc.count", count);
        EXPECT_EQ(kqLinUbcQueryCall(101), nullptr) << count;
    }
}

} // namespace
