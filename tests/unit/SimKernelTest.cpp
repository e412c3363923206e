// The simulated kernel is a preloaded library, so it is tested in a real
// preloaded process: each parent test writes state files into a fresh host,
// re-runs this program with the library preloaded and one child test
// selected, and the child issues the calls and checks the answers.
#include "KQS/KqKernelAbi.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

// ---- parent side ---------------------------------------------------------

class SimKernelTest : public ::testing::Test {
protected:
    void setKernel(const std::string& scope, const std::string& key, const std::string& value)
    {
        m_temp.write("var/lib/kqsim/kernel/" + scope + "/" + key, value + "\n");
    }

    struct KernelValue {
        const char* scope;
        const char* key;
        const char* value;
    };

    void setKernel(std::initializer_list<KernelValue> values)
    {
        for (const KernelValue& entry : values)
            setKernel(entry.scope, entry.key, entry.value);
    }

    // Runs child test `name` preloaded on this host; extra entries are "NAME=value".
    void runChild(const std::string& name, const std::vector<std::string>& extra = {})
    {
        kqtest::runPreloaded(m_temp.dir(),
                             {"--gtest_filter=SimKernelChild.DISABLED_" + name, "--gtest_also_run_disabled_tests"},
                             extra, m_temp.path("child.log"));
    }

    kqtest::TempDir m_temp{"/tmp/kqsimkernel."};
};

TEST_F(SimKernelTest, VeidListReportsTheTotalSoCallersDoubleTheirRoom)
{
    std::string running;
    for (int veid = 1000; veid < 3500; ++veid)
        running += std::to_string(veid) + "\n";
    m_temp.write("var/lib/kqsim/running", running);
    runChild("VeidListOverflow");
}

TEST_F(SimKernelTest, MissingRunningListIsEmpty)
{
    m_temp.write("var/lib/kqsim/kernel/host/ubc.count", "3\n");
    runChild("VeidListEmpty");
}

TEST_F(SimKernelTest, QuotaAnswersWithTheRecordLayout)
{
    setKernel({{"101", "quota.block_usage", "1500"},
               {"101", "quota.block_soft", "1048576"},
               {"101", "quota.block_hard", "2097152"},
               {"101", "quota.block_grace", "7"},
               {"101", "quota.block_expiry", "8"},
               {"101", "quota.inode_usage", "9"},
               {"101", "quota.inode_soft", "10"},
               {"101", "quota.inode_hard", "11"},
               {"101", "quota.inode_grace", "12"},
               {"101", "quota.inode_expiry", "13"},
               {"101", "quota.ugid_a", "14"},
               {"101", "quota.ugid_b", "15"},
               {"102", "quota.loaded", "0"}});
    runChild("Quota");
}

TEST_F(SimKernelTest, CpuLoadAverageAndSlmAnswers)
{
    setKernel({{"101", "cpu", "1 2 3 4 5 6"},
               {"101", "loadavg", "0.15 2.5 10.07"},
               {"101", "slm", "2:7:100,1:7:5000000000"}});
    runChild("CpuAndSlm");
}

TEST_F(SimKernelTest, IoctlFaultsCountDownAcrossProcesses)
{
    setKernel("host", "fault.ioctl", "EBUSY 3");
    runChild("IoctlOutcomes", {"KQ_EXPECT=EBUSY EBUSY"});
    runChild("IoctlOutcomes", {"KQ_EXPECT=EBUSY OK OK"});
    std::string left = m_temp.read("var/lib/kqsim/kernel/host/fault.ioctl");
    EXPECT_EQ(left.substr(0, left.find_first_of(" \n")), "EBUSY");
    EXPECT_EQ(std::atoi(left.c_str() + left.find(' ')), 0);
}

TEST_F(SimKernelTest, NottyFaultThenTheOlderTypeByteIsAnswered)
{
    setKernel("host", "fault.ioctl", "ENOTTY 1");
    setKernel("101", "quota.ugid_a", "14");
    runChild("NottyRetry");
}

// The beancounter call answers under its first number, and under the older
// one when the first is refused.
TEST_F(SimKernelTest, BeancounterCallAnswersUnderEitherNumber)
{
    setKernel({{"host", "ubc.count", "3"}, {"host", "ubc.2", "20 21 22 23 24 25 26 27"},
               {"101", "ubc.1", "10 11 12 13 14 15 16 17"}});
    m_temp.write("var/lib/kqsim/running", "101\n102\n");
    runChild("Ubstat", {"KQ_EXPECT=PRIMARY"});
    setKernel("host", "fault.ubc503", "ENOSYS");
    runChild("Ubstat", {"KQ_EXPECT=FALLBACK"});
}

