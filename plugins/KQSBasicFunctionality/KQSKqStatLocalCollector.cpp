// The statistics collector's queries. The kernel calls are in
// KQSKqStatLocal.cpp; this unit turns their records and the tools' output
// into the management library's records.
#include "KQSBasicFunctionalityCommon.h"
#include "KQSEnvMLocal.h"
#include "KQSKqStatLocal.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"
#include "KQC/Computer.h"
#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "KQC/Tags.h"
#include "KQC/Vocabulary.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <sstream>
#include <sys/wait.h>

namespace KQS {
namespace {

const char* const kQuotaMessage = "quota might not be properly initialized in Container %d";

// A violated precondition, or a kernel or vocabulary so broken that the
// records cannot be named: a programming or installation error, not a
// result a client could act on.
[[noreturn]] void fatal(const char* text)
{
    std::fprintf(stderr, "KQSKqStatLocal: Assertion `%s' failed.\n", text);
    std::abort();
}

void require(bool condition, const char* text)
{
    if (!condition)
        fatal(text);
}

uint64_t kibRoundedUp(uint64_t bytes)
{
    return (bytes + 1023) >> 10;
}

// Runs a tool with its output captured; the wait status, or -1 when it
// could not start.
int runTool(const std::vector<std::string>& words, std::string& output)
{
    KQC::ExecutionArgs args;
    for (const std::string& word : words)
        args.push_back(word);
    KQC::HWExec exec;
    int status = exec.exec(0, args.toArgs());
    output = exec.getOutput(KQC::GenExec::OUT);
    return status;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line))
        out.push_back(line);
    return out;
}

// Fields of one kqquota line: " usage soft hard grace expiry".
void quotaLine(const std::string& line, uint64_t& usage, uint64_t& soft, uint64_t& hard, uint32_t& grace,
               uint32_t& expiry)
{
    unsigned long long u = 0, s = 0, h = 0;
    unsigned g = 0, e = 0;
    if (std::sscanf(line.c_str(), " %llu %llu %llu %u %u", &u, &s, &h, &g, &e) != 5)
        return;
    usage = u, soft = s, hard = h, grace = g, expiry = e;
}

int quotaFromToolRun(int veid, KQSQuotaStats& out)
{
    std::string output;
    int status = runTool({"kqquota", "-b", "-q", "show", std::to_string(veid), "-t"}, output);
    // 10 is the tool's way of saying that some limit is exceeded; the
    // numbers are there all the same.
    bool accepted = status == 0 || (status > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 10);
    if (!accepted) {
        KQC::setErrorMessage(kQuotaMessage, veid);
        return KQS_ERR_GENERIC;
    }
    KQSKqStatLocal::quotaFromTool(output, out);
    return KQS_OK;
}

// The host's information, refreshed at most once per calendar second:
// the CPU clock hardly changes, and a busy client asks many times a second.
int hostClock(unsigned long& clockMHz)
{
    static std::mutex guard;
    static KQC::KQCSystemInfo info;
    static time_t refreshed = 0;
    std::lock_guard<std::mutex> lock(guard);
    time_t now = std::time(nullptr);
    if (refreshed != now || info.cpuClockMHz == 0) {
        KQC::KQCComputerMLocal computer{KQC::KQCAccessProvider()};
        int rc = computer.getOsInfo(info);
        if (rc != 0)
            return rc;
        refreshed = now;
    }
    clockMHz = info.cpuClockMHz;
    return 0;
}

int readCpuStat(int veid, kq_cpu_stat& stat)
{
    std::memset(&stat, 0, sizeof stat);
    kq_cpu_request request;
    std::memset(&request, 0, sizeof request);
    request.veid = veid;
    request.result = &stat;
    return kqLinDeviceCall(static_cast<int>(KQ_IOC_CPU_STAT), &request) == 0 ? 0 : -1;
}

struct UbcNames {
    std::vector<std::string> names;
    std::vector<int> indexes;
};

