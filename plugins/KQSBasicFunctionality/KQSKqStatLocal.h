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
#include "KQS/KqKernelAbi.h"

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

} // namespace KQS