TEST_F(SimKernelTest, DeviceOpenFaultMakesTheDeviceMissing)
{
    setKernel("host", "fault.open", "ENOENT");
    runChild("DeviceMissing", {"KQ_NO_DEVICE=1"});
}

TEST_F(SimKernelTest, UnrelatedCallsAreUntouched)
{
    m_temp.write("plain.txt", "hello");
    m_temp.write("var/lib/kqsim/running", "101\n");
    runChild("Untouched");
}

// ---- child side (run only through runChild) -----------------------------

class SimKernelChild : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!kqtest::isPreloadedChild())
            GTEST_SKIP() << "runs only in a preloaded re-run";
        m_root = std::getenv("KQ_HOST_ROOT");
        if (std::getenv("KQ_NO_DEVICE"))
            return;
        m_device = ::open((m_root + "/dev/kqctl").c_str(), O_RDWR | O_CLOEXEC);
        ASSERT_GE(m_device, 0) << std::strerror(errno);
    }

    void TearDown() override
    {
        if (m_device >= 0)
            ::close(m_device);
    }

    // ioctl as the plug-in issues it: the request passed as an int.
    int control(int request, void* argument) { return ::ioctl(m_device, request, argument); }

    int quotaStat(unsigned veid, unsigned char (&result)[80], int request = int(KQ_IOC_QUOTA_STAT))
    {
        kq_quota_request record{};
        std::memset(result, 0, sizeof result);
        record.command = KQ_QUOTA_CMD_STAT;
        record.quota_id = veid;
        record.result = result;
        return control(request, &record);
    }

    static uint64_t u64At(const void* buffer, size_t offset)
    {
        uint64_t value;
        std::memcpy(&value, static_cast<const char*>(buffer) + offset, sizeof value);
        return value;
    }

    static uint32_t u32At(const void* buffer, size_t offset)
    {
        uint32_t value;
        std::memcpy(&value, static_cast<const char*>(buffer) + offset, sizeof value);
        return value;
    }

    static std::vector<std::string> expectations()
    {
        std::istringstream words(std::getenv("KQ_EXPECT") ? std::getenv("KQ_EXPECT") : "");
        std::vector<std::string> list;
        for (std::string word; words >> word;)
            list.push_back(word);
        return list;
    }

    std::string m_root;
    int m_device = -1;
};

TEST_F(SimKernelChild, DISABLED_VeidListOverflow)
{
    std::vector<uint32_t> veids(1024);
    kqlist_veidctl list{1024, 0, veids.data()};
    int total = control(int(KQ_IOC_VEID_LIST), &list);
    ASSERT_EQ(total, 2500);
    EXPECT_EQ(veids.front(), 1000u);
    EXPECT_EQ(veids.back(), 2023u);
    while (total > int(list.count)) {
        veids.assign(list.count * 2, 0);
        list.count *= 2;
        list.veids = veids.data();
        total = control(int(KQ_IOC_VEID_LIST), &list);
    }
    EXPECT_EQ(list.count, 4096u);
    ASSERT_EQ(total, 2500);
    EXPECT_EQ(veids[0], 1000u);
    EXPECT_EQ(veids[2499], 3499u);
    EXPECT_EQ(veids[2500], 0u);
}

TEST_F(SimKernelChild, DISABLED_VeidListEmpty)
{
    uint32_t veid = 77;
    kqlist_veidctl list{1, 0, &veid};
    EXPECT_EQ(control(int(KQ_IOC_VEID_LIST), &list), 0);
    EXPECT_EQ(veid, 77u);
    kq_veid_probe probe{};
    probe.veid = 101;
    EXPECT_EQ(control(int(KQ_IOC_VEID_PROBE), &probe), -1);
    EXPECT_EQ(errno, ESRCH);
    probe.veid = 0;
    EXPECT_EQ(control(int(KQ_IOC_VEID_PROBE_OLD), &probe), 0);
}

