// The environment manager's action entry points: each resolves the
// environment to its container and runs one control-tool action.
#include "KQSEnvMLocal.h"
#include "KQSResult.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Access.h"
#include "KQC/Boundary.h"
#include "KQC/Error.h"
#include "KQS/Notifications.h"

namespace KQS {

typedef KQSVEActionSystemLinux Actions;

int KQSEnvMLocal::veidForChange(const KQC::KQCEID& eid, int& veid)
{
    int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                               KQC::RIGHT_ENV_SET);
    if (rc != KQS_OK)
        return rc;
    if (findByEid(eid, &veid) != KQS_OK) {
        KQC::setErrorMessage("can't find ctid by env");
        return KQS_ERR_NO_ENV;
    }
    return KQS_OK;
}

int KQSEnvMLocal::actionWithVPS(const KQC::KQCEID& eid, const KQSVEActionSystemLinux::CmdType& cmd)
{
    // No right is named for the actions. Each changes the environment as
    // much as a change of its configuration does (destroy more so), so all
    // eight ask for the right to change that environment, before anything
    // else is looked at.
    int veid = 0;
    int rc = veidForChange(eid, veid);
    if (rc != KQS_OK)
        return rc;
    rc = Actions::action(*this, veid, cmd);
    if (rc != KQS_OK)
        return rc;
    KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&veid);
    return KQS_OK;
}

int KQSEnvMLocal::start(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("start", [&] { return actionWithVPS(eid, Actions::CmdType(Actions::START, false)); });
}

int KQSEnvMLocal::stop(const KQC::KQCEID& eid, bool fast)
{
    return KQC::guardedCall("stop", [&] { return actionWithVPS(eid, Actions::StopCmdType(Actions::STOP, fast)); });
}

int KQSEnvMLocal::destroy(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("destroy",
                            [&] { return actionWithVPS(eid, Actions::CmdType(Actions::DESTROY, false)); });
}

int KQSEnvMLocal::mount(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("mount", [&] { return actionWithVPS(eid, Actions::CmdType(Actions::MOUNT, false)); });
}

int KQSEnvMLocal::umount(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("umount", [&] { return actionWithVPS(eid, Actions::CmdType(Actions::UMOUNT, false)); });
}

int KQSEnvMLocal::restart(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("restart",
                            [&] { return actionWithVPS(eid, Actions::CmdType(Actions::RESTART, false)); });
}

int KQSEnvMLocal::suspend(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("suspend",
                            [&] { return actionWithVPS(eid, Actions::CmdType(Actions::SUSPEND, false)); });
}

int KQSEnvMLocal::resume(const KQC::KQCEID& eid)
{
    return KQC::guardedCall("resume", [&] { return actionWithVPS(eid, Actions::CmdType(Actions::RESUME, false)); });
}

} // namespace KQS