void buildUbcNames(UbcNames& lists)
{
    long count = kqLinUbstatCall(static_cast<long>(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0);
    if (count < 0 || count > KQ_UB_RESOURCES) {
        KQS_LOG().put(1, "[%s] kqLinUbstatCall(UBSTAT_UBPARMNUM failed : %s", "getUBCNames",
                      count < 0 ? std::strerror(errno) : "ubcNumbers > UB_RESOURCES");
        fatal("ubcNumbers >= 0 && ubcNumbers <= UB_RESOURCES");
    }
    KQC::KQCVocabularyPtr vocabulary = KQC::vocCacheLocal()->getVocabulary();
    if (!vocabulary) {
        KQS_LOG().put(1, "[%s] Can't read vocabulary", "getUBCNames");
        fatal("vocabulary");
    }
    if (!vocabulary->hasCategory("ubc")) {
        KQS_LOG().put(1, "[%s] Can't find 'ubc' category in voc", "getUBCNames");
        fatal("ubc category");
    }
    std::vector<KQC::KQCVocParameter> parameters;
    vocabulary->getCategory("ubc", parameters);
    for (const KQC::KQCVocParameter& parameter : parameters) {
        int index = 0;
        if (parameter.getInt(KQC::TAG_VOC_VALUE, index) != 0)
            continue;
        if (index < 0 || index >= count) {
            KQS_LOG().put(1, "UBC index is above the threshold(%d >= %d)", index, static_cast<int>(count));
            continue;
        }
        lists.names.push_back(parameter.getId());
        lists.indexes.push_back(index);
    }
}

} // namespace

KQSKqStatLocal::KQSKqStatLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

// ---- decoding ------------------------------------------------------------

void KQSKqStatLocal::quotaFromKernel(const kq_quota_stat& stat, const kq_quota_ugid_state& ugid, KQSQuotaStats& out)
{
    out.blockUsage = kibRoundedUp(stat.block_usage);
    out.blockSoft = kibRoundedUp(stat.block_soft);
    out.blockHard = kibRoundedUp(stat.block_hard);
    out.blockGrace = stat.block_grace;
    out.blockExpiry = stat.block_expiry;
    out.inodeUsage = stat.inode_usage;
    out.inodeSoft = stat.inode_soft;
    out.inodeHard = stat.inode_hard;
    out.inodeGrace = stat.inode_grace;
    out.inodeExpiry = stat.inode_expiry;
    out.ugidA = ugid.value_a;
    out.ugidB = ugid.value_b;
}

void KQSKqStatLocal::quotaFromTool(const std::string& output, KQSQuotaStats& out)
{
    std::vector<std::string> text = lines(output);
    if (text.size() > 0)
        quotaLine(text[0], out.blockUsage, out.blockSoft, out.blockHard, out.blockGrace, out.blockExpiry);
    if (text.size() > 1)
        quotaLine(text[1], out.inodeUsage, out.inodeSoft, out.inodeHard, out.inodeGrace, out.inodeExpiry);
    // Line 3 is the user/group title.
    int ignored = 0;
    unsigned long long a = 0, b = 0;
    if (text.size() > 3 && std::sscanf(text[3].c_str(), "%d %llu %llu", &ignored, &a, &b) == 3)
        out.ugidA = a, out.ugidB = b;
}

void KQSKqStatLocal::netClassesFromTool(const std::string& output, KQSNetClassList& out)
{
    for (const std::string& line : lines(output)) {
        int veid = 0;
        KQSNetClass<int> netClass;
        unsigned long long c[4] = {0, 0, 0, 0};
        // The title and anything else that is not six numbers is skipped.
        if (std::sscanf(line.c_str(), "%d%d%llu%llu%llu%llu", &veid, &netClass.classId, &c[0], &c[1], &c[2],
                        &c[3]) != 6)
            continue;
        for (int i = 0; i < 4; ++i)
            netClass.counters[i] = c[i];
        out.push_back(netClass);
    }
}

