#include "KQSEnvMLocal.h"

#include "KQSBasicFunctionalityCommon.h"
#include "KQSCaches.h"
#include "KQSEnvConfigLock.h"
#include "KQSResult.h"
#include "KQSVEActionSystemLinux.h"

#include "KQS/Env.h"
#include "KQC/Beneath.h"
#include "KQC/EnvCache.h"
#include "KQC/Boundary.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Handle.h"
#include "KQC/HostPaths.h"
#include "KQC/Lock.h"
#include "KQC/Message.h"
#include "KQS/PathModTime.h"

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>

namespace KQS {
namespace {

// What is not there yet answers like an operation the platform does not
// offer, so that clients get a clear refusal rather than a wrong answer.
int notAvailable(const char* operation)
{
    return KQC::guardedCall(operation, [&] {
        KQC::setErrorMessage("%s is not available on this host yet", operation);
        return KQC::KQC_ERR_NOT_SUPPORTED;
    });
}


// The EID record inside a container's private area.
const char* const kEidRecord = ".kqs/eid.conf";

std::string agentConfigFolder()
{
    return KQC::KQCInstanceFolders::etc().leaf("configs").string();
}

// The registry's shared state lives with the plug-in's other caches.
caches::Registry& shared() { return caches::registry(); }

// Brings the cached EID list up to date: read again only when the folder
// changed or we wrote. The caller holds lockModify.
int refreshEnvListLocked()
{
    const std::string folder = agentConfigFolder();
    if (!shared().envListStamp.changed(folder) && !shared().isModifiedForGetEnvList)
        return 0;
    shared().envList.clear();
    KQC::OpenDir dir(folder);
    if (!dir) {
        KQC::setErrorMessage("Can't opendir '%s' : %s", folder.c_str(), std::strerror(errno));
        shared().envListStamp.forget();
        return KQS_ERR_READ;
    }
    while (dir.read()) {
        KQC::KQCEID eid;
        // Only files named by a GUID are environments ("." and ".." and the
        // lock and temporary files beside them are not).
        if (eid.fromString(dir.name()) == 0)
            shared().envList.insert(eid);
    }
    shared().isModifiedForGetEnvList = false;
    return 0;
}

// The EID list, as refreshEnvListLocked leaves it. The caller holds
// lockModify.
int readEnvListLocked(KQC::KQCEIDSet& out)
{
    int rc = refreshEnvListLocked();
    if (rc == 0)
        out = shared().envList;
    return rc;
}

// Where one agent-side file is: its whole path (for messages, and for the
// lookup when the folder is not open) and, when it is, the folder's
// descriptor and the file's name in it, a lookup without a walk of the path.
struct RecordFile {
    std::string path;
    std::string name;
    int folderFd = -1;

