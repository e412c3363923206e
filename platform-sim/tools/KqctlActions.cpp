// What kqctl's verbs do to a simulated host's files: the running list, the
// mount table, dump files and the container's areas.
#include "Kqctl.h"

#include "KQC/Error.h"

#include <unistd.h>

namespace KQSim {
namespace {

std::string containerText(const KqctlCall& call) { return "container " + std::to_string(call.veid); }

// Verbs that take no options refuse any; stop knows --fast.
int checkOptions(const KqctlCall& call, const std::vector<std::string>& known)
{
    for (const std::string& option : call.options) {
        bool found = false;
        for (const std::string& name : known)
            found = found || option == name;
        if (!found)
            return refuse(kExitUsage, "Invalid option for " + call.verb + ": " + option);
    }
    return 0;
}

int failed() { return refuse(kExitFailed, KQC::getErrorMessage()); }

bool running(const KqctlCall& call) { return isRunning(call.host, call.veid); }
bool mounted(const KqctlCall& call) { return isMounted(call.host, call.files.rootDir); }
bool suspended(const KqctlCall& call) { return pathExists(call.files.dumpFile(call.settings)); }

int mountRoot(KqctlCall& call)
{
    if (mounted(call))
        return 0;
    if (makeDirs(call.files.rootDir) != 0 || setMounted(call.host, call.files.rootDir, true) != 0)
        return -1;
    progress(call, "Container is mounted");
    return 0;
}

int unmountRoot(KqctlCall& call)
{
    if (!mounted(call))
        return 0;
    if (setMounted(call.host, call.files.rootDir, false) != 0)
        return -1;
    progress(call, "Container is unmounted");
    return 0;
}

int startSteps(KqctlCall& call)
{
    progress(call, "Starting " + containerText(call) + " ...");
    if (suspended(call)) {
        progress(call, "Restoring the container from its dump ...");
        if (::unlink(call.files.dumpFile(call.settings).c_str()) != 0)
            KQC::setErrorMessage("remove dump: %m");
    }
    if (mountRoot(call) != 0 || setRunning(call.host, call.veid, true) != 0)
        return failed();
    progress(call, "Container start in progress...");
    return kExitDone;
}

int stopSteps(KqctlCall& call)
{
    progress(call, "Stopping " + containerText(call) + " ...");
    if (setRunning(call.host, call.veid, false) != 0)
        return failed();
    progress(call, "Container was stopped");
    return unmountRoot(call) == 0 ? kExitDone : failed();
}

} // namespace

int actionStart(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (running(call)) {
        progress(call, "Container is already running");
        return kExitDone;
    }
    return startSteps(call);
}

int actionStop(KqctlCall& call)
{
    if (int status = checkOptions(call, {"--fast"}))
        return status;
    if (!running(call)) {
        progress(call, "Unable to stop " + containerText(call) + ": container is not running");
        return kExitDone;
    }
    return stopSteps(call);
}

int actionRestart(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    progress(call, "Restarting " + containerText(call));
    if (running(call))
        if (int status = stopSteps(call))
            return status;
    return startSteps(call);
}

int actionMount(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (mounted(call)) {
        progress(call, "Container is already mounted");
        return kExitDone;
    }
    progress(call, "Mounting " + containerText(call) + " ...");
    return mountRoot(call) == 0 ? kExitDone : failed();
}

int actionUmount(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (running(call))
        return refuse(kExitRunning, "Container is running -- stop it first");
    if (!mounted(call)) {
        progress(call, "Container is not mounted");
        return kExitDone;
    }
    progress(call, "Unmounting " + containerText(call) + " ...");
    return unmountRoot(call) == 0 ? kExitDone : failed();
}

int actionDestroy(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (running(call))
        return refuse(kExitRunning, "Container is currently running. Stop it first.");
    if (unmountRoot(call) != 0)
        return failed();
    progress(call, "Destroying container private area: " + call.files.privateArea);
    if (destroyContainer(call.host, call.settings, call.files) != 0)
        return failed();
    progress(call, "Container private area was destroyed");
    return kExitDone;
}

int actionSuspend(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (!running(call))
        return refuse(kExitNotRunning, "Unable to suspend " + containerText(call) + ": container is not running");
    progress(call, "Setting up checkpoint...");
    std::string dump = call.files.dumpFile(call.settings);
    if (makeDirs(call.settings.dumpDir) != 0
        || writeFileAtomic(dump, "simulated checkpoint of " + containerText(call) + "\n") != 0)
        return failed();
    if (setRunning(call.host, call.veid, false) != 0 || unmountRoot(call) != 0)
        return failed();
    progress(call, "Checkpointing completed successfully");
    return kExitDone;
}

int actionResume(KqctlCall& call)
{
    if (int status = checkOptions(call, {}))
        return status;
    if (running(call)) {
        progress(call, "Container is already running");
        return kExitDone;
    }
    std::string dump = call.files.dumpFile(call.settings);
    if (!pathExists(dump))
        return refuse(kExitFailed, "Unable to resume " + containerText(call) + ": no dump file " + dump);
    progress(call, "Resuming " + containerText(call) + " ...");
    if (mountRoot(call) != 0 || setRunning(call.host, call.veid, true) != 0)
        return failed();
    if (::unlink(dump.c_str()) != 0) {
        KQC::setErrorMessage("remove '%s': %m", dump.c_str());
        return failed();
    }
    progress(call, "Container was restored");
    return kExitDone;
}

// Commands are never run on the host: a simulated container has nothing to
// run them in.
int actionExec(KqctlCall& call)
{
    if (!isRunning(call.host, call.veid))
        return refuse(kExitFailed, "Container is not running");
    return refuse(kExitFailed, "Unable to run the command: the simulated container has no processes");
}

} // namespace KQSim
