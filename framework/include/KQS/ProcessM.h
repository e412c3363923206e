#pragma once
// The process manager of the management library: signals processes inside
// environments.
#include "KQC/GUID.h"

#include <vector>

namespace KQS {

class KQSProcessM {
public:
    virtual ~KQSProcessM() = default;
    // Sends `signal` to the processes `pids` (as numbered inside the
    // environment): 0 when all were signalled, 414 when refused, -1 else.
    virtual int kill(const KQC::KQCEID& eid, const std::vector<int>& pids, int signal) = 0;
};

} // namespace KQS
