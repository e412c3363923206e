// Decoding of the kernel's records and the tools' output into statistics.
// The queries themselves run end to end through kqagent (StatsE2ETest).
#include "KQSKqStatLocal.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using KQS::KQSKqStatLocal;

TEST(KQSKqStatLocalCollectorTest, KernelQuotaBytesBecomeKiBRoundedUp)
{
    const struct {
        uint64_t bytes;
        uint64_t kib;
    } cases[] = {{0, 0}, {1, 1}, {1023, 1}, {1024, 1}, {1025, 2}, {1500, 2}, {1ull << 40, 1ull << 30}};
    for (const auto& c : cases) {
        kq_quota_stat stat;
        std::memset(&stat, 0, sizeof stat);
        stat.block_usage = stat.block_soft = stat.block_hard = c.bytes;
        stat.inode_usage = c.bytes;
        kq_quota_ugid_state ugid = {3, 4, 0};
        KQS::KQSQuotaStats out;
        KQSKqStatLocal::quotaFromKernel(stat, ugid, out);
        EXPECT_EQ(out.blockUsage, c.kib) << c.bytes;
        EXPECT_EQ(out.blockSoft, c.kib) << c.bytes;
        EXPECT_EQ(out.blockHard, c.kib) << c.bytes;
        EXPECT_EQ(out.inodeUsage, c.bytes) << "inodes are counted, not sized";
        EXPECT_EQ(out.ugidA, 4u);
        EXPECT_EQ(out.ugidB, 3u);
    }
}

TEST(KQSKqStatLocalCollectorTest, ToolQuotaLinesFillWhatTheyHold)
{
    KQS::KQSQuotaStats full;
    KQSKqStatLocal::quotaFromTool(" 2 10 20 30 40\n 5 100 200 300 400\ntitle\n0 7 8\n", full);
    EXPECT_EQ(full.blockUsage, 2u);
    EXPECT_EQ(full.blockHard, 20u);
    EXPECT_EQ(full.blockExpiry, 40u);
    EXPECT_EQ(full.inodeSoft, 100u);
    EXPECT_EQ(full.inodeGrace, 300u);
    EXPECT_EQ(full.ugidA, 7u);
    EXPECT_EQ(full.ugidB, 8u);

    KQS::KQSQuotaStats partial;
    partial.inodeUsage = 99;
    partial.ugidA = 98;
    KQSKqStatLocal::quotaFromTool(" 2 10 20 30 40\ngarbage\n", partial);
    EXPECT_EQ(partial.blockSoft, 10u);
    EXPECT_EQ(partial.inodeUsage, 99u);
    EXPECT_EQ(partial.ugidA, 98u);
}

TEST(KQSKqStatLocalCollectorTest, TrafficLinesNeedSixNumbers)
{
    KQS::KQSNetClassList out;
    KQSKqStatLocal::netClassesFromTool("VEID CLASS IN_BYTES OUT_BYTES IN_PACKETS OUT_PACKETS\n"
                                       "101 1 10 20 30 40\n"
                                       "101 2 10 20 30\n"
                                       "\n"
                                       "101 3 18446744073709551615 0 0 1\n",
                                       out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].classId, 1);
    EXPECT_EQ(out[0].counters[3], 40u);
    EXPECT_EQ(out[1].classId, 3);
    EXPECT_EQ(out[1].counters[0], 18446744073709551615ull);
}

TEST(KQSKqStatLocalCollectorTest, CpuTimesAreReorderedAndCyclesScaledByTheClock)
{
    kq_cpu_stat stat;
    std::memset(&stat, 0, sizeof stat);
    stat.user_jiffies = 11;
    stat.nice_jiffies = 22;
    stat.system_jiffies = 33;
    stat.idle_cycles = 2000000000;  // 2 s at 1000 MHz
    stat.strv_cycles = 15000000;    // 15 ms
    const struct {
        unsigned long clock;
        uint64_t idle, starvation;
    } cases[] = {{1000, 200, 1}, {2000, 100, 0}, {1, 200000, 1500}};
    for (const auto& c : cases) {
        KQS::KQSVeCPULoad out;
        KQSKqStatLocal::cpuFromKernel(stat, c.clock, out);
        EXPECT_EQ(out.values[0], 33u);
        EXPECT_EQ(out.values[1], 11u);
        EXPECT_EQ(out.values[2], 22u);
        EXPECT_EQ(out.values[3], c.idle) << c.clock;
        EXPECT_EQ(out.values[4], c.starvation) << c.clock;
    }
}

TEST(KQSKqStatLocalCollectorTest, LoadValuesJoinIntegerAndHundredths)
{
    kq_cpu_stat stat;
    std::memset(&stat, 0, sizeof stat);
    stat.load[0] = {2, 5};
    stat.load[1] = {0, 99};
    stat.load[2] = {13, 0};
    KQC::KQCLoadAvg out;
    KQSKqStatLocal::loadFromKernel(stat, out);
    EXPECT_DOUBLE_EQ(out.avg[0], 2.05);
    EXPECT_DOUBLE_EQ(out.avg[1], 0.99);
    EXPECT_DOUBLE_EQ(out.avg[2], 13.0);
}

TEST(KQSKqStatLocalCollectorTest, UbcRecordsAreTakenByKernelIndex)
{
    unsigned char buffer[sizeof(kq_ubstat_header) + 3 * sizeof(kq_ubstat_record)] = {};
    kq_ubstat_record records[3] = {};
    records[0] = {1, 2, 0, 10, 5, 0, {0, 0}};
    records[2] = {100, 200, 0, 7, 0, 0, {0, 0}};
    std::memcpy(buffer + sizeof(kq_ubstat_header), records, sizeof records);
    KQS::KQSUbcList out(1);
    KQSKqStatLocal::ubcFromKernel(buffer, {"late", "early"}, {2, 0}, out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].name, "late");
    EXPECT_EQ(out[0].average, 3u) << "integer halving of maxheld + minheld";
    EXPECT_EQ(out[0].limit, 200u);
    EXPECT_EQ(out[0].barrier, 100u);
    EXPECT_EQ(out[1].average, 7u);
}

} // namespace
