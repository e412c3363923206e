#pragma once
// The environment manager of this host: the registry of environments and
// every operation of the framework's and the management library's
// environment-manager interfaces.
//
// One object serves one request and carries its access provider; an empty
// provider stands for the plug-in itself. Operations return 0 or a result
// code with the thread's error message set; none throws.
#include "KQC/Request.h"
#include "KQC/Vocabulary.h"
#include "KQS/BashParsers.h"
#include "KQS/EnvConfig.h"
#include "KQS/EnvM.h"
#include "KQS/VtSettings.h"
#include "KQSFileLock.h"
#include "KQSVEActionSystemLinux.h"
#include "KQSVeidStorage.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

namespace KQC {
class KQCMessageIterator;
struct KQCEnvSample;
}

namespace KQS {

// Whether a sample fits this host: it names no other architecture and no
// other OS platform than the host's (case ignored); what it leaves out
// fits anything.
bool isCompatibleHost(const KQC::KQCEnvSample& sample);
// The part of a sample that the categories (their applicable parameters)
// and single parameters of the host's vocabulary choose. Empty (and a log
// line) for an unknown parameter, a category without applicable
// parameters, or no vocabulary; a chosen parameter the sample lacks is
// left out.
boost::shared_ptr<KQSEnvConfig> filterConfig(const boost::shared_ptr<KQSEnvConfig>& sample,
                                             const KQC::KQCStringSet& parameters,
                                             const KQC::KQCStringSet& categories);
// Makes the nodes of a slash-separated path (all but its last component)
// beneath the iterator, or beneath the top when it begins with "/"; the
// iterator ends in the last node made. 0, or -1 when a node cannot be made.
int createPath(KQC::KQCMessageIterator& it, const std::string& path);

class KQSEnvMLocal : public KQC::KQCRequestModificatorLocal<KQSEnvM> {
public:
    explicit KQSEnvMLocal(const KQC::KQCAccessProvider& access);
    ~KQSEnvMLocal() override;

    int create(boost::shared_ptr<KQC::KQCEnv>* out, const KQC::KQCEnvConfig& config, const KQC::KQCStringSet& tasks,
               bool flag, const KQC::KQCEID& eid) override;
    int start(const KQC::KQCEID& eid) override;
    int stop(const KQC::KQCEID& eid, bool fast) override;
    int restart(const KQC::KQCEID& eid) override;
    int destroy(const KQC::KQCEID& eid) override;
    int repair(const KQC::KQCEID& eid) override;
    int stop_repair(const KQC::KQCEID& eid) override;
    int mount(const KQC::KQCEID& eid) override;
    int umount(const KQC::KQCEID& eid) override;
    int upgrade(const KQC::KQCEID& eid) override;
    int suspend(const KQC::KQCEID& eid) override;
    int pause(const KQC::KQCEID& eid) override;
    int resume(const KQC::KQCEID& eid) override;
    int getInfo(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask) override;
    int getList(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options) override;
    int set(const KQC::KQCEID& eid, const KQC::KQCEnvConfig& config, boost::shared_ptr<KQC::KQCEnvConfig>* out,
            const KQC::KQCStringSet& tasks, bool flag, const char* text) override;
    int set(const KQC::KQCEID& eid, const KQC::KQCGUID& sample, const char* text,
            const KQC::KQCStringSet& parameters, const KQC::KQCStringSet& categories) override;
    int getVirtualConfig(boost::shared_ptr<KQC::KQCVEnvConfig>& out,
                         const boost::shared_ptr<KQC::KQCNativeConfig>& native) override;
    int getNativeConfig(boost::shared_ptr<KQC::KQCNativeConfig>& out,
                        const boost::shared_ptr<KQC::KQCVEnvConfig>& config) override;

    int findByVeid(int veid, KQC::KQCEID& eid) override;
    int allocateVeid(int& veid) override;
    int setUserPassword(const KQC::KQCEID& eid, const std::string& user, const std::string& password) override;
    int putPrivate(const KQC::KQCEID& eid, const std::string& name, const std::string& data) override;
    int getPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data) override;
    int move(const KQC::KQCEID& eid, int newVeid, const std::string& a, const std::string& b) override;
    int clone(const KQC::KQCEID& eid, const std::set<int>& newVeids, const std::string& a,
              const std::string& b) override;

    int getInfoEx(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask, bool sync) override;

    // The agent-side file of an environment: etc/configs/<EID>.
    static std::string getVPSAgentConfigPathByEid(const KQC::KQCEID& eid);

