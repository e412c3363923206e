#pragma once
// The keys of a container configuration file and how each maps to a
// KQSEnvConfig property. Internal to the framework library.
#include "KQS/EnvConfig.h"

#include <string>
#include <vector>

namespace KQS {
namespace EnvConfigKeys {

struct KeyCodec {
    const char* key;
    // Sets the property from the file's text; -1 with the message set when
    // the text is not a valid value.
    int (*read)(const std::string& text, KQSEnvConfig& config);
    // The file's text of the property; false when it is not specified.
    bool (*write)(const KQSEnvConfig& config, std::string& text);
};

// The keys in the order they are written and compared.
const std::vector<KeyCodec>& table();

// NETIF: adapters separated by ";", each a ","-separated list of key=value
// (name, mac, ip (repeatable), dhcp, dhcp6, network, gw, gw6, ns
// (repeatable), host_routed).
int parseAdapters(const std::string& text, KQSNetVEthList& adapters);
std::string formatAdapters(const KQSNetVEthList& adapters);

// Every container has the default host-routed adapter "venet0", carrying
// its host-routed addresses (the configuration's address list, from
// IP_ADDRESS). Makes it from what a file gave: an adapter named "venet0"
// becomes it (flag set, addresses of IP_ADDRESS first, then its own);
// without one it is added after the other adapters.
void addDefaultHostRouted(KQSEnvConfig& config);

// QoS limits: "barrier:limit", or one number for both.
int parseQoS(const std::string& id, const std::string& text, KQC::KQCQoS& qos);
std::string formatQoS(const KQC::KQCQoS& qos);

} // namespace EnvConfigKeys
} // namespace KQS
