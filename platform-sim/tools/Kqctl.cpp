#include "Kqctl.h"

#include "TransitionLock.h"

#include "KQC/Error.h"

#include <cstdio>
#include <unistd.h>

namespace KQSim {
namespace {

struct Verb {
    const char* word;
    const char* transition;  // the lock file's word; nullptr: takes no lock
    bool needsContainer;
    int (*run)(KqctlCall&);
};

// New verbs slot in here.
const Verb kVerbs[] = {
    {"start", "starting", true, actionStart},
    {"stop", "stopping", true, actionStop},
    {"restart", "restarting", true, actionRestart},
    {"mount", "mounting", true, actionMount},
    {"umount", "unmounting", true, actionUmount},
    {"destroy", "destroying", true, actionDestroy},
    {"suspend", "suspending", true, actionSuspend},
    {"resume", "resuming", true, actionResume},
    {"exec", nullptr, false, actionExec},
    {"create", "creating", false, actionCreate},
    {"set", "setting", true, actionSet},
    {"unset", "setting", true, actionUnset},
};

const Verb* findVerb(const std::string& word)
{
    for (const Verb& verb : kVerbs)
        if (word == verb.word)
            return &verb;
    return nullptr;
}

// Global options, the verb and the VEID; 0 or the exit status.
int parseCommandLine(const ToolArguments& args, KqctlCall& call, bool& skipLock)
{
    size_t at = 1;
    for (; at < args.size() && !args[at].empty() && args[at][0] == '-'; ++at) {
        if (args[at] == "--skiplock")
            skipLock = true;
        else if (args[at] == "--quiet")
            call.quiet = true;
        else if (args[at] != "--verbose")
            return refuse(kExitUsage, "Invalid option: " + args[at]);
    }
    if (at >= args.size())
        return refuse(kExitUsage, "Usage: kqctl [--skiplock] [--quiet] COMMAND VEID [OPTIONS]");
    call.verb = args[at++];
    if (at >= args.size() || !parseInt(args[at], call.veid))
        return refuse(kExitUsage, "Invalid container id: " + (at < args.size() ? args[at] : std::string()));
    call.options.assign(args.begin() + static_cast<long>(at) + 1, args.end());
    return 0;
}

int runVerb(const Verb& verb, KqctlCall& call, bool skipLock)
{
    if (verb.needsContainer && findContainer(call.host, call.settings, call.veid, call.files) != 0)
        return refuse(kExitNoContainer, KQC::getErrorMessage());
    TransitionLock transition;
    if (verb.transition && !skipLock) {
        int taken = transition.acquire(call.settings.lockDir, call.veid, verb.transition);
        if (taken == 1)
            return refuse(kExitLocked, "Container already locked");
        if (taken != 0)
            return refuse(kExitFailed, KQC::getErrorMessage());
    }
    StateLock state(call.host);
    if (!state.locked())
        return refuse(kExitFailed, KQC::getErrorMessage());
    return verb.run(call);
}

} // namespace

void progress(const KqctlCall& call, const std::string& line)
{
    if (call.quiet)
        return;
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
}

int refuse(int status, const std::string& line)
{
    std::fflush(stdout);
    std::fputs((line + "\n").c_str(), stderr);
    return status;
}

int runKqctl(const SimHost& host, const ToolArguments& args)
{
    KqctlCall call;
    call.host = host;
    bool skipLock = false;
    if (int status = parseCommandLine(args, call, skipLock))
        return status;
    const Verb* verb = findVerb(call.verb);
    if (!verb)
        return refuse(kExitUsage, "Invalid action: " + call.verb);
    if (readHostSettings(call.host, call.settings) != 0)
        return refuse(kExitFailed, KQC::getErrorMessage());
    return runVerb(*verb, call, skipLock);
}

} // namespace KQSim