void KQSKqStatLocal::cpuFromKernel(const kq_cpu_stat& stat, unsigned long clockMHz, KQSVeCPULoad& out)
{
    out.values[0] = stat.system_jiffies;
    out.values[1] = stat.user_jiffies;
    out.values[2] = stat.nice_jiffies;
    // Cycles to hundredths of a second. The caller makes sure the clock is
    // not 0.
    const uint64_t cyclesPerSecond = static_cast<uint64_t>(clockMHz) * 1000000u;
    out.values[3] = stat.idle_cycles * 100 / cyclesPerSecond;
    out.values[4] = stat.strv_cycles * 100 / cyclesPerSecond;
}

void KQSKqStatLocal::loadFromKernel(const kq_cpu_stat& stat, KQC::KQCLoadAvg& out)
{
    for (int i = 0; i < 3; ++i)
        out.avg[i] = KQC::KQCLoadAvg::fromParts(stat.load[i].integer, stat.load[i].hundredths);
}

void KQSKqStatLocal::ubcFromKernel(const void* buffer, const std::vector<std::string>& names,
                                   const std::vector<int>& indexes, KQSUbcList& out)
{
    const unsigned char* records = static_cast<const unsigned char*>(buffer) + sizeof(kq_ubstat_header);
    out.clear();
    for (size_t i = 0; i < names.size(); ++i) {
        kq_ubstat_record record;
        std::memcpy(&record, records + static_cast<size_t>(indexes[i]) * sizeof record, sizeof record);
        KQSUbc ubc;
        ubc.name = names[i];
        // The mean of the most and the least held over the interval.
        ubc.average = (record.maxheld + record.minheld) / 2;
        ubc.limit = record.limit;
        ubc.barrier = record.barrier;
        out.push_back(ubc);
    }
}

// ---- queries by VEID ------------------------------------------------------

