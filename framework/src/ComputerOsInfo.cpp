#include "KQC/Computer.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"

#include <cstdlib>
#include <sstream>

namespace KQC {
namespace {

// The "cpu MHz" line of the first processor, e.g. "cpu MHz\t\t: 2394.458";
// the fraction is dropped. 0 when no line names a clock.
unsigned long firstCpuClock(const std::string& text)
{
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.compare(0, 7, "cpu MHz") != 0)
            continue;
        size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        return std::strtoul(line.c_str() + colon + 1, nullptr, 10);
    }
    return 0;
}

} // namespace

int KQCComputerMLocal::getOsInfo(KQCSystemInfo& info)
{
    if (getSystem(info) != 0)
        return -1;
    const std::string path = hostPath("/proc/cpuinfo");
    std::string text;
    if (file2str(path, text) != 0)
        return -1;
    info.cpuClockMHz = firstCpuClock(text);
    if (info.cpuClockMHz == 0) {
        setErrorMessage("'%s' names no CPU clock", path.c_str());
        return -1;
    }
    return 0;
}

} // namespace KQC
