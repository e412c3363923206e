#pragma once
// The computer manager: what the host itself is.
//
// KQCSystemInfo holds the host's OS (platform "Linux", the distribution and
// its version from the release file "/etc/os-release" under the host root,
// the kernel release) and the machine's architecture ("x86_64").
// Thread safety: getSystem and getOsInfo may be called from any thread; it reads the
// files afresh at each call.
#include "KQC/Access.h"
#include "KQC/EnvConfig.h"

#include <string>

namespace KQC {

struct KQCSystemInfo {
    KQCOS os;
    std::string architecture;
    // The clock of the host's first CPU in whole MHz ("cpu MHz" of
    // "/proc/cpuinfo" under the host root); 0 until getOsInfo has read it.
    unsigned long cpuClockMHz = 0;
};

class KQCComputerMLocal {
public:
    explicit KQCComputerMLocal(const KQCAccessProvider& access) : m_access(access) {}

    // Fills `info`. 0, or -1 with the message set when the system or the
    // release file cannot be read; what could be found is filled even then.
    int getSystem(KQCSystemInfo& info);
    // getSystem, then the CPU clock. 0, or -1 with the message set when the
    // system or "/proc/cpuinfo" cannot be read or names no clock.
    int getOsInfo(KQCSystemInfo& info);

private:
    KQCAccessProvider m_access;
};

} // namespace KQC
