#pragma once
// The framework's environment-manager interface.
//
// Every operation returns 0 on success or a result code with the calling
// thread's error message set; none throws. Managers are made per request by
// a factory and bound to the request's access provider.
#include "KQC/Access.h"
#include "KQC/Env.h"

#include <boost/shared_ptr.hpp>
#include <set>
#include <string>
#include <vector>

namespace KQC {

class KQCEnvConfig;
class KQCVEnvConfig;
class KQCNativeConfig;

typedef std::vector<boost::shared_ptr<KQCEnv>> KQCEnvVector;
typedef std::set<std::string> KQCStringSet;

class KQCEnvM {
public:
    virtual ~KQCEnvM() = default;

    virtual int create(boost::shared_ptr<KQCEnv>* out, const KQCEnvConfig& config, const KQCStringSet& tasks,
                       bool flag, const KQCEID& eid) = 0;
    virtual int start(const KQCEID& eid) = 0;
    virtual int stop(const KQCEID& eid, bool fast) = 0;
    virtual int restart(const KQCEID& eid) = 0;
    virtual int destroy(const KQCEID& eid) = 0;
    virtual int repair(const KQCEID& eid) = 0;
    virtual int stop_repair(const KQCEID& eid) = 0;
    virtual int mount(const KQCEID& eid) = 0;
    virtual int umount(const KQCEID& eid) = 0;
    virtual int upgrade(const KQCEID& eid) = 0;
    virtual int suspend(const KQCEID& eid) = 0;
    virtual int pause(const KQCEID& eid) = 0;
    virtual int resume(const KQCEID& eid) = 0;
    // Environments of the set (all when empty), appended to `out`.
    virtual int getInfo(const KQCEIDSet& eids, KQCEnvVector& out, unsigned int mask) = 0;
    virtual int getList(KQCEIDSet& out, const KQCEnvMListOptions& options) = 0;
    virtual int set(const KQCEID& eid, const KQCEnvConfig& config, boost::shared_ptr<KQCEnvConfig>* out,
                    const KQCStringSet& tasks, bool flag, const char* text) = 0;
    virtual int set(const KQCEID& eid, const KQCGUID& sample, const char* text, const KQCStringSet& parameters,
                    const KQCStringSet& categories) = 0;
    virtual int getVirtualConfig(boost::shared_ptr<KQCVEnvConfig>& out,
                                 const boost::shared_ptr<KQCNativeConfig>& native) = 0;
    virtual int getNativeConfig(boost::shared_ptr<KQCNativeConfig>& out,
                                const boost::shared_ptr<KQCVEnvConfig>& config) = 0;
};

} // namespace KQC