    // The registry: one agent-side file per environment (a message holding
    // its configuration), and the EID record inside each container.
    // Thread safe: the EID list and VEID map caches are shared by every
    // manager of the process under one lock, the configuration cache under
    // another, always taken in that order.
    //
    // 0, or -4 with "Can't opendir '%s' : %s".
    int getEnvList(KQC::KQCEIDSet& out);
    // A copy of the environment's configuration; empty with "read '%s' : %s"
    // or "can't parse env#%s config". A file that does not parse reads as an
    // empty configuration until it changes.
    boost::shared_ptr<KQSEnvConfig> getEnvConfig(const KQC::KQCEID& eid);
    // Replaces the agent-side file; `flag` is not used. 0, or -9 with the
    // message set (the old file is then untouched). The registry's caches
    // of the environment are invalidated (KQSCaches.h).
    int putEnvConfig(const KQC::KQCEID& eid, const KQSEnvConfig& config, bool flag = false);
    // 0 with the VEID; -8 when the environment has no readable file, -7
    // with "can't find ctid in env '%s' config" when it holds no VEID.
    int findByEid(const KQC::KQCEID& eid, int* veid);
    // The same, with the agent-side folder open as `folderFd` (-1: not
    // open): the file is looked at from it, for callers that look up many.
    int findByEid(const KQC::KQCEID& eid, int* veid, int folderFd);
    // Looks the VEID up in `map`, or in a fresh map when it is empty. 0, or
    // 3804 with "eid for ctid#%d not found".
    int findByVeid(int veid, KQC::KQCEID& eid, const boost::shared_ptr<std::map<int, KQC::KQCEID>>& map);
    // VEID -> EID of every registered environment that has a VEID; of two
    // environments with one VEID the one whose EID sorts last wins.
    int getVEIDMap(std::map<int, KQC::KQCEID>& out);
    // The EID recorded inside the container ("/.kqs/eid.conf" of its
    // private area); false when there is no readable record.
    bool findByVe(const KQSEnvConfig& config, KQC::KQCEID& eid);
    // Whether `eid` is registered to a container other than `veid` that
    // still has a configuration file. The caller holds lockModify.
    bool isAnothersEid(const KQC::KQCEID& eid, int veid);
    // Registers the container: with `eid` when it is valid, else with the
    // EID the container records, else with a new one. 0, putEnvConfig's
    // failure, or -9 when the registry's lock file cannot be made.
    int addNewEnv(int veid, KQC::KQCEID& eid);
    // Gives a container that was found unregistered its one EID and writes
    // it into the container's record, as one critical section across the
    // threads and processes of every agent on the host: when somebody else
    // registered it meanwhile, `eid` is theirs. `container` is its
    // configuration (for the record; may be empty). 0 or addNewEnv's
    // failure.
    int registerContainer(int veid, const boost::shared_ptr<KQSEnvConfig>& container, KQC::KQCEID& eid);
    // The same for many containers in one critical section, so that a host
    // of thousands of new containers is registered in one pass rather than
    // one pass of the registry per container. `eids` receives the EIDs in
    // the order given; on a failure it holds those registered before it.
    using Unregistered = std::vector<std::pair<int, boost::shared_ptr<KQSEnvConfig>>>;
    int registerContainers(const Unregistered& containers, std::vector<KQC::KQCEID>& eids);
    // updateEnvEID inside the same critical section, for a registered
    // container whose record must be made to agree. 0, -1 or -9.
    int recordEid(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& container);
    // Writes the EID record into a container's private area (beneath it,
    // following no link the container planted). 0 or -1. Nothing caches
    // the record (it is read afresh), so there is nothing to invalidate.
    int updateEnvEID(const KQC::KQCEID& eid, const std::string& privatePath);
    int updateEnvEID(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config);
    // Forgets the environment (removes its agent-side file) unless somebody
    // holds its configuration lock; always 0.
    int removeEnv(const KQC::KQCEID& eid);

