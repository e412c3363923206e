#pragma once
// The device manager of this host: the host's devices (the framework's own
// answer), the mounts of environments, and adding and removing mounts.
//
// Every operation checks the client's right first (73 to read, 74 to
// change; for the named environment, or for the host when none is named)
// and returns 414 on refusal before anything else happens. Drives and
// device forwarding are not supported here (-424).
// One object serves one request; see MountsM for what runs underneath.
#include "KQC/Devices.h"

namespace KQS {

class KQSDevLocal : public KQC::KQCDevMLocal {
public:
    explicit KQSDevLocal(const KQC::KQCAccessProvider& access);

    // A null `out` is a programming error and aborts.
    int getMounts(const KQC::KQCEID& eid, std::vector<KQC::KQCDevMountInfo>* out) override;
    int newMount(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info) override;
    int unmount(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info) override;
    int getInfo(KQC::KQCDeviceInfo* out) override;
    int createDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info, std::string* out) override;
    int deleteDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info) override;
    int resizeDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info) override;
    int forwardDevice(const KQC::KQCForwardDevice& device) override;
    int removeForward(const KQC::KQCForwardDevice& device, bool flag) override;
    int listForward(std::vector<KQC::KQCForwardDevice>* out, const KQC::KQCEID& eid) override;
    int listDevice(KQC::KQCDeviceList* out, const KQC::KQCDeviceList& filter) override;

private:
    int checkFor(const KQC::KQCEID& eid, int right) const;
    int checkHost(int right) const;
};

} // namespace KQS
