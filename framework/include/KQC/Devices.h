#pragma once
// Devices and mounts: the records, the device-manager interface and the
// framework's local device manager.
//
// KQCDeviceInfo lists the host's block devices ("/proc/partitions" under
// the host root, as "/dev/NAME") and the file-system types its kernel
// knows ("/proc/filesystems"). KQCDevMountInfo is one mount of a device
// inside an environment (or on the host).
// Records are values. KQCDevMLocal reads the files afresh at each call and
// may be used from any thread.
#include "KQC/GUID.h"
#include "KQC/Request.h"

#include <cstdint>
#include <string>
#include <vector>

namespace KQC {

class KQCDevMountInfo {
public:
    KQCDevMountInfo() = default;
    KQCDevMountInfo(const std::string& device, const std::string& mountPoint, const std::string& fsType,
                    bool persistent, bool mounted, uint64_t size = 0, const std::string& options = "")
        : m_device(device), m_mountPoint(mountPoint), m_fsType(fsType), m_persistent(persistent),
          m_mounted(mounted), m_size(size), m_options(options)
    {
    }

    const std::string& getDevice() const { return m_device; }
    void setDevice(const std::string& value) { m_device = value; }
    // Absolute, relative to the environment's root.
    const std::string& getMountPoint() const { return m_mountPoint; }
    void setMountPoint(const std::string& value) { m_mountPoint = value; }
    const std::string& getFsType() const { return m_fsType; }
    void setFsType(const std::string& value) { m_fsType = value; }
    // Recorded so that it comes back at the next start.
    bool isPersistent() const { return m_persistent; }
    void setPersistent(bool value) { m_persistent = value; }
    // Active now; on a request, to be done now.
    bool isMounted() const { return m_mounted; }
    void setMounted(bool value) { m_mounted = value; }
    uint64_t getSize() const { return m_size; }
    void setSize(uint64_t value) { m_size = value; }
    const std::string& getOptions() const { return m_options; }
    void setOptions(const std::string& value) { m_options = value; }

    bool operator==(const KQCDevMountInfo& other) const
    {
        return m_device == other.m_device && m_mountPoint == other.m_mountPoint && m_fsType == other.m_fsType &&
               m_persistent == other.m_persistent && m_mounted == other.m_mounted && m_size == other.m_size &&
               m_options == other.m_options;
    }

private:
    std::string m_device;
    std::string m_mountPoint;
    std::string m_fsType;
    bool m_persistent = false;
    bool m_mounted = false;
    uint64_t m_size = 0;
    std::string m_options;
};

struct KQCBlockDevice {
    std::string path;  // "/dev/sdb1"
    uint64_t sizeKiB = 0;
};

struct KQCDeviceInfo {
    std::vector<KQCBlockDevice> devices;
    std::vector<std::string> fileSystems;  // "ext4", ... in the kernel's order
};

// A device handed through to an environment, and a list of devices; this
// host supports neither, the types exist for the interface.
struct KQCForwardDevice {
    KQCEID eid;
    std::string device;
};
typedef std::vector<std::string> KQCDeviceList;

// Whether `device` is one of the host's block devices.
bool includedInInfo(const KQCDeviceInfo& info, const std::string& device);
// Whether `type` is a file-system type the host knows.
bool fsTypeKnown(const KQCDeviceInfo& info, const std::string& type);
// Appends the mount unless one with the same device and mount point is
// listed; true when it was appended.
bool insertUnique(std::vector<KQCDevMountInfo>& mounts, const KQCDevMountInfo& mount);

class KQCDevM {
public:
    virtual ~KQCDevM() = default;
    virtual int getMounts(const KQCEID& eid, std::vector<KQCDevMountInfo>* out) = 0;
    virtual int newMount(const KQCEID& eid, const KQCDevMountInfo& info) = 0;
    virtual int unmount(const KQCEID& eid, const KQCDevMountInfo& info) = 0;
    virtual int getInfo(KQCDeviceInfo* out) = 0;
    virtual int createDrive(const KQCEID& eid, const KQCDevMountInfo& info, std::string* out) = 0;
    virtual int deleteDrive(const KQCEID& eid, const KQCDevMountInfo& info) = 0;
    virtual int resizeDrive(const KQCEID& eid, const KQCDevMountInfo& info) = 0;
    virtual int forwardDevice(const KQCForwardDevice& device) = 0;
    virtual int removeForward(const KQCForwardDevice& device, bool flag) = 0;
    virtual int listForward(std::vector<KQCForwardDevice>* out, const KQCEID& eid) = 0;
    virtual int listDevice(KQCDeviceList* out, const KQCDeviceList& filter) = 0;
};

// The framework's own device manager: it knows the host's devices and
// nothing of environments (every other operation is -424, not supported).
class KQCDevMLocal : public KQCRequestModificatorLocal<KQCDevM> {
public:
    explicit KQCDevMLocal(const KQCAccessProvider& access) : KQCRequestModificatorLocal<KQCDevM>(access) {}

    // 0, or -1 with the message set when either file cannot be read.
    int getInfo(KQCDeviceInfo* out) override;

    int getMounts(const KQCEID& eid, std::vector<KQCDevMountInfo>* out) override;
    int newMount(const KQCEID& eid, const KQCDevMountInfo& info) override;
    int unmount(const KQCEID& eid, const KQCDevMountInfo& info) override;
    int createDrive(const KQCEID& eid, const KQCDevMountInfo& info, std::string* out) override;
    int deleteDrive(const KQCEID& eid, const KQCDevMountInfo& info) override;
    int resizeDrive(const KQCEID& eid, const KQCDevMountInfo& info) override;
    int forwardDevice(const KQCForwardDevice& device) override;
    int removeForward(const KQCForwardDevice& device, bool flag) override;
    int listForward(std::vector<KQCForwardDevice>* out, const KQCEID& eid) override;
    int listDevice(KQCDeviceList* out, const KQCDeviceList& filter) override;
};

} // namespace KQC
