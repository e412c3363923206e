#pragma once
// Environments as the agent sees them.
//
// KQCEnv is a value: its EID, its parent's EID, its type, its status and
// its configuration. The configuration is held by a shared pointer and is
// treated as immutable once the environment is handed out: whoever changes
// a configuration makes a new one.
#include "KQC/GUID.h"

#include <boost/shared_ptr.hpp>
#include <set>
#include <string>

namespace KQC {

class KQCEnvConfig;

// Environment states, as the framework numbers them.
enum KQCEnvState {
    ENV_STATE_UNKNOWN = 1,
    ENV_STATE_NOT_EXIST = 2,
    ENV_STATE_STOPPED = 3,
    ENV_STATE_MOUNTED = 4,
    ENV_STATE_SUSPENDED = 5,
    ENV_STATE_RUNNING = 6,
    ENV_STATE_REPAIRING = 7,
};

class KQCEnvStatus {
public:
    KQCEnvStatus(int state = ENV_STATE_UNKNOWN, int transition = 0) : m_state(state), m_transition(transition) {}
    int state() const { return m_state; }
    int transition() const { return m_transition; }
    void setState(int state) { m_state = state; }
    void setTransition(int transition) { m_transition = transition; }
    bool isRepairing() const { return m_state == ENV_STATE_REPAIRING; }
    bool operator==(const KQCEnvStatus& o) const { return m_state == o.m_state && m_transition == o.m_transition; }

private:
    int m_state;
    int m_transition;
};

class KQCEnv {
public:
    KQCEnv() = default;
    KQCEnv(const KQCEID& eid, const std::string& type) : m_eid(eid), m_type(type) {}
    virtual ~KQCEnv() = default;

    const KQCEID& getEID() const { return m_eid; }
    void setEID(const KQCEID& eid) { m_eid = eid; }
    const KQCEID& getParentEID() const { return m_parent; }
    void setParentEID(const KQCEID& eid) { m_parent = eid; }
    const std::string& getType() const { return m_type; }
    void setType(const std::string& type) { m_type = type; }
    const KQCEnvStatus& getStatus() const { return m_status; }
    void setStatus(const KQCEnvStatus& status) { m_status = status; }
    const boost::shared_ptr<KQCEnvConfig>& getConfig() const { return m_config; }
    void setConfig(const boost::shared_ptr<KQCEnvConfig>& config) { m_config = config; }

private:
    KQCEID m_eid;
    KQCEID m_parent;
    std::string m_type;
    KQCEnvStatus m_status;
    boost::shared_ptr<KQCEnvConfig> m_config;
};

// Options of a listing request.
struct KQCEnvMListOptions {
    std::set<int> states;  // empty: every state
};

} // namespace KQC
