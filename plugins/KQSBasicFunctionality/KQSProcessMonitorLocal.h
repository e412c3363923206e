#pragma once
// The process monitor of this host: lists the processes of a container (or
// of the host, for an empty EID) for a client holding right 43.
#include "KQC/Request.h"
#include "KQS/ProcessMonitor.h"

namespace KQS {

class KQSProcessMonitorLocal : public KQC::KQCRequestModificatorLocal<KQSProcessMonitor> {
public:
    explicit KQSProcessMonitorLocal(const KQC::KQCAccessProvider& access);
    // 0, 414 when refused, 1901 when the environment is unknown or the
    // listing failed (the cause's message standing).
    int get(KQC::KQCProcessList* out, const KQC::KQCEID& eid, const std::string& text, int number,
            bool flag) override;
};

} // namespace KQS
