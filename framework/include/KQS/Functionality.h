#pragma once
// The management library's kit and its life.
#include "KQC/Functionality.h"
#include "KQS/EnvM.h"
#include "KQS/KqStat.h"
#include "KQS/ProcessM.h"
#include "KQS/SampleM.h"
#include "KQS/TEM.h"
#include "KQS/ProcessMonitor.h"

namespace KQS {

class KQSLibFunctionality {
public:
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSEnvM>>& getKQSEnvMMultiplexer() { return m_envM; }
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSProcessM>>& getKQSProcessMMultiplexer() { return m_processM; }
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSSampleM>>& getKQSSampleMMultiplexer() { return m_sampleM; }
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSTEM>>& getKQSTEMMultiplexer() { return m_tem; }
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSProcessMonitor>>& getKQSProcessMonitorMultiplexer()
    {
        return m_processMonitor;
    }
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSKqStat>>& getKQSKqStatMultiplexer() { return m_kqStat; }

private:
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSEnvM>> m_envM;
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSProcessM>> m_processM;
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSSampleM>> m_sampleM;
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSTEM>> m_tem;
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSProcessMonitor>> m_processMonitor;
    KQC::KQCFunctionalMultiplexer<boost::shared_ptr<KQSKqStat>> m_kqStat;
};

// Bring the management library up and down; calls nest (a counter).
void initKQSFunctionalityAgent();
void finiKQSFunctionalityAgent();
// How many initKQSFunctionalityAgent calls are not yet matched.
int functionalityAgentUsers();

} // namespace KQS

namespace KQC {
template <>
KQS::KQSLibFunctionality& KQCFunctionality<KQS::KQSLibFunctionality>::kit();
}

// The server-group service of the agent; calls nest like the above.
void initKQCServerGroupLocal();
void finiKQCServerGroupLocal();
int serverGroupLocalUsers();
