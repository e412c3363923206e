// The environment manager's operations on more than one container: repair
// and stop-repair, move and clone. Each resolves the environment to its
// container, runs the action system's operation and tells the client.
#include "KQSBasicFunctionalityCommon.h"
#include "KQSCaches.h"
#include "KQSEnvMLocal.h"
#include "KQSResult.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Boundary.h"
#include "KQC/Error.h"
#include "KQS/Notifications.h"

namespace KQS {
namespace {

typedef KQSVEActionSystemLinux Actions;

// The container's configuration as the listing has it (host defaults
// merged in, the VEID set), copied so that the caller may change it.
int listedConfig(int veid, KQSEnvConfig& out)
{
    KQSVPSList list;
    list[veid] = KQSVPSEntry();
    if (Actions::getVPSList(list, false, true) != 0)
        return KQS_ERR_READ;
    auto it = list.find(veid);
    if (it == list.end() || !it->second.config) {
        KQC::setErrorMessage("Error reading Container %d configuration file.", veid);
        return KQS_ERR_READ;
    }
    out = *it->second.config;
    return KQS_OK;
}

} // namespace

int KQSEnvMLocal::repairOperation(const KQC::KQCEID& eid, bool stop)
{
    int veid = 0;
    int rc = veidForChange(eid, veid);
    if (rc != KQS_OK)
        return rc;
    KQSEnvConfig config;
    rc = listedConfig(veid, config);
    if (rc != KQS_OK)
        return rc;
    rc = stop ? Actions::stopRepair(*this, config) : Actions::repair(*this, config);
    // The repaired container's state changed even when a later step failed.
    KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&veid);
    return rc;
}

int KQSEnvMLocal::repair(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("repair", [&] { return repairOperation(eid, false); });
}

int KQSEnvMLocal::stop_repair(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("stop_repair", [&] { return repairOperation(eid, true); });
}

int KQSEnvMLocal::move(const KQC::KQCEID& eid, int newVeid, const std::string& a, const std::string& b)
{
    return KQC::guardedCall("move", [&]() -> int {
        int veid = 0;
        int rc = veidForChange(eid, veid);
        if (rc != KQS_OK)
            return rc;
        rc = Actions::move(*this, veid, newVeid, a, b);
        if (rc != KQS_OK)
            return rc;
        // The environment stays the same one under its new VEID. Its
        // record inside the container moved with the private area; the
        // registry's file follows here. Should we die before this line, the
        // next synchronisation finds the record under the new VEID.
        boost::shared_ptr<KQSEnvConfig> record = getEnvConfig(eid);
        if (!record)
            return KQS_ERR_READ;
        record->setVeid(newVeid);
        rc = putEnvConfig(eid, *record);
        if (rc != KQS_OK)
            return rc;
        KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&newVeid);
        return KQS_OK;
    });
}

int KQSEnvMLocal::clone(const KQC::KQCEID& eid, const std::set<int>& newVeids, const std::string& a,
                        const std::string& b)
{
    return KQC::guardedCall("clone", [&]() -> int {
        int veid = 0;
        int rc = veidForChange(eid, veid);
        if (rc != KQS_OK)
            return rc;
        rc = Actions::clone(*this, veid, newVeids, a, b);
        if (rc != KQS_OK)
            return rc;
        // Each copy carries the source's record of its identity; it gets an
        // identity of its own, or the registry would take it for the source.
        // The record is rewritten first: a synchronisation running meanwhile
        // then registers the copy under the new identity too.
        for (int copy : newVeids) {
            KQC::KQCEID copyEid;
            copyEid.generate();
            std::string privateDir;
            if (Actions::getPrivateDir(copy, &privateDir) == 0 && updateEnvEID(copyEid, privateDir) != 0)
                KQS_LOG().put(1, "[%s] can't record eid#%s in ctid#%d : %s", "clone", copyEid.toString().c_str(),
                              copy, KQC::getErrorMessage());
            rc = addNewEnv(copy, copyEid);
            if (rc != KQS_OK)
                return rc;
            int notified = copy;
            KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&notified);
        }
        return KQS_OK;
    });
}

} // namespace KQS
