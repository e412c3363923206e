#pragma once
// The pipe to a container's own agent: connect() starts "kqsvpsagent" from
// the agent's binary folder for the container and sends it its
// configuration (the agent configuration template "KQSVpsAgent.conf" with
// the container's EID, its master, the host's environment, and the
// master's mapping).
//
// Loading the plug-in registers the class under "corvantis" with the
// framework's child-environment pipe factory; unloading removes it.
// Thread safety: one pipe is used by one thread at a time.
// Failure: connect returns -1 with the thread's error message set and
// leaves the pipe unconnected.
#include "KQC/Env.h"
#include "KQC/GUID.h"
#include "KQC/Pipe.h"

#include <string>

namespace KQS {

class KQSChildEnvPipePrototype : public KQC::KQCEventLoopPipePrototype {
public:
    // `env` is the container's KQC::KQCEnv; it must not be null.
    explicit KQSChildEnvPipePrototype(void* env);
    static KQC::KQCEventLoopPipePrototype* createInstance(void* env);
    static std::string getClassName() { return "corvantis"; }

    int connect(const KQC::KQCConnectivityInfo* info) override;
    // The peer's pid under the class name "corvantis"; -4 when not connected.
    int getPeerInfo(KQC::KQCConnectivityInfo& info) override;

    // Seconds within which a failed start is tried again; 0 means 20.
    void setStartTimeout(int seconds) { m_startTimeout = seconds; }
    int getStartTimeout() const { return m_startTimeout > 0 ? m_startTimeout : 20; }
    int getVeid() const { return m_veid; }
    const std::string& getRoot() const { return m_root; }

private:
    int startAgent();
    int sendConfiguration();

    KQC::KQCEID m_eid;
    KQC::KQCEID m_parentEid;
    int m_veid = 0;
    std::string m_root;
    int m_startTimeout = 0;
};

} // namespace KQS
