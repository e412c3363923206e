#pragma once
// The management library's extension of the environment manager: what a
// container host adds to the framework's interface.
#include "KQC/EnvM.h"

#include <string>

namespace KQS {

class KQSEnvM : public KQC::KQCEnvM {
public:
    // Every environment of the set (all when empty) with the information the
    // mask asks for, appended to `out`. With `sync`, containers without an
    // identifier are registered and identifiers without a container are
    // forgotten.
    virtual int getInfoEx(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask, bool sync) = 0;
    // The environment registered for a VEID: 0, or 3804 with the message set.
    virtual int findByVeid(int veid, KQC::KQCEID& eid) = 0;
    // A free VEID for a new container.
    virtual int allocateVeid(int& veid) = 0;
    virtual int setUserPassword(const KQC::KQCEID& eid, const std::string& user, const std::string& password) = 0;
    // The agent's private files inside a container (empty data deletes).
    virtual int putPrivate(const KQC::KQCEID& eid, const std::string& name, const std::string& data) = 0;
    virtual int getPrivate(const KQC::KQCEID& eid, const std::string& name, std::string& data) = 0;
    virtual int move(const KQC::KQCEID& eid, int newVeid, const std::string& a, const std::string& b) = 0;
    virtual int clone(const KQC::KQCEID& eid, const std::set<int>& newVeids, const std::string& a,
                      const std::string& b) = 0;
};

} // namespace KQS
