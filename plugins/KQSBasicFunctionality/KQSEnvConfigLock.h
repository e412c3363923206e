#pragma once
// The lock on one environment's agent-side file while the environment is
// being created or removed: the file's path followed by ".lck", created
// exclusively. An existing lock file means another holder, so a failed
// lock never removes it. Race-free between processes because creation is
// exclusive; an instance belongs to one thread at a time.
#include "KQC/GUID.h"
#include "KQC/Handle.h"
#include "KQC/Lock.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace KQS {

class KQSEnvConfigLock : KQC::noncopyable {
public:
    KQSEnvConfigLock();
    ~KQSEnvConfigLock();  // unlocks
    // 0, or -1 when somebody else holds the lock (no message is set: the
    // caller reports).
    int lock(const KQC::KQCEID& eid);
    // Releases the lock and removes the lock file we created.
    void unlock();

private:
    std::string m_path;
    boost::shared_ptr<KQC::KQCHandle> m_handle;
};

} // namespace KQS
