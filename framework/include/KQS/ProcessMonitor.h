#pragma once
// The process monitor of the management library: lists the processes of an
// environment (or of the host, for an empty EID).
#include "KQC/GUID.h"
#include "KQC/ProcessParser.h"

#include <string>

namespace KQS {

class KQSProcessMonitor {
public:
    virtual ~KQSProcessMonitor() = default;
    // Fills `out` (see KQCProcessParser for text, number and flag): 0, 414
    // when refused, 1901 when the listing failed.
    virtual int get(KQC::KQCProcessList* out, const KQC::KQCEID& eid, const std::string& text, int number,
                    bool flag) = 0;
};

} // namespace KQS
