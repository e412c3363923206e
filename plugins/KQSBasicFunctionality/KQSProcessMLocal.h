#pragma once
// The process manager of this host: signals processes inside containers.
#include "KQC/Request.h"
#include "KQS/ProcessM.h"

namespace KQS {

class KQSProcessMLocal : public KQC::KQCRequestModificatorLocal<KQSProcessM> {
public:
    explicit KQSProcessMLocal(const KQC::KQCAccessProvider& access);
    int kill(const KQC::KQCEID& eid, const std::vector<int>& pids, int signal) override;
};

} // namespace KQS
