#pragma once
// The statistics collector, process monitor, process manager and device
// manager of a session, made through the framework's multiplexers for this
// host's environment type, as the environment managers are.
// A missing manager throws std::runtime_error (the plug-in is not loaded).
#include "Console.h"

#include "KQC/Devices.h"
#include "KQC/Error.h"
#include "KQC/Functionality.h"
#include "KQS/Env.h"
#include "KQS/Functionality.h"

#include <stdexcept>

namespace kqagent {

template <class Manager>
boost::shared_ptr<Manager> makeOperator(KQC::KQCFunctionalMultiplexer<boost::shared_ptr<Manager>>& mux,
                                        Session& session)
{
    boost::shared_ptr<Manager> manager;
    if (mux.create(KQS::KQSEnv::type, session.access(), manager) != 0)
        throw std::runtime_error(KQC::getErrorMessage());
    return manager;
}

inline boost::shared_ptr<KQS::KQSKqStat> kqStat(Session& session)
{
    return makeOperator(KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSKqStatMultiplexer(), session);
}

inline boost::shared_ptr<KQS::KQSProcessMonitor> processMonitor(Session& session)
{
    return makeOperator(KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSProcessMonitorMultiplexer(),
                        session);
}

inline boost::shared_ptr<KQS::KQSProcessM> processM(Session& session)
{
    return makeOperator(KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSProcessMMultiplexer(), session);
}

inline boost::shared_ptr<KQC::KQCDevM> devM(Session& session)
{
    return makeOperator(KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit().getDevMMultiplexer(), session);
}

// A CT that may also be the word "host". For the host, `eid` is left as it
// is (callers preset the host's form of it). Else as Session::resolve.
struct HostOrCt {
    bool host = false;
    CtRef ct;
};
HostOrCt parseHostOrCT(const std::string& text);
int resolveHostOrCt(Session& session, const HostOrCt& target, KQC::KQCEID& eid, Outcome& outcome);

} // namespace kqagent
