#pragma once
// The simulated kernel's state, read from files under ROOT/var/lib/kqsim/.
//
//   running             one VEID per line: the kernel's running list
//   kernel/VEID/KEY     a value of one container ("quota.block_usage", "cpu", ...)
//   kernel/host/KEY     host-wide values ("ubc.count") and faults
//
// Files are read afresh on every call, so values set by another process are
// seen at once. Nothing here allocates; buffers are the caller's.
// Thread safety: all functions are reentrant; the fault counter is shared
// between processes under a file lock.
#include <cstddef>
#include <cstdint>

namespace kqsim {

constexpr size_t kPathSize = 4096;
constexpr long kHostScope = -1;  // "veid" meaning kernel/host/

// Reads a value file into `buffer` (NUL-terminated, truncated to fit).
// False when the value is not set.
bool readValue(long veid, const char* key, char* buffer, size_t size);

// Reads up to `count` blank-separated unsigned numbers of a value; returns
// how many were read (0 when the value is not set).
int readNumbers(long veid, const char* key, uint64_t* values, int count);

// One number, or `fallback` when the value is not set or not a number.
uint64_t readNumber(long veid, const char* key, uint64_t fallback);

// Calls `visit` for each VEID of the running list in file order; stops early
// when it returns false. Returns the number of VEIDs visited. A missing file
// is an empty list.
using RunningVisitor = bool (*)(uint32_t veid, void* context);
long forEachRunning(RunningVisitor visit, void* context);

bool isRunning(uint32_t veid);

// The errno the next control-device ioctl must fail with, or 0. Consumes one
// unit of "fault.ioctl" ("ENOTTY 2"), rewriting the file for other processes.
int takeIoctlFault();

// The errno opens of the control device fail with ("fault.open"), or 0:
// a host whose kernel has no control device.
int deviceOpenFault();

// The errno the beancounter call under its first number fails with, or 0.
int ubstatPrimaryFault();

// "ENOTTY" -> ENOTTY; a decimal number is taken as it is; 0 when unknown.
int errnoFromName(const char* name);

} // namespace kqsim
