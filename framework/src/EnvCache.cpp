#include "KQC/EnvCache.h"

namespace KQC {

KQCEnvCache::KQCEnvCache()
{
    KQCEnv host(KQCEID::EID_LOCAL, "host");
    host.setStatus(KQCEnvStatus(ENV_STATE_RUNNING, 0));
    m_envs[KQCEID::EID_LOCAL] = host;
}

void KQCEnvCache::insert(const KQCEnv& env)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    m_envs[env.getEID()] = env;
}

int KQCEnvCache::remove(const KQCEID& eid)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_envs.erase(eid) ? 0 : -1;
}

boost::shared_ptr<KQCEnvList> KQCEnvCache::getEnvList() const
{
    boost::shared_ptr<KQCEnvList> list(new KQCEnvList);
    std::lock_guard<std::mutex> guard(m_mutex);
    list->reserve(m_envs.size());
    for (const auto& entry : m_envs)
        list->push_back(boost::shared_ptr<KQCEnv>(new KQCEnv(entry.second)));
    return list;
}

boost::shared_ptr<KQCEnv> KQCEnvCache::getEnvCopy(const KQCEID& eid) const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_envs.find(eid);
    if (it == m_envs.end())
        return boost::shared_ptr<KQCEnv>();
    return boost::shared_ptr<KQCEnv>(new KQCEnv(it->second));
}

size_t KQCEnvCache::size() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_envs.size();
}

boost::intrusive_ptr<KQCEnvCache> envCache()
{
    // Never destroyed: managers on other threads may still use it while
    // the process exits.
    static KQCEnvCache* cache = [] {
        KQCEnvCache* c = new KQCEnvCache;
        intrusive_ptr_add_ref(c);
        return c;
    }();
    return boost::intrusive_ptr<KQCEnvCache>(cache);
}

} // namespace KQC
