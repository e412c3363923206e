// kqsvpsagent VEID VE_ROOT: the per-container agent, as far as the host's
// agent sees it over its pipes. It reads its configuration message from
// standard input, answers with a "ready" message that repeats what it
// learnt (VEID, root, its EID, its master, the master's mapping), then
// answers every further message with a copy of it until its input ends.
// Exit: 0 at the end of input; 1 when the configuration is missing or
// lacks the container's EID or its master; 2 bad command line.
#include "Tools.h"

#include "KQSim/Host.h"

#include "KQC/Configuration.h"
#include "KQC/Error.h"
#include "KQC/Pipe.h"
#include "KQC/Tags.h"

#include <cstdio>
#include <unistd.h>

namespace KQSim {
namespace {

// The host's agent sends the configuration right after the start.
const int kConfigurationWaitMs = 30000;

int answerReady(int veid, const std::string& root, const KQC::KQCConfiguration& config)
{
    std::string eid, master, connection;
    if (config.getEID(eid) != 0 || config.getMaster(master) != 0) {
        std::fprintf(stderr, "kqsvpsagent: the configuration lacks the container's EID or its master\n");
        return 1;
    }
    KQC::KQCMessage ready;
    ready.setName("ready");
    KQC::KQCMessageIterator it = ready.getIterator();
    it.putInt(KQC::TAG_VEID, veid);
    it.putString(KQC::TAG_VE_ROOT, root);
    it.putString(KQC::TAG_LOCAL_EID, eid);
    it.putString(KQC::TAG_MASTER_EID, master);
    if (config.getMapping(master, connection) == 0)
        it.putString(KQC::TAG_CONNECTION, connection);
    return KQC::KQCIOPipePrototype::writeMessage(STDOUT_FILENO, ready) == 0 ? 0 : 1;
}

} // namespace

int runKqsvpsagent(const SimHost&, const ToolArguments& args)
{
    int veid = 0;
    if (args.size() != 3 || !parseInt(args[1], veid) || args[2].empty()) {
        std::fprintf(stderr, "usage: kqsvpsagent VEID VE_ROOT  (configuration on standard input)\n");
        return 2;
    }
    KQC::KQCConfiguration config;
    if (KQC::KQCIOPipePrototype::readMessage(STDIN_FILENO, *config.getMessage(), kConfigurationWaitMs) != 0) {
        std::fprintf(stderr, "kqsvpsagent: no configuration: %s\n", KQC::getErrorMessage());
        return 1;
    }
    if (answerReady(veid, args[2], config) != 0)
        return 1;
    for (;;) {
        KQC::KQCMessage request;
        int rc = KQC::KQCIOPipePrototype::readMessage(STDIN_FILENO, request, -1);
        if (rc == 1)
            return 0;
        if (rc != 0 || KQC::KQCIOPipePrototype::writeMessage(STDOUT_FILENO, request) != 0) {
            std::fprintf(stderr, "kqsvpsagent: %s\n", KQC::getErrorMessage());
            return 1;
        }
    }
}

} // namespace KQSim
