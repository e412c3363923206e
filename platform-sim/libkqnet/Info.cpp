#include "kqnet/kqnet.h"

#include "SimHost.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

const char kPrefix[] = "veth.";
const char* const kSuffixes[] = {".state", ".addresses"};

struct Adapter {
    int veid;
    std::string name;
    unsigned int flags;
    std::vector<std::string> addresses;
};

// Running VEIDs within the filter's range, in list order.
std::vector<int> runningInRange(const kqnet_filter& filter)
{
    std::vector<int> veids;
    std::string text;
    if (!kqsim::readTextFile(kqsim::simHostRoot() + "/var/lib/kqsim/running", text))
        return veids;
    std::istringstream words(text);
    long veid = 0;
    while (words >> veid)
        if (veid >= filter.veid_min && veid <= filter.veid_max)
            veids.push_back(static_cast<int>(veid));
    return veids;
}

// Names of the adapters that have live values set for a container.
std::set<std::string> adapterNames(int veid)
{
    std::set<std::string> names;
    std::string folder = kqsim::simHostRoot() + "/var/lib/kqsim/kernel/" + std::to_string(veid);
    DIR* directory = ::opendir(folder.c_str());
    if (!directory)
        return names;
    while (const dirent* entry = ::readdir(directory)) {
        std::string key = entry->d_name;
        if (key.compare(0, sizeof kPrefix - 1, kPrefix) != 0)
            continue;
        for (const char* suffix : kSuffixes) {
            size_t length = std::strlen(suffix);
            if (key.size() > sizeof kPrefix - 1 + length && key.compare(key.size() - length, length, suffix) == 0)
                names.insert(key.substr(sizeof kPrefix - 1, key.size() - length - (sizeof kPrefix - 1)));
        }
    }
    ::closedir(directory);
    return names;
}

// "up" or "down"; both words at once give both flags, which a broken
// kernel could report and callers must refuse. Unknown means up.
unsigned int stateFlags(int veid, const std::string& name)
{
    std::string value;
    unsigned int flags = 0;
    if (kqsim::readKernelValue(veid, kPrefix + name + ".state", value)) {
        std::istringstream words(value);
        for (std::string word; words >> word;)
            flags |= word == "up" ? KQNET_FLAG_UP : word == "down" ? KQNET_FLAG_DOWN : 0u;
    }
    return flags ? flags : KQNET_FLAG_UP;
}

Adapter liveAdapter(int veid, const std::string& name, unsigned int request)
{
    Adapter adapter{veid, name, 0, {}};
    std::string value;
    if (request & KQNET_INFO_STATE)
        adapter.flags = stateFlags(veid, name);
    if ((request & KQNET_INFO_ADDRESSES) && kqsim::readKernelValue(veid, kPrefix + name + ".addresses", value)) {
        std::istringstream words(value);
        std::string address;
        while (words >> address)
            if ((request & KQNET_INFO_IPV6) || address.find(':') == std::string::npos)
                adapter.addresses.push_back(address);
    }
    return adapter;
}

std::vector<Adapter> selectAdapters(const kqnet_filter& filter, unsigned int request)
{
    std::vector<Adapter> adapters;
    for (int veid : runningInRange(filter)) {
        if (filter.kind == KQNET_FILTER_BY_NAME) {
            adapters.push_back(liveAdapter(veid, filter.name, request));
            continue;
        }
        for (const std::string& name : adapterNames(veid))
            if (name.size() < KQNET_NAME_SIZE)
                adapters.push_back(liveAdapter(veid, name, request));
    }
    return adapters;
}

kqnet_info* toRecord(const Adapter& adapter)
{
    kqnet_info* record = static_cast<kqnet_info*>(std::calloc(1, sizeof(kqnet_info)));
    if (!record)
        return nullptr;
    record->veid = adapter.veid;
    std::strncpy(record->name, adapter.name.c_str(), KQNET_NAME_SIZE - 1);
    record->flags = adapter.flags;
    if (adapter.addresses.empty())
        return record;
    record->addresses = static_cast<char**>(std::calloc(adapter.addresses.size(), sizeof(char*)));
    if (!record->addresses) {
        std::free(record);
        return nullptr;
    }
    for (const std::string& address : adapter.addresses) {
        char* copy = ::strdup(address.c_str());
        if (!copy) {
            kqnet_release_info(record);
            return nullptr;
        }
        record->addresses[record->address_count++] = copy;
    }
    return record;
}

} // namespace

extern "C" kqnet_info* kqnet_get_info(unsigned int flags, const kqnet_filter* filter)
{
    if (!filter) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        std::vector<Adapter> adapters = selectAdapters(*filter, flags);
        if (adapters.empty()) {
            errno = ENOENT;
            return nullptr;
        }
        kqnet_info* head = nullptr;
        kqnet_info** tail = &head;
        for (const Adapter& adapter : adapters) {
            kqnet_info* record = toRecord(adapter);
            if (!record) {
                kqnet_release_info(head);
                errno = ENOMEM;
                return nullptr;
            }
            *tail = record;
            tail = &record->next;
        }
        return head;
    } catch (...) {
        errno = ENOMEM;
        return nullptr;
    }
}

extern "C" void kqnet_release_info(kqnet_info* info)
{
    while (info) {
        kqnet_info* next = info->next;
        for (int i = 0; i < info->address_count; ++i)
            std::free(info->addresses[i]);
        std::free(info->addresses);
        std::free(info);
        info = next;
    }
}
