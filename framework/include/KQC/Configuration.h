#pragma once
// The agent's own configuration: a framework message kept in the file
// "KQSVpsAgent.conf" of the agent's etc folder.
//
// It holds the host's own environment identifier (TAG_LOCAL_EID at the top)
// and, optionally, the node "data/kqsenvm/configuration" with the VEID
// bounds under TAG_MIN_VEID (1257) and TAG_MAX_VEID (1258). A child agent's
// copy also carries its master's identifier and connection mappings.
//
// Ownership: configurations are shared; getLocalConfig() hands out the
// process-wide one, which callers must treat as read-only. When the file
// changes, later calls get a freshly loaded object while holders of the old
// one keep it.
// Thread safety: getLocalConfig() and getLocalEID() may be called from any
// thread; a configuration object belongs to one thread while it is changed.
#include "KQC/Message.h"

#include <boost/shared_ptr.hpp>

#include <string>

namespace KQC {

class KQCConfiguration {
public:
    KQCConfiguration();

    // The agent's configuration, loaded on first use and again whenever the
    // file's modification time (or the host root) changes. Empty, with the
    // error message set, when the file cannot be read or parsed.
    static boost::shared_ptr<KQCConfiguration> getLocalConfig();
    // The host's own environment identifier (GUID text); -1 with the error
    // message set when the local configuration or the value is missing.
    static int getLocalEID(std::string& eid);
    // Where getLocalConfig() reads from.
    static std::string localConfigPath();
    // Reads any configuration file; -1 with the message set on failure.
    static int readFromFile(const std::string& path, boost::shared_ptr<KQCConfiguration>& config);

    boost::shared_ptr<KQCMessage> getMessage() const { return m_message; }
    int save(const std::string& path) const { return m_message->save(path); }

    int getEID(std::string& eid) const;
    void setEID(const std::string& eid);
    int getMaster(std::string& eid) const;
    void setMaster(const std::string& eid);
    // Records how to reach the agent of `eid`; a later call for the same
    // identifier replaces the earlier one.
    void setMapping(const std::string& eid, const std::string& connection);
    int getMapping(const std::string& eid, std::string& connection) const;

private:
    boost::shared_ptr<KQCMessage> m_message;
};

} // namespace KQC