int KQSKqStatLocal::getNetInfo(int veid, KQSNetClassList* out)
{
    require(out != nullptr, "out != __null");
    return KQC::guardedCall("getNetInfo", [&] {
        std::string output;
        if (runTool({"kqnetstat", "-v", std::to_string(veid)}, output) != 0) {
            // The traffic counters come with the quota set-up, hence the text.
            KQC::setErrorMessage(kQuotaMessage, veid);
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        netClassesFromTool(output, *out);
        return static_cast<int>(KQS_OK);
    });
}

int KQSKqStatLocal::getQuota(int veid, KQSQuotaStats* out)
{
    require(out != nullptr, "out != __null");
    return KQC::guardedCall("getQuota", [&] {
        kq_quota_stat stat;
        std::memset(&stat, 0, sizeof stat);
        kq_quota_request request;
        std::memset(&request, 0, sizeof request);
        request.command = KQ_QUOTA_CMD_STAT;
        request.quota_id = static_cast<uint32_t>(veid);
        request.result = &stat;
        if (kqLinDeviceCall(static_cast<int>(KQ_IOC_QUOTA_STAT), &request) != 0) {
            // No quota loaded in the kernel: the tool reads it from disk.
            if (errno == ENOENT)
                return quotaFromToolRun(veid, *out);
            KQC::setErrorMessage(kQuotaMessage, veid);
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        kq_quota_ugid_state ugid;
        std::memset(&ugid, 0, sizeof ugid);
        if (kqLinQuotaUgidCall(static_cast<int>(KQ_QUOTA_UGID_GET_PARAMS), static_cast<unsigned>(veid), 0, 0,
                               &ugid) != 0) {
            KQC::setErrorMessage(kQuotaMessage, veid);
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        quotaFromKernel(stat, ugid, *out);
        return static_cast<int>(KQS_OK);
    });
}

const std::vector<std::string>& KQSKqStatLocal::getUBCNames(const std::vector<int>** indexes)
{
    static UbcNames lists;
    static std::once_flag built;
    std::call_once(built, [] { buildUbcNames(lists); });
    if (indexes)
        *indexes = &lists.indexes;
    return lists.names;
}

int KQSKqStatLocal::getUbc(int veid, KQSUbcList* out)
{
    require(out != nullptr, "out != __null");
    return KQC::guardedCall("getUbc", [&] {
        const std::vector<int>* indexes = nullptr;
        const std::vector<std::string>& names = getUBCNames(&indexes);
        void* buffer = kqLinUbcQueryCall(veid);
        if (!buffer)
            return static_cast<int>(KQS_ERR_GENERIC);
        std::unique_ptr<void, void (*)(void*)> owner(buffer, std::free);
        ubcFromKernel(buffer, names, *indexes, *out);
        return static_cast<int>(KQS_OK);
    });
}

int KQSKqStatLocal::getCPUInfo(int veid, KQSVeCPULoad* out)
{
    require(out != nullptr, "out != __null");
    return KQC::guardedCall("getCPUInfo", [&] {
        unsigned long clockMHz = 0;
        if (int rc = hostClock(clockMHz))
            return rc;
        kq_cpu_stat stat;
        if (readCpuStat(veid, stat) != 0)
            return static_cast<int>(KQS_ERR_GENERIC);
        cpuFromKernel(stat, clockMHz, *out);
        return static_cast<int>(KQS_OK);
    });
}

int KQSKqStatLocal::getLoadAvg(int veid, KQC::KQCLoadAvg* out)
{
    require(out != nullptr, "out != __null");
    return KQC::guardedCall("getLoadAvg", [&] {
        kq_cpu_stat stat;
        if (readCpuStat(veid, stat) != 0)
            return static_cast<int>(KQS_ERR_GENERIC);
        loadFromKernel(stat, *out);
        return static_cast<int>(KQS_OK);
    });
}

int KQSKqStatLocal::getSLM(int veid, KQSSLMGroup* out)
{
    require(out != nullptr, "group != __null");
    return KQC::guardedCall("getSLM", [&] {
        kq_slm_request request;
        std::memset(&request, 0, sizeof request);
        request.buffer = out->buffer.data();
        request.size = static_cast<uint32_t>(out->buffer.size());
        request.veid = static_cast<uint32_t>(veid);
        if (kqLinDeviceCall(static_cast<int>(KQ_IOC_SLM_GROUP), &request) != 0) {
            KQC::setErrorMessage("slm might not be properly initialized in Container %d", veid);
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        out->root = KQSSLMParam(out->buffer.data());
        if (out->root.type() != KQSSLMParam::GROUP)
            return static_cast<int>(KQS_ERR_GENERIC);
        if (out->parse() != 0) {
            KQC::setErrorMessage("can not parse slm group statistic for Container %d", veid);
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        return static_cast<int>(KQS_OK);
    });
}

// ---- queries by EID -------------------------------------------------------

namespace {

// The VEID of an environment through the registry; -1 with the registry's
// message when it has none.
int veidOf(const KQC::KQCAccessProvider& access, const KQC::KQCEID& eid, int& veid)
{
    KQSEnvMLocal envM(access);
    return envM.findByEid(eid, &veid) == 0 ? 0 : -1;
}

} // namespace

#define KQS_BY_EID(NAME, TYPE)                                                   \
    int KQSKqStatLocal::NAME(const KQC::KQCEID& eid, TYPE* out)                  \
    {                                                                            \
        return KQC::guardedCall(#NAME, [&] {                                     \
            int veid = 0;                                                        \
            if (veidOf(access(), eid, veid) != 0)                                \
                return static_cast<int>(KQS_ERR_GENERIC);                        \
            return NAME(veid, out);                                              \
        });                                                                      \
    }

KQS_BY_EID(getNetInfo, KQSNetClassList)
KQS_BY_EID(getQuota, KQSQuotaStats)
KQS_BY_EID(getUbc, KQSUbcList)
KQS_BY_EID(getCPUInfo, KQSVeCPULoad)
KQS_BY_EID(getLoadAvg, KQC::KQCLoadAvg)
KQS_BY_EID(getSLM, KQSSLMGroup)

#undef KQS_BY_EID

} // namespace KQS
