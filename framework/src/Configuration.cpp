#include "KQC/Configuration.h"

#include "ConfigFileIO.h"
#include "KQC/Error.h"
#include "KQC/HostPaths.h"

#include <mutex>

namespace KQC {
namespace {

// The process-wide local configuration with what it was loaded from.
class LocalConfigCache {
public:
    boost::shared_ptr<KQCConfiguration> get()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        const std::string path = KQCConfiguration::localConfigPath();
        const long long stamp = ConfigFileIO::modificationTime(path);
        if (!m_config || path != m_path || stamp != m_stamp) {
            m_config.reset();
            boost::shared_ptr<KQCConfiguration> loaded;
            if (KQCConfiguration::readFromFile(path, loaded) != 0)
                return loaded;
            m_config = loaded;
            m_path = path;
            m_stamp = stamp;
        }
        return m_config;
    }

private:
    std::mutex m_lock;
    std::string m_path;
    long long m_stamp = -1;
    boost::shared_ptr<KQCConfiguration> m_config;
};

LocalConfigCache& localCache()
{
    static LocalConfigCache cache;
    return cache;
}

} // namespace

KQCConfiguration::KQCConfiguration() : m_message(KQCMsgFactory::createNew())
{
    m_message->setName("configuration");
}

boost::shared_ptr<KQCConfiguration> KQCConfiguration::getLocalConfig() { return localCache().get(); }

std::string KQCConfiguration::localConfigPath() { return KQCInstanceFolders::etc().leaf("KQSVpsAgent.conf"); }

int KQCConfiguration::getLocalEID(std::string& eid)
{
    boost::shared_ptr<KQCConfiguration> config = getLocalConfig();
    if (!config)
        return -1;
    if (config->getEID(eid) != 0) {
        setErrorMessage("no local eid in '%s'", localConfigPath().c_str());
        return -1;
    }
    return 0;
}

int KQCConfiguration::readFromFile(const std::string& path, boost::shared_ptr<KQCConfiguration>& config)
{
    boost::shared_ptr<KQCConfiguration> loaded(new KQCConfiguration);
    if (loaded->m_message->load(path) != 0)
        return -1;
    config = loaded;
    return 0;
}

int KQCConfiguration::getEID(std::string& eid) const
{
    return m_message->getIterator().getString(TAG_LOCAL_EID, eid);
}

void KQCConfiguration::setEID(const std::string& eid) { m_message->getIterator().putString(TAG_LOCAL_EID, eid); }

int KQCConfiguration::getMaster(std::string& eid) const
{
    return m_message->getIterator().getString(TAG_MASTER_EID, eid);
}

void KQCConfiguration::setMaster(const std::string& eid) { m_message->getIterator().putString(TAG_MASTER_EID, eid); }

void KQCConfiguration::setMapping(const std::string& eid, const std::string& connection)
{
    KQCMessageIterator it = m_message->getIterator();
    it.enterOrCreate(tagKey(TAG_MAPPINGS));
    KQCMessageIterator mapping;
    for (int index = 0; it.childAt(tagKey(TAG_MAPPING), index, mapping) == 0; ++index) {
        std::string known;
        if (mapping.getString(TAG_EID, known) == 0 && known == eid) {
            mapping.putString(TAG_CONNECTION, connection);
            return;
        }
    }
    it.createChild(tagKey(TAG_MAPPING));
    it.putString(TAG_EID, eid);
    it.putString(TAG_CONNECTION, connection);
}

int KQCConfiguration::getMapping(const std::string& eid, std::string& connection) const
{
    KQCMessageIterator it = m_message->getIterator();
    if (it.enter(tagKey(TAG_MAPPINGS)) != 0)
        return -1;
    KQCMessageIterator mapping;
    for (int index = 0; it.childAt(tagKey(TAG_MAPPING), index, mapping) == 0; ++index) {
        std::string known;
        if (mapping.getString(TAG_EID, known) == 0 && known == eid)
            return mapping.getString(TAG_CONNECTION, connection);
    }
    return -1;
}

} // namespace KQC
