#pragma once
// The simulated control tool:
//   kqctl [--skiplock] [--quiet] [--verbose] VERB VEID [OPTIONS...]
// Verbs: start, stop [--fast], restart, mount, umount, destroy, suspend,
// resume, exec VEID CMD..., create VEID --config SAMPLE [...], set VEID
// [...], unset VEID [...]; each verb but exec holds the container's
// transition lock while it works, unless --skiplock is given.
// create makes layout-4 containers from the sample
// etc/sysconfig/kq-scripts/ve-SAMPLE.conf-sample; set and unset always
// save into the configuration file (--save is accepted and implied).
// Nothing is run on the host: exec always exits 1, and the containers'
// mount/umount action scripts are never run.
//
// Exit codes:
//   0  done (also: start of a running container, stop of a stopped one,
//      mount of a mounted one, umount of an unmounted one)
//   1  other failure (resume without a dump, exec in any case)
//   2  bad command line (unknown verb or option, bad VEID)
//   9  "Container already locked": a live process holds the lock
//   11 the container does not exist (no configuration file)
//   31 the container is not running (suspend)
//   32 the container is running (umount, destroy)
//   44 create: the container or its private area exists already
#include "Tools.h"

#include "KQSim/Container.h"

namespace KQSim {

enum KqctlExit {
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitLocked = 9,
    kExitNoContainer = 11,
    kExitNotRunning = 31,
    kExitRunning = 32,
    kExitExists = 44,
};

struct KqctlCall {
    SimHost host;
    HostSettings settings;
    bool quiet = false;
    std::string verb;
    int veid = 0;
    std::vector<std::string> options;  // what follows the VEID
    ContainerFiles files;              // filled for verbs on an existing container
};

// A line of progress on standard output (unless --quiet), flushed at once
// so that a caller reading the pipe sees it as it happens.
void progress(const KqctlCall& call, const std::string& line);
// A line on standard error; gives back status.
int refuse(int status, const std::string& line);

// The verbs' work, called with the transition lock (if any) and the state
// lock held.
int actionStart(KqctlCall& call);
int actionStop(KqctlCall& call);
int actionRestart(KqctlCall& call);
int actionMount(KqctlCall& call);
int actionUmount(KqctlCall& call);
int actionDestroy(KqctlCall& call);
int actionSuspend(KqctlCall& call);
int actionResume(KqctlCall& call);
int actionExec(KqctlCall& call);
int actionCreate(KqctlCall& call);
int actionSet(KqctlCall& call);
int actionUnset(KqctlCall& call);

} // namespace KQSim
