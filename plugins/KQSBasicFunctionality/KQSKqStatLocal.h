#pragma once
// The plug-in's way into the container kernel: ioctl requests on the control
// device "/dev/kqctl" (under the host root) and the beancounter statistics
// system call. Every other unit talks to the kernel through these functions.
//
// Failure: these are thin system-call wrappers. They set no error message:
// they return -1 (or null) with errno as the kernel left it, and the caller,
// who knows what was being asked, reports.
//
// Thread safety: all functions may be called from any thread. The device
// descriptor and the beancounter call number are process-wide values set
// on first use; the descriptor is shared by all threads and never closed.
#include "KQC/Request.h"
#include "KQS/KqKernelAbi.h"
#include "KQS/KqStat.h"

#include <string>
#include <vector>

namespace KQS {

// The control device's descriptor, opened read-write on first use and kept.
// -1 (errno set) when it cannot be opened; the next call tries again.
int openKQLinDevice();

// ioctl(fd, request, arg), tried at most twice: a kernel that answers
// ENOTTY knows the request under the older type byte, so the second try
// uses that; EBUSY is waited out for one second and the same request
// retried. Any other failure ends at once. Returns the last ioctl result.
int kqLinIoctl(int fd, int request, void* arg);

// kqLinIoctl on the control device; -1 when the device cannot be opened.
int kqLinDeviceCall(int request, void* arg);

// A per-user/group quota request (KQ_IOC_QUOTA_UGID) for quota `quotaId`:
// command 1 reads `count` entries from `index` into `buffer`; commands 3
// and 5 read the quota's user/group state into a 12-byte `buffer`.
int kqLinQuotaUgidCall(int command, unsigned quotaId, unsigned index, unsigned count, void* buffer);

// The running containers: one plain ioctl KQ_IOC_VEID_LIST, no retries.
// Fills at most ctl->count VEIDs and returns how many containers run (which
// may exceed ctl->count), or -1.
int kqLinGetVeidsCall(kqlist_veidctl* ctl);

// The beancounter statistics system call. The first call decides, once for
// the process, under which number the kernel has it: KQ_SYS_UBSTAT, or
// KQ_SYS_UBSTAT_OLD when the first answers ENOSYS.
long kqLinUbstatCall(long function, unsigned long arg1, unsigned long arg2, void* buffer, long size);

// The full beancounter statistics of container `ubid`: a 16-byte header and
// one 64-byte record per resource parameter, in a buffer from malloc that
// the caller frees with free(). Null when the kernel fails, gives a short
// read (the parameter count changed meanwhile), or memory runs out.
void* kqLinUbcQueryCall(int ubid);

// The statistics collector: the counters of one container, from the kernel
// and from the platform's tools. Every query by EID resolves the VEID
// through the registry (-1, the registry's message standing, when it
// cannot) and then asks the VEID overload.
//
// Results: 0, or -1 with the message set (the kernel's silent failures of
// getUbc and getLoadAvg leave the message as it was). A null output is a
// programming error of the caller and aborts.
// Thread safety: one object serves one request; the process-wide resource
// names and the host information are built once, under their own guards.
class KQSKqStatLocal : public KQC::KQCRequestModificatorLocal<KQSKqStat> {
public:
    explicit KQSKqStatLocal(const KQC::KQCAccessProvider& access);

    // Traffic per class from "kqnetstat -v VEID"; lines that do not hold
    // six numbers are skipped.
    int getNetInfo(int veid, KQSNetClassList* out) override;
    int getNetInfo(const KQC::KQCEID& eid, KQSNetClassList* out) override;
    // Disk quota from the kernel; from "kqquota" when the kernel has no
    // quota loaded for the container (exit 0 or 10 accepted).
    int getQuota(int veid, KQSQuotaStats* out) override;
    int getQuota(const KQC::KQCEID& eid, KQSQuotaStats* out) override;
    // One record per resource name, in vocabulary order.
    int getUbc(int veid, KQSUbcList* out) override;
    int getUbc(const KQC::KQCEID& eid, KQSUbcList* out) override;
    // CPU times; idle and starvation scaled by the host's CPU clock.
    int getCPUInfo(int veid, KQSVeCPULoad* out) override;
    int getCPUInfo(const KQC::KQCEID& eid, KQSVeCPULoad* out) override;
    int getLoadAvg(int veid, KQC::KQCLoadAvg* out) override;
    int getLoadAvg(const KQC::KQCEID& eid, KQC::KQCLoadAvg* out) override;
    // The container's SLM group, parsed into out->params.
    int getSLM(int veid, KQSSLMGroup* out) override;
    int getSLM(const KQC::KQCEID& eid, KQSSLMGroup* out) override;

    // The resource names of the vocabulary's "ubc" category that the
    // kernel counts, and (through `indexes` when not null) their kernel
    // indexes, in the same order. Built once per process. A kernel that
    // cannot say how many parameters it counts (or says more than
    // KQ_UB_RESOURCES) and a missing vocabulary or category abort: the
    // records could not be named at all.
    static const std::vector<std::string>& getUBCNames(const std::vector<int>** indexes);

    // Decoding of kernel and tool replies (exposed for tests and fuzzing).
    static void quotaFromKernel(const kq_quota_stat& stat, const kq_quota_ugid_state& ugid, KQSQuotaStats& out);
    // The kqquota output of a "-t" run; missing lines leave fields as they are.
    static void quotaFromTool(const std::string& output, KQSQuotaStats& out);
    static void netClassesFromTool(const std::string& output, KQSNetClassList& out);
    static void cpuFromKernel(const kq_cpu_stat& stat, unsigned long clockMHz, KQSVeCPULoad& out);
    static void loadFromKernel(const kq_cpu_stat& stat, KQC::KQCLoadAvg& out);
    static void ubcFromKernel(const void* buffer, const std::vector<std::string>& names,
                              const std::vector<int>& indexes, KQSUbcList& out);
};

} // namespace KQS
