#include "KQSEnvMLocal.h"

#include "KQSBasicFunctionalityCommon.h"
#include "KQSCaches.h"
#include "KQSEnvConfigLock.h"
#include "KQSVEActionSystemLinux.h"

#include "KQS/Env.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQC/Lock.h"
#include "KQC/Message.h"
#include "KQS/PathModTime.h"

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <cerrno>
#include <cstring>
#include <sstream>

namespace KQS {
namespace {

// What is not there yet answers like an operation the platform does not
// offer, so that clients get a clear refusal rather than a wrong answer.
int notAvailable(const char* operation)
{
    KQC::setErrorMessage("%s is not available on this host yet", operation);
    return KQC::KQC_ERR_NOT_SUPPORTED;
}


std::string agentConfigFolder()
{
    return KQC::KQCInstanceFolders::etc().leaf("configs").string();
}

// The registry's shared state lives with the plug-in's other caches.
caches::Registry& shared() { return caches::registry(); }

// The EID list, from the cache while the folder is unchanged and we wrote
// nothing. The caller holds lockModify.
int readEnvListLocked(KQC::KQCEIDSet& out)
{
    const std::string folder = agentConfigFolder();
    if (!shared().envListStamp.changed(folder) && !shared().isModifiedForGetEnvList) {
        out = shared().envList;
        return 0;
    }
    shared().envList.clear();
    KQC::OpenDir dir(folder);
    if (!dir) {
        KQC::setErrorMessage("Can't opendir '%s' : %s", folder.c_str(), std::strerror(errno));
        shared().envListStamp.forget();
        return -4;
    }
    while (dir.read()) {
        KQC::KQCEID eid;
        // Only files named by a GUID are environments ("." and ".." and the
        // lock and temporary files beside them are not).
        if (eid.fromString(dir.name()) == 0)
            shared().envList.insert(eid);
    }
    out = shared().envList;
    shared().isModifiedForGetEnvList = false;
    return 0;
}

// Reads the file into the cache entry; empty (message set) when it cannot
// be read or does not parse.
boost::shared_ptr<KQSEnvConfig> loadEnvConfig(const KQC::KQCEID& eid, const std::string& path,
                                              caches::CachedRecord& entry)
{
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    if (message->load(path) != 0) {
        KQC::setErrorMessage("read '%s' : %s", path.c_str(), std::strerror(errno));
        // Read it again next time rather than answer from a file we lost.
        entry.stamp.reset();
        entry.read = false;
        return boost::shared_ptr<KQSEnvConfig>();
    }
    // A file that does not parse reads as an empty configuration: the
    // environment stays known, without properties, until the file changes.
    // Made apart from its counts (not make_shared): the cache holds it weakly,
    // and a weak hold on a joint allocation would keep all of it.
    boost::shared_ptr<KQSEnvConfig> config(new KQSEnvConfig);
    if (message->getIterator().getObj(KQC::TAG_ENV_CONFIG, *config) != 0) {
        entry.remember(boost::shared_ptr<KQSEnvConfig>(), false);
        KQC::setErrorMessage("can't parse env#%s config", eid.toString().c_str());
        return boost::shared_ptr<KQSEnvConfig>();
    }
    entry.remember(config, true);
    return config;
}

// The VEID the registry read from the environment's file while it is
// unchanged: 0, -7 (no VEID), or 1 when the file must be read first.
int cachedVeid(const std::string& folder, const KQC::KQCEID& eid, const std::string& path, int& veid)
{
    KQC::KQCGuard guard(shared().configLock);
    caches::CachedRecord& entry = shared().recordOf(folder, eid);
    if (entry.stamp.update(path) || !entry.read) {
        entry.read = false;
        return 1;
    }
    if (!entry.hasVeid)
        return -7;
    veid = entry.veid;
    return 0;
}

// A private file's name must stay inside the private area.
bool isSafePrivateName(const std::string& name)
{
    if (name.empty() || name[0] == '/')
        return false;
    std::istringstream parts(name);
    std::string part;
    while (std::getline(parts, part, '/'))
        if (part == "..")
            return false;
    return true;
}

} // namespace

KQSEnvMLocal::KQSEnvMLocal(const KQC::KQCAccessProvider& access)
    : KQCRequestModificatorLocal(access),
      m_veidStorage(KQC::KQCInstanceFolders::base().leaf("current_veid")),
      m_veidLock(KQC::KQCInstanceFolders::base().leaf("current_veid.lock"))
{
}

KQSEnvMLocal::~KQSEnvMLocal() = default;

int KQSEnvMLocal::create(boost::shared_ptr<KQC::KQCEnv>*, const KQC::KQCEnvConfig&, const KQC::KQCStringSet&, bool,
                         const KQC::KQCEID&)
{
    return notAvailable("create");
}

int KQSEnvMLocal::repair(const KQC::KQCEID&) { return notAvailable("repair"); }
int KQSEnvMLocal::stop_repair(const KQC::KQCEID&) { return notAvailable("stop_repair"); }
int KQSEnvMLocal::upgrade(const KQC::KQCEID&) { return notAvailable("upgrade"); }
int KQSEnvMLocal::pause(const KQC::KQCEID&) { return notAvailable("pause"); }

int KQSEnvMLocal::set(const KQC::KQCEID&, const KQC::KQCEnvConfig&, boost::shared_ptr<KQC::KQCEnvConfig>*,
                      const KQC::KQCStringSet&, bool, const char*)
{
    return notAvailable("set");
}

int KQSEnvMLocal::set(const KQC::KQCEID&, const KQC::KQCGUID&, const char*, const KQC::KQCStringSet&,
                      const KQC::KQCStringSet&)
{
    return notAvailable("set from a sample");
}

int KQSEnvMLocal::setUserPassword(const KQC::KQCEID&, const std::string&, const std::string&)
{
    return notAvailable("setUserPassword");
}

int KQSEnvMLocal::move(const KQC::KQCEID&, int, const std::string&, const std::string&) { return notAvailable("move"); }

int KQSEnvMLocal::clone(const KQC::KQCEID&, const std::set<int>&, const std::string&, const std::string&)
{
    return notAvailable("clone");
}

std::string KQSEnvMLocal::getVPSAgentConfigPathByEid(const KQC::KQCEID& eid)
{
    return KQC::KQCInstanceFolders::etc().leaf("configs").leaf(eid.toString()).string();
}

// ---- the registry ----

int KQSEnvMLocal::getEnvList(KQC::KQCEIDSet& out)
{
    KQC::KQCGuard guard(shared().lockModify);
    return readEnvListLocked(out);
}

boost::shared_ptr<const KQSEnvConfig> KQSEnvMLocal::sharedEnvConfig(const KQC::KQCEID& eid)
{
    const std::string path = getVPSAgentConfigPathByEid(eid);
    KQC::KQCGuard guard(shared().configLock);
    caches::CachedRecord& entry = shared().recordOf(agentConfigFolder(), eid);
    if (entry.stamp.update(path) || !entry.read)
        return loadEnvConfig(eid, path, entry);
    if (entry.unparsable)
        return boost::make_shared<KQSEnvConfig>();
    if (boost::shared_ptr<KQSEnvConfig> held = entry.config.lock())
        return held;
    // Unchanged, but nobody held the whole record: it is read again.
    return loadEnvConfig(eid, path, entry);
}

boost::shared_ptr<KQSEnvConfig> KQSEnvMLocal::getEnvConfig(const KQC::KQCEID& eid)
{
    boost::shared_ptr<const KQSEnvConfig> config = sharedEnvConfig(eid);
    // Callers may change what they get; the cached record is shared.
    if (!config)
        return boost::shared_ptr<KQSEnvConfig>();
    return boost::make_shared<KQSEnvConfig>(*config);
}

int KQSEnvMLocal::putEnvConfig(const KQC::KQCEID& eid, const KQSEnvConfig& config, bool)
{
    const std::string path = getVPSAgentConfigPathByEid(eid);
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    KQC::KQCMessageIterator it = message->getIterator();
    it.putObj(KQC::TAG_ENV_CONFIG, config);

    // A fresh host has no folder yet.
    KQC::mkDeepDir(path, 0755, KQC::MKDIR_EXCLUDE_LAST);
    KQC::TemporaryFile temporary(path, true);
    if (!temporary.isValid()) {
        KQC::setErrorMessage("can't create tmp file for '%s' : %s", path.c_str(), std::strerror(errno));
        return -9;
    }
    if (message->save(temporary.getpath()) != 0) {
        KQC::setErrorMessage("can't write env config '%s' : %s", path.c_str(), std::strerror(errno));
        return -9;
    }
    temporary.close();
    if (KQC::copyFile(temporary.getpath(), path) != 0) {
        KQC::setErrorMessage("can't copy tmp file '%s' to '%s' : %s", temporary.getpath().c_str(), path.c_str(),
                             std::strerror(errno));
        return -9;
    }
    invalidateEnvironment(eid);
    return 0;
}

int KQSEnvMLocal::findByEid(const KQC::KQCEID& eid, int* veid)
{
    // Only the VEID is needed: the registry keeps it for unchanged files.
    int found = 0;
    int rc = cachedVeid(agentConfigFolder(), eid, getVPSAgentConfigPathByEid(eid), found);
    if (rc == 1) {
        boost::shared_ptr<const KQSEnvConfig> config = sharedEnvConfig(eid);
        if (!config)
            return -8;
        rc = config->getVeid(found) == 0 ? 0 : -7;
    }
    if (rc != 0) {
        KQC::setErrorMessage("can't find ctid in env '%s' config", eid.toString().c_str());
        return -7;
    }
    if (veid)
        *veid = found;
    return 0;
}

int KQSEnvMLocal::getVEIDMap(std::map<int, KQC::KQCEID>& out)
{
    // The list is taken under the same hold as the map is built: a write
    // landing between the two would otherwise be missing from a map that
    // then counts as fresh.
    KQC::KQCGuard guard(shared().lockModify);
    KQC::KQCEIDSet eids;
    int rc = readEnvListLocked(eids);
    if (rc != 0)
        return rc;
    if (!shared().veidMapStamp.changed(agentConfigFolder()) && !shared().isModifiedForGetVEIDMap) {
        out = shared().veidMap;
        return 0;
    }
    shared().veidMap.clear();
    // In EID order, so that of two environments claiming one VEID the one
    // whose EID sorts last is kept.
    for (const KQC::KQCEID& eid : eids) {
        int veid = 0;
        if (findByEid(eid, &veid) == 0)
            shared().veidMap[veid] = eid;
    }
    shared().isModifiedForGetVEIDMap = false;
    out = shared().veidMap;
    return 0;
}

int KQSEnvMLocal::findByVeid(int veid, KQC::KQCEID& eid, const boost::shared_ptr<std::map<int, KQC::KQCEID>>& map)
{
    std::map<int, KQC::KQCEID> fresh;
    const std::map<int, KQC::KQCEID>* lookIn = map.get();
    if (!lookIn) {
        if (getVEIDMap(fresh) != 0)
            return KQC::KQC_ERR_NO_ENV_FOR_VEID;
        lookIn = &fresh;
    }
    auto it = lookIn->find(veid);
    if (it == lookIn->end()) {
        KQC::setErrorMessage("eid for ctid#%d not found", veid);
        return KQC::KQC_ERR_NO_ENV_FOR_VEID;
    }
    eid = it->second;
    return 0;
}

int KQSEnvMLocal::findByVeid(int veid, KQC::KQCEID& eid)
{
    return findByVeid(veid, eid, boost::shared_ptr<std::map<int, KQC::KQCEID>>());
}

bool KQSEnvMLocal::findByVe(const KQSEnvConfig& config, KQC::KQCEID& eid)
{
    std::string privateDir;
    if (config.getVEPrivate(privateDir) != 0)
        return false;
    const std::string path = privateDir + "/.kqs/eid.conf";
    std::string text;
    if (KQC::file2str(path, text) != 0)
        return false;
    std::istringstream words(text);
    std::string word;
    words >> word;
    // A record that is no GUID leaves `eid` as it was; the caller decides.
    eid.fromString(word);
    KQS_LOG().put(3, "Get EID#%s from file %s, str %s", eid.toString().c_str(), path.c_str(), word.c_str());
    return true;
}

int KQSEnvMLocal::addNewEnv(int veid, KQC::KQCEID& eid)
{
    if (!eid.isValid()) {
        // The container may remember its identity from an earlier life of
        // the agent's files.
        KQSVPSList containers;
        containers[veid] = KQSVPSEntry();
        if (KQSVEActionSystemLinux::getVPSList(containers, false, true) == 0) {
            auto it = containers.find(veid);
            if (it != containers.end() && it->second.config)
                findByVe(*it->second.config, eid);
        }
    }
    if (!eid.isValid())
        eid.generate();
    KQSEnvConfig config;
    config.setVeid(veid);
    config.setType(KQC::KQCEnvType(KQSEnv::type));
    int rc = putEnvConfig(eid, config);
    if (rc != 0) {
        KQS_LOG().put(1, "[%s] putEnvConfig failed : %s", "addNewEnv", KQC::getErrorMessage());
        return rc;
    }
    return 0;
}

int KQSEnvMLocal::updateEnvEID(const KQC::KQCEID& eid, const std::string& privatePath)
{
    const std::string path = privatePath + "/.kqs/eid.conf";
    const boost::filesystem::path folder = boost::filesystem::path(path).parent_path();
    try {
        boost::filesystem::create_directory(folder);
    } catch (const boost::filesystem::filesystem_error& e) {
        KQS_LOG().put(1, "failed to create folder %s: %s", folder.string().c_str(), e.what());
        KQC::setErrorMessage("failed to create folder %s: %s", folder.string().c_str(), e.what());
        return -1;
    }
    if (KQC::str2file(path, eid.toString()) != 0) {
        KQC::setErrorMessage("can't write '%s' : %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    return 0;
}

int KQSEnvMLocal::updateEnvEID(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config)
{
    std::string privateDir;
    if (!config || config->getVEPrivate(privateDir) != 0) {
        KQC::setErrorMessage("can't find VE_PRIVATE of env '%s'", eid.toString().c_str());
        return -1;
    }
    return updateEnvEID(eid, privateDir);
}

int KQSEnvMLocal::removeEnv(const KQC::KQCEID& eid)
{
    KQSEnvConfigLock lock;
    if (lock.lock(eid) != 0) {
        // Somebody is creating or removing it right now: theirs to finish.
        KQS_LOG().put(3, "Skip remove env eid#%s, 'cause env file is locked", eid.toString().c_str());
        return 0;
    }
    KQC::removeFile(getVPSAgentConfigPathByEid(eid));
    KQS_LOG().put(3, "Remove env eid#%s", eid.toString().c_str());
    invalidateEnvironment(eid);
    return 0;
}

// ---- the agent's private files in containers ----

int KQSEnvMLocal::processPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data, bool get,
                                 bool raw)
{
    int veid = 0;
    KQSEnvMLocal internal{KQC::KQCAccessProvider()};
    if (internal.findByEid(eid, &veid) != 0) {
        KQC::setErrorMessage("can't find ctid by env");
        return -8;
    }
    std::string privateDir;
    if (KQSVEActionSystemLinux::getPrivateDir(veid, &privateDir) != 0) {
        KQC::setErrorMessage("can't get VEPrivate");
        return -7;
    }
    if (!isSafePrivateName(name)) {
        KQC::setErrorMessage("can't use '%s' as a private file name", name.c_str());
        return get ? -4 : -9;
    }
    const std::string path = privateDir + (raw ? "/" : "/kqagent/") + name;
    if (get) {
        if (KQC::file2str(path, data) != 0) {
            KQC::setErrorMessage("can't read '%s' failed : %s", path.c_str(), std::strerror(errno));
            return -4;
        }
        return 0;
    }
    if (data.empty()) {
        if (KQC::removeFile(path) != 0) {
            KQC::setErrorMessage("can't delete '%s' failed : %s", path.c_str(), std::strerror(errno));
            return -9;
        }
        return 0;
    }
    if (KQC::mkDeepDir(path, 0755, KQC::MKDIR_EXCLUDE_LAST) != 0 || KQC::str2file(path, data) != 0) {
        KQC::setErrorMessage("can't create/write '%s' failed : %s", path.c_str(), std::strerror(errno));
        return -9;
    }
    return 0;
}

int KQSEnvMLocal::getPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data)
{
    int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                               KQC::RIGHT_PRIVATE_READ);
    if (rc != 0)
        return rc;
    return processPrivate(eid, name, data, true, false);
}

int KQSEnvMLocal::putPrivate(const KQC::KQCEID& eid, const std::string& name, const std::string& data)
{
    int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                               KQC::RIGHT_PRIVATE_WRITE);
    if (rc != 0)
        return rc;
    std::string copy = data;
    return processPrivate(eid, name, copy, false, false);
}

} // namespace KQS
