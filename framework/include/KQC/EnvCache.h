#pragma once
// The environment cache: the process-wide set of environments that all
// managers of the agent share.
//
// The host itself is always there under EID_LOCAL (type "host", running).
// Thread safety: every operation locks the cache; lists handed out are
// snapshots that later changes do not touch.
#include "KQC/Env.h"

#include "KQC/RefCounted.h"

#include <boost/intrusive_ptr.hpp>
#include <boost/shared_ptr.hpp>
#include <atomic>
#include <map>
#include <mutex>
#include <vector>

namespace KQC {

typedef std::vector<boost::shared_ptr<KQCEnv>> KQCEnvList;

class KQCEnvCache : public KQCRefCounted {
public:
    KQCEnvCache();
    // Adds the environment or replaces the one with the same EID.
    void insert(const KQCEnv& env);
    // 0, or -1 when the EID is not cached.
    int remove(const KQCEID& eid);
    // A snapshot of every cached environment, in EID order; never empty
    // while the cache exists (the host is in it).
    boost::shared_ptr<KQCEnvList> getEnvList() const;
    // A copy of one environment; empty when it is not cached.
    boost::shared_ptr<KQCEnv> getEnvCopy(const KQCEID& eid) const;
    size_t size() const;

private:
    mutable std::mutex m_mutex;
    std::map<KQCEID, KQCEnv, KQCEnvIDComparator> m_envs;
};

// The process-wide cache.
boost::intrusive_ptr<KQCEnvCache> envCache();

} // namespace KQC
