#pragma once
// A container environment: a framework environment of this product's type.
#include "KQC/Env.h"
#include "KQS/EnvConfig.h"

namespace KQS {

class KQSEnv : public KQC::KQCEnv {
public:
    // The environment type of containers of this product.
    static const char* const type;

    KQSEnv(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config, const KQC::KQCEnvStatus& status);
};

} // namespace KQS