    // VEIDs. The bounds come from the agent's configuration
    // ("data/kqsenvm/configuration"); 0 when it has them, else -1 with the
    // defaults 100 and 134217727 in the outputs.
    int getVeidBounds(int* min, int* max);
    // 0 when no cached environment uses the VEID, else -1.
    int checkVeid(int veid);
    // A free VEID whose private and root areas do not exist yet (templates
    // from `config` when it has them, else from the host settings). 0, -1
    // with "can't allocate ctid - no free resources.", or allocateVeid's
    // failure.
    int allocateVeidFromMaster(int& veid, const KQSEnvConfig* config);
    // The first VEID from `veid` on that no cached environment uses (the
    // gap search over VEIDs >= min). 0, or -1 without an environment cache.
    int initVeid(int& veid, int min);
    KQSVeidStorage& veidStorage() { return m_veidStorage; }
    KQSFileLock& veidLock() { return m_veidLock; }

    // Checks the client's right to change the environment (414 when it is
    // refused), resolves the environment's container and runs one action
    // on it; on success the client is told that the container's
    // configuration changed.
    int actionWithVPS(const KQC::KQCEID& eid, const KQSVEActionSystemLinux::CmdType& cmd);
    // The VEID of an environment the client may change (right 62): 0, 414,
    // or -8 with "can't find ctid by env".
    int veidForChange(const KQC::KQCEID& eid, int& veid);

    // Whether the client may do something host-wide that needs `right`:
    // 0 when it holds the right on the host, or when it holds right 23 on
    // the host's containers (the cached environments of this plug-in's
    // type) and there is at least one; else 414 with the message set.
    int checkAccessToChilds(int right);

    // Host virtualization settings ("/etc/sysconfig/kq"). 0, or -1 with
    // "open '%s' : %s" / "parse '%s' config".
    int getVtSettings(KQSVtSettings& settings);

    // Configurations.
    static void mergeConfigs(const KQSEnvConfig& source, KQSEnvConfig& target);
    static void mergeConfigsKQDefaultToVE(const KQSEnvConfig& source, KQSEnvConfig& target);
    static void fillSystemInfo(KQSEnvConfig& config);
    // Parsers. The local parser is made once from the host's vocabulary
    // (empty while there is none). A vocabulary map matches when one of its
    // vocabularies has the platform and architecture (case ignored); a
    // vocabulary without "platform" (or, once the platform matched, without
    // "architecture") ends the search of its map unmatched.
    static boost::shared_ptr<KQSEnvConfigBashParser> getLocalEnvConfigParser();
    static boost::shared_ptr<KQSEnvConfigBashParser> createParserIfMatchedArchitectureAndPlatform(
        const boost::shared_ptr<KQC::KQCVocMap>& vocabularies, const std::string& architecture,
        const std::string& platform);
    // The host's vocabulary first, then every known one in order.
    static boost::shared_ptr<KQSEnvConfigBashParser> lookupFirstMatchedParser(const std::string& architecture,
                                                                              const std::string& platform);

private:
    // The agent's private file NAME in the container (or the private area's
    // own file in raw mode): read it, write it, or delete it when `data` is
    // empty. NAME is resolved beneath the private area without following
    // links; a link, "..", an absolute or empty name is refused (-4 for a
    // read, -9 otherwise). 0, -8, -7, -4 or -9 with the message set.
    int processPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data, bool get, bool raw);
    // The bodies of the public operations of the same purpose, which run
    // them behind the exception boundary.
    int infoOf(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask);
    int listOf(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options);
    int joinWithHost(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask, bool sync);
    int createEnv(boost::shared_ptr<KQC::KQCEnv>* out, const KQC::KQCEnvConfig& config,
                  const KQC::KQCStringSet& tasks, const KQC::KQCEID& eid);
    int virtualConfigOf(boost::shared_ptr<KQC::KQCVEnvConfig>& out,
                        const boost::shared_ptr<KQC::KQCNativeConfig>& native);
    int nativeConfigOf(boost::shared_ptr<KQC::KQCNativeConfig>& out,
                       const boost::shared_ptr<KQC::KQCVEnvConfig>& config);
    int allocateVeidInRange(int& veid);
    // repair (or, with `stop`, stop_repair) of the environment's container,
    // with its configuration as listed.
    int repairOperation(const KQC::KQCEID& eid, bool stop);
    // addNewEnv inside the registration section; `container` spares reading
    // the host's container list again when the caller has it.
    int addNewEnvLocked(int veid, KQC::KQCEID& eid, boost::shared_ptr<KQSEnvConfig> container);
    // The cached record of an environment's agent file, shared and read-only;
    // empty on failure (message set).
    boost::shared_ptr<const KQSEnvConfig> sharedEnvConfig(const KQC::KQCEID& eid);

    KQSVeidStorage m_veidStorage;
    KQSFileLock m_veidLock;
};

} // namespace KQS
