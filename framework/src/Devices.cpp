#include "KQC/Devices.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"

#include <algorithm>
#include <sstream>

namespace KQC {
namespace {

// "major minor #blocks name" lines; the title and blank lines do not
// parse and are skipped.
int readPartitions(std::vector<KQCBlockDevice>& devices)
{
    std::string text;
    if (file2str(hostPath("/proc/partitions"), text) != 0)
        return -1;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        unsigned long major = 0, minor = 0;
        unsigned long long blocks = 0;
        std::string name;
        if (!(fields >> major >> minor >> blocks >> name))
            continue;
        devices.push_back(KQCBlockDevice{"/dev/" + name, blocks});
    }
    return 0;
}

// "[nodev]\tTYPE" lines: the type is the last word.
int readFileSystems(std::vector<std::string>& types)
{
    std::string text;
    if (file2str(hostPath("/proc/filesystems"), text) != 0)
        return -1;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string word, last;
        while (fields >> word)
            last = word;
        if (!last.empty())
            types.push_back(last);
    }
    return 0;
}

int notSupported()
{
    setErrorMessage("the operation is not supported on this platform");
    return KQC_ERR_NOT_SUPPORTED;
}

} // namespace

bool includedInInfo(const KQCDeviceInfo& info, const std::string& device)
{
    return std::any_of(info.devices.begin(), info.devices.end(),
                       [&](const KQCBlockDevice& known) { return known.path == device; });
}

bool fsTypeKnown(const KQCDeviceInfo& info, const std::string& type)
{
    return std::find(info.fileSystems.begin(), info.fileSystems.end(), type) != info.fileSystems.end();
}

bool insertUnique(std::vector<KQCDevMountInfo>& mounts, const KQCDevMountInfo& mount)
{
    for (const KQCDevMountInfo& known : mounts)
        if (known.getDevice() == mount.getDevice() && known.getMountPoint() == mount.getMountPoint())
            return false;
    mounts.push_back(mount);
    return true;
}

int KQCDevMLocal::getInfo(KQCDeviceInfo* out)
{
    KQCDeviceInfo info;
    if (readPartitions(info.devices) != 0 || readFileSystems(info.fileSystems) != 0)
        return -1;
    *out = info;
    return 0;
}

int KQCDevMLocal::getMounts(const KQCEID&, std::vector<KQCDevMountInfo>*) { return notSupported(); }
int KQCDevMLocal::newMount(const KQCEID&, const KQCDevMountInfo&) { return notSupported(); }
int KQCDevMLocal::unmount(const KQCEID&, const KQCDevMountInfo&) { return notSupported(); }
int KQCDevMLocal::createDrive(const KQCEID&, const KQCDevMountInfo&, std::string*) { return notSupported(); }
int KQCDevMLocal::deleteDrive(const KQCEID&, const KQCDevMountInfo&) { return notSupported(); }
int KQCDevMLocal::resizeDrive(const KQCEID&, const KQCDevMountInfo&) { return notSupported(); }
int KQCDevMLocal::forwardDevice(const KQCForwardDevice&) { return notSupported(); }
int KQCDevMLocal::removeForward(const KQCForwardDevice&, bool) { return notSupported(); }
int KQCDevMLocal::listForward(std::vector<KQCForwardDevice>*, const KQCEID&) { return notSupported(); }
int KQCDevMLocal::listDevice(KQCDeviceList*, const KQCDeviceList&) { return notSupported(); }

} // namespace KQC