TEST_F(SimKernelChild, DISABLED_Quota)
{
    // Where each value of the record lies, and how wide it is.
    const struct {
        size_t offset;
        size_t width;
        uint64_t value;
    } fields[] = {{0, 8, 2097152}, {8, 8, 1048576}, {16, 4, 7},  {24, 8, 1500}, {32, 4, 11},
                  {36, 4, 10},     {40, 4, 12},     {48, 8, 9},  {56, 4, 8},    {64, 4, 13}};
    unsigned char result[80];
    ASSERT_EQ(quotaStat(101, result), 0) << std::strerror(errno);
    for (const auto& field : fields)
        EXPECT_EQ(field.width == 8 ? u64At(result, field.offset) : u32At(result, field.offset), field.value)
            << "at " << field.offset;

    unsigned char ugid[12] = {};
    kq_quota_ugid_request request{};
    request.command = KQ_QUOTA_UGID_GET_PARAMS;
    request.quota_id = 101;
    request.buffer = ugid;
    ASSERT_EQ(control(int(KQ_IOC_QUOTA_UGID), &request), 0);
    EXPECT_EQ(u32At(ugid, 0), 15u);
    EXPECT_EQ(u32At(ugid, 4), 14u);

    // Values never set read as zero; a container without loaded quota has none.
    ASSERT_EQ(quotaStat(103, result), 0);
    EXPECT_EQ(u64At(result, 24), 0u);
    EXPECT_EQ(quotaStat(102, result), -1);
    EXPECT_EQ(errno, ENOENT);

    // Older kernels' numbering is answered alike; unknown requests are not.
    ASSERT_EQ(quotaStat(101, result, int(KQ_IOC_WITH_TYPE(KQ_IOC_QUOTA_STAT, KQ_IOC_LEGACY_TYPE))), 0);
    EXPECT_EQ(u64At(result, 24), 1500u);
    EXPECT_EQ(quotaStat(101, result, int(KQ_IOC_WITH_TYPE(KQ_IOC_QUOTA_STAT, 0x55))), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(SimKernelChild, DISABLED_CpuAndSlm)
{
    unsigned char result[80];
    std::memset(result, 0xff, sizeof result);
    kq_cpu_request cpu{101, 0, result};
    ASSERT_EQ(control(int(KQ_IOC_CPU_STAT), &cpu), 0);
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(u64At(result, i * 8), i + 1) << "u64 #" << i;
    const int load[6] = {0, 15, 2, 50, 10, 7};
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(int(u32At(result, 56 + i * 4)), load[i]) << "int at " << 56 + i * 4;

    std::vector<unsigned char> buffer(KQ_SLM_BUFFER_SIZE);
    kq_slm_request slm{buffer.data(), KQ_SLM_BUFFER_SIZE, 101};
    ASSERT_EQ(control(int(KQ_IOC_SLM_GROUP), &slm), 0);
    uint32_t root = u32At(buffer.data(), 0);
    ASSERT_EQ(KQ_SLM_HEADER_TYPE(root), KQ_SLM_TYPE_GROUP);
    // list marker, then (A, B, value) twice: 2:7 as u32, 1:7 as u64
    const uint32_t types[] = {132, 129, 129, 129, 129, 129, 131};
    const uint64_t values[] = {0, 2, 7, 100, 1, 7, 5000000000ull};
    uint32_t cursor = 0;
    for (size_t i = 0; i < 7; ++i) {
        uint32_t header = u32At(buffer.data(), 4 + cursor);
        uint32_t size = KQ_SLM_HEADER_SIZE_OF(header);
        EXPECT_EQ(KQ_SLM_HEADER_TYPE(header), types[i]) << "element " << i;
        if (size == 4) {
            EXPECT_EQ(u32At(buffer.data(), 8 + cursor), values[i]) << "element " << i;
        } else if (size == 8) {
            EXPECT_EQ(u64At(buffer.data(), 8 + cursor), values[i]) << "element " << i;
        }
        cursor += size + 4;
    }
    EXPECT_EQ(cursor, KQ_SLM_HEADER_SIZE_OF(root));

    slm.size = 16;  // too small for the reply
    EXPECT_EQ(control(int(KQ_IOC_SLM_GROUP), &slm), -1);
    EXPECT_EQ(errno, E2BIG);
}

TEST_F(SimKernelChild, DISABLED_IoctlOutcomes)
{
    unsigned char result[80];
    for (const std::string& expected : expectations()) {
        int answer = quotaStat(101, result);
        if (expected == "OK") {
            EXPECT_EQ(answer, 0);
        } else {
            EXPECT_EQ(answer, -1);
            EXPECT_STREQ(std::strerror(errno), std::strerror(expected == "EBUSY" ? EBUSY : ENOTTY));
        }
    }
}

TEST_F(SimKernelChild, DISABLED_NottyRetry)
{
    unsigned char ugid[12] = {};
    kq_quota_ugid_request request{};
    request.command = KQ_QUOTA_UGID_GET_PARAMS;
    request.quota_id = 101;
    request.buffer = ugid;
    ASSERT_EQ(control(int(KQ_IOC_QUOTA_UGID), &request), -1);
    EXPECT_EQ(errno, ENOTTY);
    ASSERT_EQ(control(int(0xC0182A03u), &request), 0) << std::strerror(errno);
    EXPECT_EQ(u32At(ugid, 4), 14u);
}

TEST_F(SimKernelChild, DISABLED_Ubstat)
{
    bool fallback = expectations().at(0) == "FALLBACK";
    errno = 0;
    long primary = ::syscall(KQ_SYS_UBSTAT, KQ_UBSTAT_PARM_NUM, 0, 0, nullptr, 0);
    if (fallback) {
        EXPECT_EQ(primary, -1);
        EXPECT_EQ(errno, ENOSYS);
    } else {
        EXPECT_EQ(primary, 3);
    }
    long number = fallback ? KQ_SYS_UBSTAT_OLD : KQ_SYS_UBSTAT;
    EXPECT_EQ(::syscall(number, KQ_UBSTAT_PARM_NUM, 0, 0, nullptr, 0), 3);

    // Beancounter ids: the host first, then the running containers; a full
    // buffer means "ask again with more room".
    uint32_t ids[4] = {9, 9, 9, 9};
    EXPECT_EQ(::syscall(number, KQ_UBSTAT_GET_UBIDS, 0, 0, ids, 8), 8);
    EXPECT_EQ(::syscall(number, KQ_UBSTAT_GET_UBIDS, 0, 0, ids, 16), 12);
    EXPECT_EQ(ids[0], 0u);
    EXPECT_EQ(ids[1], 101u);
    EXPECT_EQ(ids[2], 102u);

    const long size = 16 + 3 * 64;
    std::vector<unsigned char> buffer(size, 0);
    kq_ubstat_notify notify{1, 0, 0};
    ASSERT_EQ(::syscall(number, KQ_UBSTAT_READ_FULL, 101, &notify, buffer.data(), size), size);
    EXPECT_EQ(u64At(buffer.data(), 16), 0u);            // record 0: not set
    EXPECT_EQ(u64At(buffer.data(), 16 + 64 + 24), 13u); // record 1, maxheld: the container's
    EXPECT_EQ(u64At(buffer.data(), 16 + 128 + 8), 21u); // record 2, limit: the host-wide one
    EXPECT_EQ(::syscall(number, KQ_UBSTAT_READ_FULL, 101, &notify, buffer.data(), size - 10), size - 10);
}

TEST_F(SimKernelChild, DISABLED_DeviceMissing)
{
    EXPECT_EQ(::open((m_root + "/dev/kqctl").c_str(), O_RDWR | O_CLOEXEC), -1);
    EXPECT_EQ(errno, ENOENT);
    // Ordinary files still open.
    int directory = ::open(m_root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_GE(directory, 0);
    ::close(directory);
}

TEST_F(SimKernelChild, DISABLED_Untouched)
{
    int plain = ::open((m_root + "/plain.txt").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(plain, 0);
    char text[16] = {};
    EXPECT_EQ(::read(plain, text, sizeof text), 5);
    EXPECT_STREQ(text, "hello");
    int pending = -1;
    EXPECT_EQ(::ioctl(plain, FIONREAD, &pending), 0);
    EXPECT_EQ(pending, 0);
    ::close(plain);

    EXPECT_EQ(::syscall(SYS_getpid), long(::getpid()));
    // A beancounter number with a function that is not one is the kernel's.
    errno = 0;
    EXPECT_EQ(::syscall(KQ_SYS_UBSTAT, 0x10000L, 0, 0, nullptr, 0), -1);
    EXPECT_EQ(errno, ENOSYS);

    // Other spellings of the device path, and paths that only look alike.
    int twice = ::openat(AT_FDCWD, (m_root + "//dev///kqctl").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(twice, 0);
    kq_veid_probe probe{};
    probe.veid = 101;
    EXPECT_EQ(::ioctl(twice, KQ_IOC_VEID_PROBE, &probe), 0);
    ::close(twice);
    EXPECT_EQ(::open((m_root + "/dev/kqctlx").c_str(), O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(errno, ENOENT);

    // Once closed, a reused descriptor number is an ordinary file again.
    ::close(m_device);
    int reused = ::open((m_root + "/plain.txt").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(reused, m_device);
    m_device = -1;
    EXPECT_EQ(::ioctl(reused, KQ_IOC_VEID_PROBE, &probe), -1);
    EXPECT_EQ(errno, ENOTTY);
    ::close(reused);
}

} // namespace
