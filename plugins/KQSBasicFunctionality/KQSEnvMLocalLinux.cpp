// The environment manager's action entry points: each resolves the
// environment to its container and runs one control-tool action.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Error.h"
#include "KQS/Notifications.h"

namespace KQS {

typedef KQSVEActionSystemLinux Actions;

int KQSEnvMLocal::actionWithVPS(const KQC::KQCEID& eid, const KQSVEActionSystemLinux::CmdType& cmd)
{
    int veid = 0;
    if (findByEid(eid, &veid) != 0) {
        KQC::setErrorMessage("can't find ctid by env");
        return -8;
    }
    int rc = Actions::action(*this, veid, cmd);
    if (rc != 0)
        return rc;
    KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&veid);
    return 0;
}

int KQSEnvMLocal::start(const KQC::KQCEID& eid) { return actionWithVPS(eid, Actions::CmdType(Actions::START, false)); }

int KQSEnvMLocal::stop(const KQC::KQCEID& eid, bool fast)
{
    return actionWithVPS(eid, Actions::StopCmdType(Actions::STOP, fast));
}

int KQSEnvMLocal::destroy(const KQC::KQCEID& eid)
{
    return actionWithVPS(eid, Actions::CmdType(Actions::DESTROY, false));
}

int KQSEnvMLocal::mount(const KQC::KQCEID& eid) { return actionWithVPS(eid, Actions::CmdType(Actions::MOUNT, false)); }

int KQSEnvMLocal::umount(const KQC::KQCEID& eid)
{
    return actionWithVPS(eid, Actions::CmdType(Actions::UMOUNT, false));
}

int KQSEnvMLocal::restart(const KQC::KQCEID& eid)
{
    return actionWithVPS(eid, Actions::CmdType(Actions::RESTART, false));
}

int KQSEnvMLocal::suspend(const KQC::KQCEID& eid)
{
    return actionWithVPS(eid, Actions::CmdType(Actions::SUSPEND, false));
}

int KQSEnvMLocal::resume(const KQC::KQCEID& eid)
{
    return actionWithVPS(eid, Actions::CmdType(Actions::RESUME, false));
}

} // namespace KQS
