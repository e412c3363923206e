#pragma once
// The process manager of this host: signals processes inside containers.
//
// The client names processes by their ids inside the container; each is
// mapped to its host id with the container-aware process status tool
// before the signal is sent from the host.
#include "KQC/Request.h"
#include "KQS/ProcessM.h"

#include <map>

namespace KQS {

// Signals one container process through the id map. operator() is true
// when signalling failed (the id is unknown, or kill failed); the failing
// copy then holds errno in place of the signal number.
class KillKQProcess {
public:
    KillKQProcess(std::map<int, int>& ids, int signal) : m_signal(signal), m_ids(ids) {}
    bool operator()(int pid);
    int signal() const { return m_signal; }

private:
    int m_signal;
    std::map<int, int>& m_ids;
};

class KQSProcessMLocal : public KQC::KQCRequestModificatorLocal<KQSProcessM> {
public:
    explicit KQSProcessMLocal(const KQC::KQCAccessProvider& access);
    // 0 when every pid was signalled; 414 when right 44 is refused; -1 when
    // the ids cannot be mapped, or with "kill pid %d fails: %s" at the first
    // pid that could not be signalled (later ones are left alone).
    int kill(const KQC::KQCEID& eid, const std::vector<int>& pids, int signal) override;
};

} // namespace KQS
