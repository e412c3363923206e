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

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

namespace KQS {

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

    // The lock folder of the host settings.
    int getLockDir(std::string& dir);
    // The agent-side file of an environment: etc/configs/<EID>.
    static std::string getVPSAgentConfigPathByEid(const KQC::KQCEID& eid);

    // The registry (agent-side files, EID <-> VEID).
    int getEnvList(KQC::KQCEIDSet& out);
    boost::shared_ptr<KQSEnvConfig> getEnvConfig(const KQC::KQCEID& eid);
    int putEnvConfig(const KQC::KQCEID& eid, const KQSEnvConfig& config, bool flag = false);
    int findByEid(const KQC::KQCEID& eid, int* veid);
    int findByVeid(int veid, KQC::KQCEID& eid, const boost::shared_ptr<std::map<int, KQC::KQCEID>>& map);
    int getVEIDMap(std::map<int, KQC::KQCEID>& out);
    bool findByVe(const KQSEnvConfig& config, KQC::KQCEID& eid);
    int addNewEnv(int veid, KQC::KQCEID& eid);
    int updateEnvEID(const KQC::KQCEID& eid, const std::string& privatePath);
    int updateEnvEID(const KQC::KQCEID& eid, const boost::shared_ptr<KQSEnvConfig>& config);
    int removeEnv(const KQC::KQCEID& eid);

    // Host virtualization settings ("/etc/sysconfig/kq").
    int getVtSettings(KQSVtSettings& settings);

    // Configurations.
    static void mergeConfigs(const KQSEnvConfig& source, KQSEnvConfig& target);
    static void mergeConfigsKQDefaultToVE(const KQSEnvConfig& source, KQSEnvConfig& target);
    static void fillSystemInfo(KQSEnvConfig& config);
    static boost::shared_ptr<KQSEnvConfigBashParser> getLocalEnvConfigParser();
};

} // namespace KQS
