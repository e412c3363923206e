#include "KQSDevLocal.h"

#include "KQSResult.h"
#include "MountsM.h"

#include "KQC/Boundary.h"
#include "KQC/Error.h"

#include <cstdio>
#include <cstdlib>

namespace KQS {
namespace {

int notSupported()
{
    KQC::setErrorMessage("the operation is not supported on this platform");
    return KQC_ERR_NOT_SUPPORTED;
}

} // namespace

KQSDevLocal::KQSDevLocal(const KQC::KQCAccessProvider& access) : KQC::KQCDevMLocal(access) {}

int KQSDevLocal::checkFor(const KQC::KQCEID& eid, int right) const
{
    return KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid, right);
}

int KQSDevLocal::checkHost(int right) const
{
    return KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), right);
}

int KQSDevLocal::getMounts(const KQC::KQCEID& eid, std::vector<KQC::KQCDevMountInfo>* out)
{
    if (!out) {
        std::fprintf(stderr, "KQSDevLocal::getMounts: Assertion `pOut != __null' failed.\n");
        std::abort();
    }
    return KQC::guardedCall("getMounts", [&] {
        if (int rc = checkFor(eid, KQC::RIGHT_DEVICE_READ))
            return rc;
        return MountsM::getMounts(eid, *out);
    });
}

int KQSDevLocal::newMount(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info)
{
    return KQC::guardedCall("newMount", [&] {
        if (int rc = checkFor(eid, KQC::RIGHT_DEVICE_WRITE))
            return rc;
        return MountsM::operateDevice(eid, info, MountsM::MOUNT);
    });
}

int KQSDevLocal::unmount(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info)
{
    return KQC::guardedCall("unmount", [&] {
        if (int rc = checkFor(eid, KQC::RIGHT_DEVICE_WRITE))
            return rc;
        return MountsM::operateDevice(eid, info, MountsM::UMOUNT);
    });
}

int KQSDevLocal::getInfo(KQC::KQCDeviceInfo* out)
{
    return KQC::guardedCall("getInfo", [&] {
        if (int rc = checkHost(KQC::RIGHT_DEVICE_READ))
            return rc;
        return KQC::KQCDevMLocal::getInfo(out);
    });
}

// Drives and forwarding: refused without the right, unsupported with it.
#define KQS_UNSUPPORTED_FOR(CHECK)        \
    if (int rc = CHECK)                   \
        return rc;                        \
    return notSupported();

int KQSDevLocal::createDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo&, std::string*)
{
    KQS_UNSUPPORTED_FOR(checkFor(eid, KQC::RIGHT_DEVICE_WRITE))
}

int KQSDevLocal::deleteDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo&)
{
    KQS_UNSUPPORTED_FOR(checkFor(eid, KQC::RIGHT_DEVICE_WRITE))
}

int KQSDevLocal::resizeDrive(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo&)
{
    KQS_UNSUPPORTED_FOR(checkFor(eid, KQC::RIGHT_DEVICE_WRITE))
}

int KQSDevLocal::forwardDevice(const KQC::KQCForwardDevice&)
{
    KQS_UNSUPPORTED_FOR(checkHost(KQC::RIGHT_DEVICE_WRITE))
}

int KQSDevLocal::removeForward(const KQC::KQCForwardDevice&, bool)
{
    KQS_UNSUPPORTED_FOR(checkHost(KQC::RIGHT_DEVICE_WRITE))
}

int KQSDevLocal::listForward(std::vector<KQC::KQCForwardDevice>*, const KQC::KQCEID& eid)
{
    KQS_UNSUPPORTED_FOR(checkFor(eid, KQC::RIGHT_DEVICE_READ))
}

int KQSDevLocal::listDevice(KQC::KQCDeviceList*, const KQC::KQCDeviceList&)
{
    KQS_UNSUPPORTED_FOR(checkHost(KQC::RIGHT_DEVICE_READ))
}

#undef KQS_UNSUPPORTED_FOR

} // namespace KQS