    RecordFile(const std::string& folder, const KQC::KQCEID& eid, int fd)
        : path(folder + "/"), name(eid.toString()), folderFd(fd)
    {
        path += name;
    }
    int dirfd() const { return folderFd >= 0 ? folderFd : AT_FDCWD; }
    const char* relative() const { return folderFd >= 0 ? name.c_str() : path.c_str(); }
    // Whether the file differs from `stamp` (remembering it now).
    bool changed(KQSPathModTime& stamp) const { return stamp.update(dirfd(), relative()); }
};

// Reads the file into the cache entry; empty (message set) when it cannot
// be read or does not parse.
boost::shared_ptr<KQSEnvConfig> loadEnvConfig(const KQC::KQCEID& eid, const RecordFile& file,
                                              caches::CachedRecord& entry)
{
    std::string text;
    struct stat st;
    if (KQC::file2strAt(file.dirfd(), file.relative(), file.path, text, &st) != 0) {
        // The reader's message names the real cause (a system error, a
        // size or kind of file refused); errno alone may be stale.
        KQC::setErrorMessage("read '%s' : %s", file.path.c_str(), KQC::getErrorMessage());
        // Read it again next time rather than answer from a file we lost.
        entry.stamp.reset();
        entry.read = false;
        return boost::shared_ptr<KQSEnvConfig>();
    }
    // The stamp of what was read: a file replaced since is read again.
    entry.stamp.update(st);
    // A file that was read but does not parse, whether it is no markup at
    // all or markup without a configuration, reads as an empty
    // configuration: the environment stays known, without properties, until
    // the file changes, and is not parsed again on every call.
    // Made apart from its counts (not make_shared): the cache holds it weakly,
    // and a weak hold on a joint allocation would keep all of it.
    boost::shared_ptr<KQSEnvConfig> config(new KQSEnvConfig);
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    if (message->loadFromString(text) != 0 || message->getIterator().getObj(KQC::TAG_ENV_CONFIG, *config) != 0) {
        entry.remember(boost::shared_ptr<KQSEnvConfig>(), false);
        KQC::setErrorMessage("can't parse env#%s config", eid.toString().c_str());
        return boost::shared_ptr<KQSEnvConfig>();
    }
    entry.remember(config, true);
    return config;
}

// The VEID of the environment's file: as the registry last read it while
// the file is unchanged, else read now (one look at the file either way: a
// file never read is read at once, its stamp taken from the read).
// 0, -7 (no VEID), or another failure of reading it (message set).
int recordVeid(const std::string& folder, const KQC::KQCEID& eid, const RecordFile& file, int& veid)
{
    KQC::KQCGuard guard(shared().configLock);
    caches::CachedRecord& entry = shared().recordOf(folder, eid);
    if (!entry.read || file.changed(entry.stamp)) {
        entry.read = false;
        boost::shared_ptr<KQSEnvConfig> config = loadEnvConfig(eid, file, entry);
        if (!config)
            return KQS_ERR_NO_ENV;
        return config->getVeid(veid) == 0 ? KQS_OK : KQS_ERR_NO_VEID;
    }
    if (!entry.hasVeid)
        return KQS_ERR_NO_VEID;
    veid = entry.veid;
    return KQS_OK;
}

// Writes the agent file of `eid` once, into a temporary file beside it that
// then replaces it. The caller marks the registry modified.
int writeAgentFile(const KQC::KQCEID& eid, const KQSEnvConfig& config)
{
    const std::string path = KQSEnvMLocal::getVPSAgentConfigPathByEid(eid);
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    KQC::KQCMessageIterator it = message->getIterator();
    it.putObj(KQC::TAG_ENV_CONFIG, config);

    // A fresh host has no folder yet; without one no temporary file can be
    // made beside the target either.
    const bool haveFolder = KQC::mkDeepDir(path, 0755, KQC::MKDIR_EXCLUDE_LAST) == 0;
    KQC::TemporaryFile temporary(path, true);
    if (!haveFolder || !temporary.isValid()) {
        KQC::setErrorMessage("can't create tmp file for '%s' : %s", path.c_str(), std::strerror(errno));
        return KQS_ERR_WRITE;
    }
    // Written once, into the temporary file that then replaces the target.
    std::string text;
    if (message->saveToString(text) != 0 || KQC::writeAll(temporary.fd(), text.data(), text.size()) != 0 ||
        ::fchmod(temporary.fd(), 0644) != 0 || temporary.close() != 0) {
        KQC::setErrorMessage("can't write env config '%s' : %s", path.c_str(), std::strerror(errno));
        return KQS_ERR_WRITE;
    }
    if (temporary.commit() != 0) {
        KQC::setErrorMessage("can't copy tmp file '%s' to '%s' : %s", temporary.getpath().c_str(), path.c_str(),
                             std::strerror(errno));
        return KQS_ERR_WRITE;
    }
    return KQS_OK;
}

// Brings the cached VEID map up to date: built again only when the folder
// changed or we wrote. The caller holds lockModify.
int refreshVeidMapLocked(KQSEnvMLocal& envm)
{
    // The list is brought up to date under the same hold as the map is
    // built: a write landing between the two would otherwise be missing
    // from a map that then counts as fresh.
    int rc = refreshEnvListLocked();
    if (rc != KQS_OK)
        return rc;
    if (!shared().veidMapStamp.changed(agentConfigFolder()) && !shared().isModifiedForGetVEIDMap)
        return KQS_OK;
    shared().veidMap.clear();
    const KQC::KQCHandle folder(::open(agentConfigFolder().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    // In EID order, so that of two environments claiming one VEID the one
    // whose EID sorts last is kept.
    for (const KQC::KQCEID& eid : shared().envList) {
        int veid = 0;
        if (envm.findByEid(eid, &veid, folder.get()) == KQS_OK)
            shared().veidMap[veid] = eid;
    }
    shared().isModifiedForGetVEIDMap = false;
    return KQS_OK;
}

// The VEID map, as refreshVeidMapLocked leaves it. The caller holds
// lockModify.
int readVeidMapLocked(KQSEnvMLocal& envm, std::map<int, KQC::KQCEID>& out)
{
    int rc = refreshVeidMapLocked(envm);
    if (rc == KQS_OK)
        out = shared().veidMap;
    return rc;
}

// Registering a container (look it up, write its agent file, write its
// record) is one critical section for the threads of this process
// (lockModify) and for every other agent process (an flock on the
// registry's lock file beside the VEID counter). Without it, agents that
// see a new container at the same moment each give it an EID of their own.
// Order: lockModify, then the file, then the configuration cache's lock.
class RegistrationSection {
public:
    RegistrationSection()
        : m_guard(shared().lockModify), m_file(KQC::KQCInstanceFolders::base().leaf("registry.lock").string())
    {
    }
    ~RegistrationSection() { (void)m_file.unlock(); }

    // Waits for the other processes. 0, or -9 when the lock file cannot be
    // made (message set).
    [[nodiscard]] int enter()
    {
        const std::string folder = KQC::KQCInstanceFolders::base().string();
        (void)KQC::mkDeepDir(folder, 0755);
        if (m_file.lock(true) != 0)
            return KQS_ERR_WRITE;
        // What another process registered while we waited is in the folder,
        // perhaps within the same tick of its clock: read it afresh.
        shared().isModifiedForGetEnvList = true;
        shared().isModifiedForGetVEIDMap = true;
        return KQS_OK;
    }

private:
    KQC::KQCGuard m_guard;
    KQSFileLock m_file;
};

} // namespace

KQSEnvMLocal::KQSEnvMLocal(const KQC::KQCAccessProvider& access)
    : KQCRequestModificatorLocal(access),
      m_veidStorage(KQC::KQCInstanceFolders::base().leaf("current_veid")),
      m_veidLock(KQC::KQCInstanceFolders::base().leaf("current_veid.lock"))
{
}

KQSEnvMLocal::~KQSEnvMLocal() = default;

int KQSEnvMLocal::upgrade(const KQC::KQCEID&) { return notAvailable("upgrade"); }
int KQSEnvMLocal::pause(const KQC::KQCEID&) { return notAvailable("pause"); }

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
    const std::string folder = agentConfigFolder();
    const RecordFile file(folder, eid, -1);
    KQC::KQCGuard guard(shared().configLock);
    caches::CachedRecord& entry = shared().recordOf(folder, eid);
    if (!entry.read || file.changed(entry.stamp))
        return loadEnvConfig(eid, file, entry);
    if (entry.unparsable)
        return boost::make_shared<KQSEnvConfig>();
    if (boost::shared_ptr<KQSEnvConfig> held = entry.config.lock())
        return held;
    // Unchanged, but nobody held the whole record: it is read again.
    return loadEnvConfig(eid, file, entry);
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
    int rc = writeAgentFile(eid, config);
    if (rc != KQS_OK)
        return rc;
    invalidateEnvironment(eid);
    return KQS_OK;
}

int KQSEnvMLocal::findByEid(const KQC::KQCEID& eid, int* veid) { return findByEid(eid, veid, -1); }

int KQSEnvMLocal::findByEid(const KQC::KQCEID& eid, int* veid, int folderFd)
{
    // Only the VEID is needed: the registry keeps it for unchanged files.
    const std::string folder = agentConfigFolder();
    int found = 0;
    int rc = recordVeid(folder, eid, RecordFile(folder, eid, folderFd), found);
    if (rc == KQS_ERR_NO_ENV)
        return rc;
    if (rc != KQS_OK) {
        KQC::setErrorMessage("can't find ctid in env '%s' config", eid.toString().c_str());
        return KQS_ERR_NO_VEID;
    }
    if (veid)
        *veid = found;
    return 0;
}

int KQSEnvMLocal::getVEIDMap(std::map<int, KQC::KQCEID>& out)
{
    KQC::KQCGuard guard(shared().lockModify);
    return readVeidMapLocked(*this, out);
}

int KQSEnvMLocal::findByVeid(int veid, KQC::KQCEID& eid, const boost::shared_ptr<std::map<int, KQC::KQCEID>>& map)
{
    if (map) {
        auto it = map->find(veid);
        if (it == map->end()) {
            KQC::setErrorMessage("eid for ctid#%d not found", veid);
            return KQC::KQC_ERR_NO_ENV_FOR_VEID;
        }
        eid = it->second;
        return 0;
    }
    // Looked up in the registry's own map: one container's lookup does not
    // copy the whole host's.
    KQC::KQCGuard guard(shared().lockModify);
    if (refreshVeidMapLocked(*this) != KQS_OK)
        return KQC::KQC_ERR_NO_ENV_FOR_VEID;
    auto it = shared().veidMap.find(veid);
    if (it == shared().veidMap.end()) {
        KQC::setErrorMessage("eid for ctid#%d not found", veid);
        return KQC::KQC_ERR_NO_ENV_FOR_VEID;
    }
    eid = it->second;
    return 0;
}

int KQSEnvMLocal::findByVeid(int veid, KQC::KQCEID& eid)
{
    return KQC::guardedCall(
        "findByVeid", [&] { return findByVeid(veid, eid, boost::shared_ptr<std::map<int, KQC::KQCEID>>()); });
}

bool KQSEnvMLocal::findByVe(const KQSEnvConfig& config, KQC::KQCEID& eid)
{
    std::string privateDir;
    if (config.getVEPrivate(privateDir) != 0)
        return false;
    // The private area is the container's: a record that is a link is not
    // the container's record.
    const std::string path = privateDir + "/" + kEidRecord;
    std::string text;
    if (KQC::readFileBeneath(privateDir, kEidRecord, text) != 0)
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
    RegistrationSection section;
    int rc = section.enter();
    if (rc != KQS_OK)
        return rc;
    return addNewEnvLocked(veid, eid, boost::shared_ptr<KQSEnvConfig>());
}

// A copy made from another container carries that one's record until it
// is given its own; the EID is then still registered to a container that
// exists, and taking it over would steal that container's identity. After
// a move the EID's old container is gone, and the moved one keeps it.
bool KQSEnvMLocal::isAnothersEid(const KQC::KQCEID& eid, int veid)
{
    int owner = 0;
    if (findByEid(eid, &owner) != KQS_OK || owner == veid)
        return false;
    struct stat st;
    return ::stat(KQSVEActionSystemLinux::getVPSSystemConfigPathByVeid(owner).c_str(), &st) == 0;
}

int KQSEnvMLocal::addNewEnvLocked(int veid, KQC::KQCEID& eid, boost::shared_ptr<KQSEnvConfig> container)
{
    if (!eid.isValid() && !container) {
        KQSVPSList containers;
        containers[veid] = KQSVPSEntry();
        if (KQSVEActionSystemLinux::getVPSList(containers, false, true) == KQS_OK) {
            auto it = containers.find(veid);
            if (it != containers.end())
                container = it->second.config;
        }
    }
    // The container may remember its identity from an earlier life of the
    // agent's files.
    if (!eid.isValid() && container && findByVe(*container, eid) && eid.isValid() && isAnothersEid(eid, veid))
        eid = KQC::KQCEID();
    if (!eid.isValid())
        eid.generate();
    KQSEnvConfig config;
    config.setVeid(veid);
    config.setType(KQC::KQCEnvType(KQSEnv::type));
    int rc = writeAgentFile(eid, config);
    if (rc != KQS_OK) {
        KQS_LOG().put(1, "[%s] putEnvConfig failed : %s", "addNewEnv", KQC::getErrorMessage());
        return rc;
    }
    // lockModify is ours already, so the lists are marked here rather than
    // through invalidateEnvironment (which takes it); the record is new.
    shared().isModifiedForGetEnvList = true;
    shared().isModifiedForGetVEIDMap = true;
    {
        KQC::KQCGuard guard(shared().configLock);
        shared().records.erase(eid);
    }
    return KQS_OK;
}

int KQSEnvMLocal::registerContainer(int veid, const boost::shared_ptr<KQSEnvConfig>& container, KQC::KQCEID& eid)
{
    std::vector<KQC::KQCEID> eids;
    int rc = registerContainers({{veid, container}}, eids);
    if (rc == KQS_OK)
        eid = eids.front();
    return rc;
}

int KQSEnvMLocal::registerContainers(const Unregistered& containers, std::vector<KQC::KQCEID>& eids)
{
    // Every listing that synchronises ends here, almost always with nothing
    // new: the section's lock and look at every agent-side file are for
    // when there is something to register.
    if (containers.empty())
        return KQS_OK;
    RegistrationSection section;
    int rc = section.enter();
    if (rc != KQS_OK)
        return rc;
    // Somebody may have registered some of them since the caller looked:
    // then their EIDs are the containers'. Other agents register only
    // inside this section, so the map stays true while we hold it once our
    // own registrations are added to it.
    rc = refreshVeidMapLocked(*this);
    if (rc != KQS_OK)
        return rc;
    for (const auto& [veid, container] : containers) {
        KQC::KQCEID eid;
        auto known = shared().veidMap.find(veid);
        if (known != shared().veidMap.end()) {
            eid = known->second;
        } else {
            rc = addNewEnvLocked(veid, eid, container);
            if (rc != KQS_OK)
                return rc;
            shared().veidMap[veid] = eid;
        }
        // Still inside the section, so that the record always names the EID
        // the registry holds. A container without a private area has no
        // record; that does not stop its registration.
        if (container)
            (void)updateEnvEID(eid, container);
        eids.push_back(eid);
    }
    return KQS_OK;
}

int KQSEnvMLocal::recordEid(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& container)
{
    RegistrationSection section;
    int rc = section.enter();
    if (rc != KQS_OK)
        return rc;
    return updateEnvEID(eid, container);
}

int KQSEnvMLocal::updateEnvEID(const KQC::KQCEID& eid, const std::string& privatePath)
{
    const std::string path = privatePath + "/" + kEidRecord;
    const boost::filesystem::path folder = boost::filesystem::path(path).parent_path();
    try {
        boost::filesystem::create_directory(folder);
    } catch (const boost::filesystem::filesystem_error& e) {
        KQS_LOG().put(1, "failed to create folder %s: %s", folder.string().c_str(), e.what());
        KQC::setErrorMessage("failed to create folder %s: %s", folder.string().c_str(), e.what());
        return KQS_ERR_GENERIC;
    }
    // Written beneath the private area: a ".kqs" or record planted there as
    // a link must not make us write elsewhere on the host.
    if (KQC::writeFileBeneath(privatePath, kEidRecord, eid.toString()) != 0) {
        KQC::setErrorMessage("can't write '%s' : %s", path.c_str(), KQC::getErrorMessage());
        return KQS_ERR_GENERIC;
    }
    return KQS_OK;
}

int KQSEnvMLocal::updateEnvEID(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config)
{
    std::string privateDir;
    if (!config || config->getVEPrivate(privateDir) != 0) {
        KQC::setErrorMessage("can't find VE_PRIVATE of env '%s'", eid.toString().c_str());
        return KQS_ERR_GENERIC;
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
    // A file already gone is what removal wants; anything else is logged,
    // and the registry is re-read either way.
    if (KQC::removeFile(getVPSAgentConfigPathByEid(eid)) != 0 && errno != ENOENT)
        KQS_LOG().put(1, "[%s] %s", "removeEnv", KQC::getErrorMessage());
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
    if (internal.findByEid(eid, &veid) != KQS_OK) {
        KQC::setErrorMessage("can't find ctid by env");
        return KQS_ERR_NO_ENV;
    }
    std::string privateDir;
    if (KQSVEActionSystemLinux::getPrivateDir(veid, &privateDir) != KQS_OK) {
        KQC::setErrorMessage("can't get VEPrivate");
        return KQS_ERR_NO_VEID;
    }
    // The private area belongs to the container, whose owner may plant
    // links in it: the name (our own "kqagent" folder included) is resolved
    // beneath the area without following any of them.
    const std::string relative = raw ? name : "kqagent/" + name;
    const std::string path = privateDir + "/" + relative;
    if (KQC::checkBeneathName(name) != 0) {
        KQC::setErrorMessage("can't use '%s' as a private file name: %s", name.c_str(), KQC::getErrorMessage());
        return get ? KQS_ERR_READ : KQS_ERR_WRITE;
    }
    if (get) {
        if (KQC::readFileBeneath(privateDir, relative, data) != 0) {
            KQC::setErrorMessage("can't read '%s' failed : %s", path.c_str(), KQC::getErrorMessage());
            return KQS_ERR_READ;
        }
        return KQS_OK;
    }
    if (data.empty()) {
        if (KQC::removeFileBeneath(privateDir, relative) != 0) {
            KQC::setErrorMessage("can't delete '%s' failed : %s", path.c_str(), KQC::getErrorMessage());
            return KQS_ERR_WRITE;
        }
        return KQS_OK;
    }
    if (KQC::writeFileBeneath(privateDir, relative, data, 0755) != 0) {
        KQC::setErrorMessage("can't create/write '%s' failed : %s", path.c_str(), KQC::getErrorMessage());
        return KQS_ERR_WRITE;
    }
    return KQS_OK;
}

int KQSEnvMLocal::getPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data)
{
    return KQC::guardedCall("getPrivate", [&] {
        int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                                   KQC::RIGHT_PRIVATE_READ);
        if (rc != KQS_OK)
            return rc;
        return processPrivate(eid, name, data, true, false);
    });
}

int KQSEnvMLocal::putPrivate(const KQC::KQCEID& eid, const std::string& name, const std::string& data)
{
    return KQC::guardedCall("putPrivate", [&] {
        int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                                   KQC::RIGHT_PRIVATE_WRITE);
        if (rc != KQS_OK)
            return rc;
        std::string copy = data;
        return processPrivate(eid, name, copy, false, false);
    });
}

// ---- rights over the host's containers ----

int KQSEnvMLocal::checkAccessToChilds(int right)
{
    boost::shared_ptr<KQC::KQCClientContext> context = KQC::KQCAccessChecker::getClientContext(access());
    if (KQC::KQCAccessChecker::accessCheck(context, right) == KQS_OK)
        return KQS_OK;
    KQC::KQCEIDSet children;
    boost::shared_ptr<KQC::KQCEnvList> cached = KQC::envCache()->getEnvList();
    for (const boost::shared_ptr<KQC::KQCEnv>& env : *cached)
        if (env && env->getType() == kCorvantisKey)
            children.insert(env->getEID());
    if (KQC::KQCAccessChecker::accessCheck(context, children, KQC::RIGHT_ENV_SET_FROM_SAMPLE, true) == KQS_OK
        && !children.empty())
        return KQS_OK;
    // The refusal names the right the client asked with, not the fallback.
    (void)KQC::KQCAccessChecker::accessCheck(context, right);
    return KQC_ERR_ACCESS_DENIED;
}

} // namespace KQS
