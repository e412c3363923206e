#include "KQC/Tags.h"

#include "TextHelpers.h"

#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <string>
#include <vector>

namespace KQC {
namespace {

struct TagName {
    int tag;
    const char* name;
};

const TagName kTagNames[] = {
    {TAG_VEID, "veid"},
    {TAG_ACCOUNT_TYPE, "accountType"},
    {TAG_MESSAGE_PATH, "messagePath"},
    {TAG_ENV_CONFIG, "envConfig"},
    {TAG_MIN_VEID, "minVeid"},
    {TAG_MAX_VEID, "maxVeid"},
    {TAG_VOC_VALUE, "value"},
    {TAG_ENV_SAMPLE, "envSample"},
    {TAG_SAMPLE_CONFIG, "sampleConfig"},
    {TAG_NAME, "name"},
    {TAG_HOSTNAME, "hostname"},
    {TAG_DOMAIN, "domain"},
    {TAG_DESCRIPTION, "description"},
    {TAG_ADDRESSES, "addresses"},
    {TAG_NAMESERVERS, "nameservers"},
    {TAG_SEARCH_DOMAINS, "searchDomains"},
    {TAG_ARCHITECTURE, "architecture"},
    {TAG_BASE_SAMPLE_ID, "baseSampleId"},
    {TAG_OS, "os"},
    {TAG_OS_PLATFORM, "platform"},
    {TAG_OS_DISTRIBUTION, "osDistribution"},
    {TAG_OS_VERSION, "osVersion"},
    {TAG_OS_KERNEL, "osKernel"},
    {TAG_TYPE, "type"},
    {TAG_DISABLED, "disabled"},
    {TAG_QOSES, "qoses"},
    {TAG_QOS, "qos"},
    {TAG_ID, "id"},
    {TAG_BARRIER, "barrier"},
    {TAG_LIMIT, "limit"},
    {TAG_ITEM, "item"},
    {TAG_OS_TEMPLATE, "osTemplate"},
    {TAG_TEMPLATES, "templates"},
    {TAG_TEMPLATE, "template"},
    {TAG_VERSION, "version"},
    {TAG_OFFLINE_MANAGEMENT, "offlineManagement"},
    {TAG_ON_BOOT, "onBoot"},
    {TAG_VE_ROOT, "veRoot"},
    {TAG_VE_PRIVATE, "vePrivate"},
    {TAG_DISTRIBUTION, "distribution"},
    {TAG_OFFLINE_SERVICES, "offlineServices"},
    {TAG_SERVER_ROLES, "serverRoles"},
    {TAG_CAPABILITIES, "capabilities"},
    {TAG_CAPABILITY, "capability"},
    {TAG_ENABLED, "enabled"},
    {TAG_SLM_MODE, "slmMode"},
    {TAG_IPTABLES, "iptables"},
    {TAG_WINS_SERVERS, "winsServers"},
    {TAG_TS_LICENSE_SERVERS, "tsLicenseServers"},
    {TAG_TS_MODE, "tsMode"},
    {TAG_RATES, "rates"},
    {TAG_RATE, "rate"},
    {TAG_INTERFACE, "interface"},
    {TAG_RATE_CLASS, "class"},
    {TAG_RATE_VALUE, "rateValue"},
    {TAG_RATE_BOUND, "rateBound"},
    {TAG_ALLOW_REBOOT, "allowReboot"},
    {TAG_NET_VETHS, "veths"},
    {TAG_NET_VETH, "veth"},
    {TAG_MAC, "mac"},
    {TAG_DHCP, "dhcp"},
    {TAG_DHCP6, "dhcp6"},
    {TAG_NETWORK_ID, "network"},
    {TAG_GATEWAY, "gateway"},
    {TAG_GATEWAY6, "gateway6"},
    {TAG_HOST_ROUTED, "hostRouted"},
    {TAG_STATUS, "status"},
    {TAG_UUID, "uuid"},
    {TAG_ORIGIN_SAMPLE, "originSample"},
    {TAG_VE_TYPE, "veType"},
    {TAG_LOCAL_EID, "localEid"},
    {TAG_MASTER_EID, "masterEid"},
    {TAG_MAPPINGS, "mappings"},
    {TAG_MAPPING, "mapping"},
    {TAG_EID, "eid"},
    {TAG_CONNECTION, "connection"},
    {TAG_PARAMS_TYPE, "paramsType"},
    {TAG_PARAMS_NAMESPACE, "paramsNamespace"},
    {TAG_ARGUMENT, "argument"},
};

// Every record read or written asks for the keys of its tags, dozens of
// times: looked up by tag in a table indexed by it once made (tags are
// small numbers), the first name of a tag winning as in the table's order.
const std::vector<std::string>& namesByTag()
{
    static const std::vector<std::string> names = [] {
        int largest = 0;
        for (const TagName& entry : kTagNames)
            largest = std::max(largest, entry.tag);
        std::vector<std::string> made(static_cast<size_t>(largest) + 1);
        for (const TagName& entry : kTagNames)
            if (entry.tag >= 0 && made[static_cast<size_t>(entry.tag)].empty())
                made[static_cast<size_t>(entry.tag)] = entry.name;
        return made;
    }();
    return names;
}

} // namespace

std::string tagKey(int tag)
{
    const std::vector<std::string>& names = namesByTag();
    if (tag >= 0 && static_cast<size_t>(tag) < names.size() && !names[static_cast<size_t>(tag)].empty())
        return names[static_cast<size_t>(tag)];
    return std::to_string(tag);
}

int tagFromName(const std::string& name, int& tag)
{
    if (isShortDecimal(name)) {
        tag = std::atoi(name.c_str());
        return 0;
    }
    for (const TagName& entry : kTagNames)
        if (name == entry.name) {
            tag = entry.tag;
            return 0;
        }
    return -1;
}

std::string canonicalKey(const std::string& component)
{
    if (isShortDecimal(component))
        return tagKey(std::atoi(component.c_str()));
    return component;
}

} // namespace KQC
