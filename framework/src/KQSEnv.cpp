#include "KQS/Env.h"

namespace KQS {

const char* const KQSEnv::type = "corvantis";

KQSEnv::KQSEnv(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config,
               const KQC::KQCEnvStatus& status)
    : KQCEnv(eid, type)
{
    setConfig(config);
    setStatus(status);
}

} // namespace KQS
