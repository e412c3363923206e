#pragma once
// The framework's per-thread error message and its result codes.
//
// Every failing operation sets the calling thread's message and returns a
// non-zero status; the caller reads the message back on the same thread.
// Thread safety: the message is thread-local, so no locking is needed.
#include <string>

namespace KQC {

// Framework result codes that pass through the plug-in unchanged.
enum KQCResult {
    KQC_OK = 0,
    KQC_ERR_ACCESS_DENIED = 414,
    KQC_ERR_NOT_SUPPORTED = -424,
    KQC_ERR_PROCESS_LIST = 1901,
    KQC_ERR_NO_ENV_FOR_VEID = 3804,
    // Automatic address allocation (KQC/IPAutoAllocation.h).
    KQC_ERR_IP_POOL_MISSING = 3901,    // the host has no address pool
    KQC_ERR_IP_POOL_MALFORMED = 3902,  // the pool file does not parse
    KQC_ERR_IP_POOL_EXHAUSTED = 3903,  // no free address of the wanted family is left
    KQC_ERR_IP_POOL_STATE = 3904,      // the used addresses cannot be told (listing, lock or leases failed)
};

// Sets the message printf-style. "%m" stands for strerror(errno) as errno
// was when the call was made; the arguments may point into the current
// message (it is formatted into a fresh buffer first).
void setErrorMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same, after the framework's filter: control characters other than
// newline and tab become '?', so tool output cannot garble a client's screen.
void setErrorMessageFiltered(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The current message of the calling thread ("" when none was set). The
// pointer stays valid until the next set on this thread.
const char* getErrorMessage();

void clearErrorMessage();

// "context: strerror(err)" — the one way system errors are turned into text.
std::string errnoText(const std::string& context, int err);

} // namespace KQC
