#include "KQSim/Netif.h"

#include "KQC/Error.h"

#include <cstdio>
#include <set>
#include <utility>
#include <vector>

namespace KQSim {
namespace {

bool isYesNoKey(const std::string& key) { return key == "dhcp" || key == "dhcp6" || key == "host_routed"; }

bool isKnownKey(const std::string& key)
{
    static const std::set<std::string> known = {"name", "mac", "ip", "dhcp", "dhcp6", "network",
                                                "gw", "gw6", "ns", "host_routed"};
    return known.count(key) > 0;
}

bool isRepeatable(const std::string& key) { return key == "ip" || key == "ns"; }

int splitPairs(const std::string& adapterText, std::vector<std::pair<std::string, std::string>>& pairs)
{
    size_t start = 0;
    while (start <= adapterText.size()) {
        size_t comma = adapterText.find(',', start);
        std::string item = adapterText.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        size_t equals = item.find('=');
        if (equals == std::string::npos || equals == 0) {
            KQC::setErrorMessage("bad --netif item '%s': key=value expected", item.c_str());
            return -1;
        }
        pairs.emplace_back(item.substr(0, equals), item.substr(equals + 1));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return 0;
}

int checkPair(const std::pair<std::string, std::string>& pair, std::set<std::string>& seen)
{
    const std::string& key = pair.first;
    const std::string& value = pair.second;
    if (!isKnownKey(key)) {
        KQC::setErrorMessage("unknown --netif key '%s'", key.c_str());
        return -1;
    }
    if (!isRepeatable(key) && !seen.insert(key).second) {
        KQC::setErrorMessage("--netif key '%s' given twice", key.c_str());
        return -1;
    }
    if (value.find_first_of(";=") != std::string::npos) {
        KQC::setErrorMessage("bad --netif value '%s'", value.c_str());
        return -1;
    }
    if (isYesNoKey(key) && value != "yes" && value != "no") {
        KQC::setErrorMessage("--netif %s must be yes or no, not '%s'", key.c_str(), value.c_str());
        return -1;
    }
    return 0;
}

} // namespace

int normalizeNetif(const std::string& adapterText, int veid, int position, std::string& normalized)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    if (splitPairs(adapterText, pairs) != 0)
        return -1;
    std::set<std::string> seen;
    std::string name;
    bool hostRouted = false;
    for (const auto& pair : pairs) {
        if (checkPair(pair, seen) != 0)
            return -1;
        if (pair.first == "name")
            name = pair.second;
        if (pair.first == "host_routed")
            hostRouted = pair.second == "yes";
    }
    if (name.empty()) {
        KQC::setErrorMessage("--netif '%s' has no name", adapterText.c_str());
        return -1;
    }
    normalized = "name=" + name;
    for (const auto& pair : pairs)
        if (pair.first != "name")
            normalized += "," + pair.first + "=" + pair.second;
    if (!seen.count("mac") && !hostRouted)
        normalized += ",mac=" + generatedMac(veid, position);
    return 0;
}

std::string generatedMac(int veid, int position)
{
    char mac[32];
    unsigned id = static_cast<unsigned>(veid);
    std::snprintf(mac, sizeof mac, "02:4b:%02x:%02x:%02x:%02x", (id >> 16) & 0xff, (id >> 8) & 0xff, id & 0xff,
                  static_cast<unsigned>(position) & 0xff);
    return mac;
}

std::string NetifAdapter::value(const std::string& key) const
{
    for (const auto& pair : pairs)
        if (pair.first == key)
            return pair.second;
    return "";
}

void NetifAdapter::set(const std::string& key, const std::string& value)
{
    for (auto it = pairs.begin(); it != pairs.end(); ++it) {
        if (it->first != key)
            continue;
        it->second = value;
        for (auto later = it + 1; later != pairs.end();)
            later = later->first == key ? pairs.erase(later) : later + 1;
        return;
    }
    pairs.emplace_back(key, value);
}

void NetifAdapter::removeAll(const std::string& key)
{
    for (auto it = pairs.begin(); it != pairs.end();)
        it = it->first == key ? pairs.erase(it) : it + 1;
}

std::vector<NetifAdapter> parseNetifLine(const std::string& line)
{
    std::vector<NetifAdapter> adapters;
    size_t start = 0;
    while (start < line.size()) {
        size_t end = line.find(';', start);
        std::string text = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
        NetifAdapter adapter;
        std::vector<std::pair<std::string, std::string>> pairs;
        if (!text.empty() && splitPairs(text, pairs) == 0) {
            adapter.pairs = pairs;
            adapters.push_back(adapter);
        }
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return adapters;
}

std::string formatNetifLine(const std::vector<NetifAdapter>& adapters)
{
    std::string line;
    for (const NetifAdapter& adapter : adapters) {
        if (!line.empty())
            line += ';';
        std::string text;
        for (const auto& pair : adapter.pairs)
            text += (text.empty() ? "" : ",") + pair.first + "=" + pair.second;
        line += text;
    }
    return line;
}

} // namespace KQSim
