#pragma once
// Network adapters of a container, as kept in its configuration's NETIF.
//
// NETIF holds the adapters separated by ";", each a list of key=value pairs
// separated by ",", in the syntax of kqagent's --netif:
//   NETIF="name=eth0,mac=02:4b:51:00:65:00,ip=10.0.0.2/24,ip=fd00::2/64,dhcp=no;name=eth1,dhcp=yes"
// Keys: name (required, first), mac, ip (repeatable), dhcp, dhcp6 (yes/no),
// network, gw, gw6, ns (repeatable), host_routed (yes/no). Values never hold
// "," ";" or "=". To read it: split at ";", then at ",", then at the first "=".
#include <string>
#include <utility>
#include <vector>

namespace KQSim {

// One adapter of NETIF: its key=value pairs in order.
struct NetifAdapter {
    std::vector<std::pair<std::string, std::string>> pairs;

    std::string name() const { return value("name"); }
    std::string value(const std::string& key) const;
    // Replaces every pair of key by one pair (appended when absent).
    void set(const std::string& key, const std::string& value);
    void removeAll(const std::string& key);
    void add(const std::string& key, const std::string& value) { pairs.emplace_back(key, value); }
};

std::vector<NetifAdapter> parseNetifLine(const std::string& line);
std::string formatNetifLine(const std::vector<NetifAdapter>& adapters);

// Checks one --netif SPEC and gives it back in the stored form: "name"
// first, a generated MAC added for an ordinary adapter without one (from
// the VEID and the adapter's position). -1 with the message when malformed.
int normalizeNetif(const std::string& adapterText, int veid, int position, std::string& normalized);

// A locally administered MAC made from the VEID and the adapter's position.
std::string generatedMac(int veid, int position);

} // namespace KQSim
