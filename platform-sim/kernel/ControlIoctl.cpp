#include "ControlIoctl.h"

#include "KernelState.h"
#include "SlmReply.h"

#include "KQS/KqKernelAbi.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kqsim {
namespace {

int fail(int error)
{
    errno = error;
    return -1;
}

// ---- running list -------------------------------------------------------

struct VeidSink {
    uint32_t* veids;
    uint32_t room;
    uint32_t stored;
};

bool storeVeid(uint32_t veid, void* context)
{
    VeidSink* sink = static_cast<VeidSink*>(context);
    if (sink->stored < sink->room)
        sink->veids[sink->stored++] = veid;
    return true;  // keep counting past the room: the caller needs the total
}

int answerVeidList(kqlist_veidctl* control)
{
    if (control->count > 0 && !control->veids)
        return fail(EFAULT);
    VeidSink sink{control->veids, control->count, 0};
    return static_cast<int>(forEachRunning(storeVeid, &sink));
}

int answerVeidProbe(const kq_veid_probe* probe)
{
    if (probe->veid == 0 || isRunning(probe->veid))
        return 0;
    return fail(ESRCH);
}

// ---- quota --------------------------------------------------------------

bool quotaLoaded(long veid)
{
    return readNumber(veid, "quota.loaded", 1) != 0;
}

uint32_t narrow(uint64_t value)
{
    return static_cast<uint32_t>(value);
}

int answerQuotaStat(const kq_quota_request* request)
{
    if (request->command != KQ_QUOTA_CMD_STAT)
        return fail(EINVAL);
    if (!request->result)
        return fail(EFAULT);
    long veid = request->quota_id;
    if (!quotaLoaded(veid))
        return fail(ENOENT);
    kq_quota_stat stat;
    std::memset(&stat, 0, sizeof stat);
    stat.block_usage = readNumber(veid, "quota.block_usage", 0);
    stat.block_soft = readNumber(veid, "quota.block_soft", 0);
    stat.block_hard = readNumber(veid, "quota.block_hard", 0);
    stat.block_grace = narrow(readNumber(veid, "quota.block_grace", 0));
    stat.block_expiry = narrow(readNumber(veid, "quota.block_expiry", 0));
    stat.inode_usage = readNumber(veid, "quota.inode_usage", 0);
    stat.inode_soft = narrow(readNumber(veid, "quota.inode_soft", 0));
    stat.inode_hard = narrow(readNumber(veid, "quota.inode_hard", 0));
    stat.inode_grace = narrow(readNumber(veid, "quota.inode_grace", 0));
    stat.inode_expiry = narrow(readNumber(veid, "quota.inode_expiry", 0));
    std::memcpy(request->result, &stat, sizeof stat);
    return 0;
}

int answerQuotaUgid(const kq_quota_ugid_request* request)
{
    long veid = request->quota_id;
    if (!quotaLoaded(veid))
        return fail(ENOENT);
    switch (request->command) {
    case KQ_QUOTA_UGID_READ_ENTRIES:
        return 0;  // the simulation keeps no per-user entries
    case KQ_QUOTA_UGID_GET_STATE:
    case KQ_QUOTA_UGID_GET_PARAMS: {
        if (!request->buffer)
            return fail(EFAULT);
        kq_quota_ugid_state state;
        std::memset(&state, 0, sizeof state);
        state.value_a = narrow(readNumber(veid, "quota.ugid_a", 0));
        state.value_b = narrow(readNumber(veid, "quota.ugid_b", 0));
        std::memcpy(request->buffer, &state, sizeof state);
        return 0;
    }
    default:
        return fail(EINVAL);
    }
}

// ---- CPU statistics and load average ------------------------------------

// "0.15" -> {0, 15}; "2.5" -> {2, 50}. Parsing stops at the first blank.
const char* parseLoad(const char* cursor, kq_loadavg_pair& pair)
{
    while (*cursor == ' ' || *cursor == '\t' || *cursor == '\n')
        ++cursor;
    char* end = nullptr;
    pair.integer = static_cast<int32_t>(std::strtol(cursor, &end, 10));
    cursor = end;
    pair.hundredths = 0;
    if (*cursor == '.') {
        ++cursor;
        for (int digit = 0; digit < 2; ++digit) {
            pair.hundredths *= 10;
            if (*cursor >= '0' && *cursor <= '9')
                pair.hundredths += *cursor++ - '0';
        }
        while (*cursor >= '0' && *cursor <= '9')
            ++cursor;
    }
    return cursor;
}

int answerCpuStat(const kq_cpu_request* request)
{
    if (!request->result)
        return fail(EFAULT);
    long veid = request->veid;
    kq_cpu_stat stat;
    std::memset(&stat, 0, sizeof stat);
    uint64_t cpu[6] = {0, 0, 0, 0, 0, 0};
    readNumbers(veid, "cpu", cpu, 6);
    stat.user_jiffies = cpu[0];
    stat.nice_jiffies = cpu[1];
    stat.system_jiffies = cpu[2];
    stat.uptime_cycles = cpu[3];
    stat.idle_cycles = cpu[4];
    stat.strv_cycles = cpu[5];
    char text[256];
    if (readValue(veid, "loadavg", text, sizeof text)) {
        const char* cursor = text;
        for (kq_loadavg_pair& pair : stat.load)
            cursor = parseLoad(cursor, pair);
    }
    std::memcpy(request->result, &stat, sizeof stat);
    return 0;
}

// ---- dispatch -----------------------------------------------------------

const uint32_t kKnownRequests[] = {
    KQ_IOC_VEID_LIST, KQ_IOC_QUOTA_STAT, KQ_IOC_QUOTA_UGID, KQ_IOC_SLM_GROUP,
    KQ_IOC_CPU_STAT,  KQ_IOC_VEID_PROBE, KQ_IOC_VEID_PROBE_OLD,
};

// The request as this kernel knows it: itself when known, else the known
// request it equals once the older type byte is put back; 0 when unknown.
uint32_t canonicalRequest(uint32_t request)
{
    for (uint32_t known : kKnownRequests)
        if (known == request)
            return known;
    if (KQ_IOC_TYPE(request) != KQ_IOC_LEGACY_TYPE)
        return 0;
    for (uint32_t known : kKnownRequests)
        if (KQ_IOC_WITH_TYPE(known, KQ_IOC_LEGACY_TYPE) == request)
            return known;
    return 0;
}

} // namespace

int answerControlIoctl(uint32_t request, void* argument)
{
    if (int error = takeIoctlFault())
        return fail(error);
    uint32_t known = canonicalRequest(request);
    if (known == 0)
        return fail(ENOTTY);
    if (!argument)
        return fail(EFAULT);
    switch (known) {
    case KQ_IOC_VEID_LIST:
        return answerVeidList(static_cast<kqlist_veidctl*>(argument));
    case KQ_IOC_QUOTA_STAT:
        return answerQuotaStat(static_cast<const kq_quota_request*>(argument));
    case KQ_IOC_QUOTA_UGID:
        return answerQuotaUgid(static_cast<const kq_quota_ugid_request*>(argument));
    case KQ_IOC_SLM_GROUP:
        return answerSlm(static_cast<const kq_slm_request*>(argument));
    case KQ_IOC_CPU_STAT:
        return answerCpuStat(static_cast<const kq_cpu_request*>(argument));
    default:
        return answerVeidProbe(static_cast<const kq_veid_probe*>(argument));
    }
}

} // namespace kqsim
