// Container actions through the control tool.
#include "KQSVEActionSystemLinux.h"

#include "KQSCaches.h"
#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include "KQC/Error.h"
#include "KQC/HostPaths.h"

#include <string>
#include <unistd.h>

namespace KQS {
namespace {

// The limit of a tool run, in the executor's unit (hundredths of a second).
const unsigned int kToolLimit = 80000;

// The daemon inside a container must be gone before the container is
// suspended. A kill that succeeds means there was a daemon to signal, so
// we give it a second to go and try again, also after the last try, so
// that a daemon that is just going is given its time before we give up; a
// kill that fails means nothing is left: done.
int stopVpsd(int veid)
{
    std::string id = std::to_string(veid);
    const char* argv[] = {"kqctl", "exec", id.c_str(), "kill -TERM `cat /var/run/vpsd.pid`", nullptr};
    for (int attempt = 0; attempt < 3; ++attempt) {
        KQC::HWExec exec;
        if (exec.execWithError(argv, 0, kToolLimit) != 0)
            return KQS_OK;
        ::sleep(1);
    }
    return KQS_ERR_GENERIC;
}

int resultForExitCode(int exitCode)
{
    switch (exitCode) {
    case 31:
        return KQS_ERR_TOOL_LOCKED;
    case 32:
        return KQS_ERR_TOOL_BROKEN;
    case 78:
        return KQS_ERR_TOOL_NO_SPACE;
    default:
        return KQS_ERR_TOOL;
    }
}

} // namespace

const char* const KQSVEActionSystemLinux::START = "start";
const char* const KQSVEActionSystemLinux::STOP = "stop";
const char* const KQSVEActionSystemLinux::MOUNT = "mount";
const char* const KQSVEActionSystemLinux::UMOUNT = "umount";
const char* const KQSVEActionSystemLinux::DESTROY = "destroy";
const char* const KQSVEActionSystemLinux::RESTART = "restart";
const char* const KQSVEActionSystemLinux::SUSPEND = "suspend";
const char* const KQSVEActionSystemLinux::RESUME = "resume";

void KQSVEActionSystemLinux::CmdType::getPrefixParams(KQC::ExecutionArgs& args) const
{
    if (m_skipLock)
        args.push_back("--skiplock", false);
}

void KQSVEActionSystemLinux::CmdType::getParams(KQC::ExecutionArgs&) const {}

void KQSVEActionSystemLinux::StopCmdType::getParams(KQC::ExecutionArgs& args) const
{
    if (m_fast)
        args.push_back("--fast", false);
}

int KQSVEActionSystemLinux::action(KQSEnvMLocal& envm, int veid, const CmdType& cmd)
{
    // Only the suspend constant itself asks for the daemon stop: the words
    // of the repair operations are other pointers.
    if (cmd.name() == SUSPEND && stopVpsd(veid) != 0) {
        KQC::setErrorMessage("Can't stop vpsd in Container %d", veid);
        return KQS_ERR_TOOL;
    }
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    cmd.getPrefixParams(args);
    args.push_back(cmd.name(), false);
    args.push_back(std::to_string(veid));
    cmd.getParams(args);

    KQC::HWExec exec;
    int status = setHWExecProgessOutput(exec, envm).execWithError(args.toArgs(), 0, kToolLimit);
    // Whatever the outcome, the tool may have changed the container's files.
    invalidateContainer(veid);
    if (status == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl %s %d failed: %s", cmd.name(), veid, toolError.c_str());
    return resultForExitCode((status & 0xFF00) >> 8);
}

KQC::GenExec& KQSVEActionSystemLinux::setHWExecProgessOutput(KQC::HWExec& exec, KQSEnvMLocal& envm)
{
    envm.setProgressOutputHandler(exec);
    return exec;
}

std::string KQSVEActionSystemLinux::getVPSSystemConfigPathByVeid(int veid)
{
    return KQC::hostPath("/etc/sysconfig/kq-scripts/") + std::to_string(veid) + ".conf";
}

} // namespace KQS
