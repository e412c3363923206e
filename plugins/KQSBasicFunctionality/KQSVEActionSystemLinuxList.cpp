// Which containers exist on this host and in what state, read from the
// host's own records: configuration files, lock files, the kernel's running
// list, dump files and the mount table.
#include "KQSVEActionSystemLinux.h"

#include "KQSBasicFunctionalityCommon.h"
#include "KQSBashConfig.h"
#include "KQSCaches.h"
#include "KQSEnvMLocal.h"
#include "KQSKqStatLocal.h"
#include "KQSVT.h"

#include "KQS/Env.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Handle.h"
#include "KQC/HostPaths.h"

#include "kqctl/kqctl.h"
#include "kqnet/kqnet.h"

#include <boost/make_shared.hpp>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <exception>
#include <new>
#include <sstream>
#include <sys/stat.h>
#include <vector>

namespace KQS {
namespace {

const char kConfigFolder[] = "/etc/sysconfig/kq-scripts/";
const char kHostSettings[] = "/etc/sysconfig/kq";
const char kMounts[] = "/proc/mounts";
const char kLogComponent[] = "KQSBasicFunctionalityLocal";
const int kHostVeid = 0;
// VEID 1 is reserved by the platform and never listed.
const int kPlatformVeid = 1;
const int kVETypeForRepair = 4;
const int kVETypeRepaired = 5;
const int kVETypeForTempOper = 6;
const int kUnknownTransition = 1;
const size_t kInitialRunningRoom = 1024;
// More running containers than this is a kernel that keeps answering
// "more", not a host.
const size_t kMaxRunningRoom = size_t(1) << 24;

const std::pair<const char*, int> Map_VPSTransitionsMapLinux_Array[] = {
    {"creating", 2},         {"mounting", 3},        {"starting", 4},        {"stopping", 5},
    {"unmounting", 6},       {"destroying", 7},      {"moving", 8},          {"cloning", 9},
    {"migrating", 10},       {"starting-repair", 11}, {"stopping-repair", 12}, {"setting", 13},
    {"updating", 14},        {"backing-up", 15},     {"restoring", 16},      {"reinstalling", 17},
    {"suspending", 18},      {"resuming", 19},       {"restarting", 20},     {"check-updating", 101},
    {"", 0},
};

std::map<std::string, int> makeTransitionsMap()
{
    std::map<std::string, int> map;
    for (const auto& row : Map_VPSTransitionsMapLinux_Array)
        map[row.first] = row.second;
    return map;
}

// m_vpsRoots is written while listing and read by the mount scan, which
// may also be called on its own.
std::mutex& vpsRootsLock()
{
    static std::mutex lock;
    return lock;
}

// "<digits><suffix>" and nothing else -> the number. Signs, blanks and
// numbers beyond int are not VEIDs.
bool parseVeidName(const std::string& name, const char* prefix, const char* suffix, int& veid)
{
    size_t prefixLength = std::strlen(prefix);
    size_t suffixLength = std::strlen(suffix);
    if (name.size() <= prefixLength + suffixLength || name.compare(0, prefixLength, prefix) != 0 ||
        name.compare(name.size() - suffixLength, suffixLength, suffix) != 0)
        return false;
    long long value = 0;
    for (size_t pos = prefixLength; pos < name.size() - suffixLength; ++pos) {
        char c = name[pos];
        if (c < '0' || c > '9')
            return false;
        value = value * 10 + (c - '0');
        if (value > INT_MAX)
            return false;
    }
    veid = static_cast<int>(value);
    return true;
}

// Runs a public operation so that no exception leaves it: running out of
// memory midway is a failure like any other.
template <class Operation>
int guarded(const char* name, Operation operation)
{
    try {
        return operation();
    } catch (const std::exception& error) {
        KQC::setErrorMessage("%s failed: %s", name, error.what());
        return -1;
    }
}

int veType(const boost::shared_ptr<KQSEnvConfig>& config, int& type)
{
    if (!config)
        return -1;
    KQC::KQCOptionalProperty<int> property;
    config->getVEType(property);
    if (!property.isSpecified())
        return -1;
    type = property.get();
    return 0;
}

bool hasVEType(const boost::shared_ptr<KQSEnvConfig>& config, int wanted)
{
    int type = 0;
    return veType(config, type) == 0 && type == wanted;
}

bool isDirectory(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// ---- the host settings ---------------------------------------------------

// The host settings, re-read only when the file changes. The caller holds
// the listing's lock.
int refreshHostSettings(caches::Listing& host, KQSEnvConfigBashParser& parser)
{
    std::string path = KQC::hostPath(kHostSettings);
    if (!host.settingsStamp.update(path))
        return 0;
    KQSEnvConfig defaults;
    KQSVtSettings settings;
    boost::shared_ptr<KQSKQConfigBashParser> settingsParser = KQSKQConfigBashParser::getInstance();
    if (getBashConfig(path.c_str(), parser, defaults) != 0 || !settingsParser ||
        getBashConfig(path.c_str(), *settingsParser, settings) != 0) {
        // Try again next time rather than trusting a half-read file.
        host.settingsStamp.reset();
        return -7;
    }
    host.defaults = defaults;
    host.settings = settings;
    // Configurations completed with the old defaults are stale now.
    ++host.settingsGeneration;
    return 0;
}

std::string settingOrEmpty(const KQSVtSettings& settings, const char* name)
{
    std::string value;
    if (settings.getParam(name, value) != 0)
        return std::string();
    return value;
}

// ---- one container's configuration --------------------------------------

void dropUnsetAddresses(KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQSNetVEthList> adapters;
    config.getNetVEths(adapters);
    if (!adapters.isSpecified())
        return;
    KQSNetVEthList& list = adapters.get();
    for (KQSNetVEth& adapter : list) {
        // The tool writes 0.0.0.0 for "no address"; it is not one.
        std::vector<KQC::KQCIPAddress>& addresses = adapter.getAddresses();
        std::vector<KQC::KQCIPAddress> kept;
        for (const KQC::KQCIPAddress& address : addresses)
            if (!(address.isV4() && address.address() == "0.0.0.0"))
                kept.push_back(address);
        addresses.swap(kept);
        if (addresses.empty())
            break;
    }
    config.setNetVEths(adapters);
}

// The tool stores name and description escaped between double quotes.
void unescapeText(const KQC::KQCOptionalProperty<std::string>& property,
                  void (KQSEnvConfig::*setter)(const std::string&), KQSEnvConfig& config)
{
    if (!property.isSpecified())
        return;
    std::vector<char> text(property.get().begin(), property.get().end());
    text.push_back('\0');
    kqctl_unescapestr_eq(text.data());
    if (text[0] != '\0')
        (config.*setter)(std::string(text.data()));
}

void rememberRoot(const KQSEnvConfig& config, int veid)
{
    std::string root;
    if (config.getVERoot(root) != 0 || root.empty())
        return;
    std::lock_guard<std::mutex> guard(vpsRootsLock());
    KQSVEActionSystemLinux::m_vpsRoots[root] = veid;
}

// The configuration's address list is the adapters' addresses together.
void gatherAddresses(KQSEnvConfig& config, bool running)
{
    KQC::KQCOptionalProperty<KQSNetVEthList> adapters;
    config.getNetVEths(adapters);
    if (!adapters.isSpecified() || adapters.get().empty())
        return;
    KQC::KQCIPAddressList addresses;
    for (KQSNetVEth& adapter : adapters.get()) {
        // The host-routed adapter of a running container is always up.
        if (running && adapter.isHostRouted() && adapter.getName() == "venet0")
            adapter.setStatus(KQSNetVEth::STATUS_UP);
        addresses.insert(addresses.end(), adapter.getAddresses().begin(), adapter.getAddresses().end());
    }
    config.setNetVEths(adapters);
    if (addresses.empty())
        config.setAddresses(KQC::KQCOptionalProperty<KQC::KQCIPAddressList>());
    else
        config.setAddresses(addresses);
}

// The configuration folder, open for the length of one listing: every
// file in it is looked at from the folder rather than by its whole path.
class ConfigFolder {
public:
    ConfigFolder() : m_path(KQC::hostPath(kConfigFolder))
    {
        m_fd.reset(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    const std::string& path() const { return m_path; }
    // Whether the file of `veid` differs from `stamp` (remembering it now).
    bool changed(int veid, KQSPathModTime& stamp) const
    {
        return lookUp(veid, [&](int dirfd, const char* name) { return stamp.update(dirfd, name); }) != 0;
    }
    // The container's file parsed into `config`, with the status of what
    // was read in `st`: 0, or -1 with the message set.
    int parse(int veid, KQSEnvConfigBashParser& parser, KQSEnvConfig& config, struct stat& st) const
    {
        const std::string path = m_path + std::to_string(veid) + ".conf";
        return lookUp(veid, [&](int dirfd, const char* name) {
            return getBashConfigAt(dirfd, name, path, parser, config, &st);
        });
    }
    // Whether the folder has an entry for `veid`, whatever it is; a link is
    // not followed, so a dangling one is there too.
    bool has(int veid) const
    {
        return lookUp(veid, [](int dirfd, const char* name) {
                   struct stat st;
                   return ::fstatat(dirfd, name, &st, AT_SYMLINK_NOFOLLOW) == 0;
               }) != 0;
    }

private:
    // What look(dirfd, name) answers for the file of `veid`: asked by its
    // name within the open folder, or by its whole path when the folder
    // could not be opened.
    template <class Look>
    int lookUp(int veid, Look look) const
    {
        char name[32];
        std::snprintf(name, sizeof name, "%d.conf", veid);
        if (m_fd.isValid())
            return look(m_fd.get(), name);
        return look(AT_FDCWD, (m_path + name).c_str());
    }

    std::string m_path;
    KQC::KQCHandle m_fd;
};

// Parses the file and finishes it as every listing shows a container that
// does not run; empty, with `failure` saying why, when the file cannot be
// read.
boost::shared_ptr<KQSEnvConfig> parseContainer(int veid, const ConfigFolder& folder, KQSEnvConfigBashParser& parser,
                                               const KQSEnvConfig& defaults, KQSPathModTime& stamp,
                                               std::string& failure)
{
    // With its counts in one allocation: the cache keeps one per container.
    boost::shared_ptr<KQSEnvConfig> config = boost::make_shared<KQSEnvConfig>();
    struct stat st;
    if (folder.parse(veid, parser, *config, st) != 0) {
        // One broken file is that container's problem: it is left out of
        // this listing, said so in the log, and the others are listed.
        char text[64];
        std::snprintf(text, sizeof text, "can't read the configuration of container %d: ", veid);
        failure = text + std::string(KQC::getErrorMessage());
        KQC::Log2(kLogComponent, __FILE__, __LINE__, "getVPSList", __PRETTY_FUNCTION__).put(1, "%s", failure.c_str());
        return boost::shared_ptr<KQSEnvConfig>();
    }
    dropUnsetAddresses(*config);
    KQC::KQCOptionalProperty<std::string> text;
    config->getName(text);
    unescapeText(text, &KQSEnvConfig::setName, *config);
    config->getDescription(text);
    unescapeText(text, &KQSEnvConfig::setDescription, *config);
    // The stamp of what was read, not of a look before or after: a file
    // replaced meanwhile is read again next time.
    stamp.update(st);
    config->setVeid(veid);
    config->setType(KQC::KQCEnvType(KQSEnv::type));
    KQSEnvMLocal::mergeConfigsKQDefaultToVE(defaults, *config);
    KQSEnvMLocal::fillSystemInfo(*config);
    rememberRoot(*config, veid);
    gatherAddresses(*config, false);
    return config;
}

// The entry gets the container's configuration as last parsed while its
// file and the host settings stay the same: an unchanged container costs
// one stat and no copy. The configuration is shared with the cache and with
// earlier listings: whoever changes it, copies it first. A file that is
// there but cannot be read leaves the reason in `failure`.
void readEntryConfig(int veid, KQSVPSEntry& entry, KQSEnvConfigBashParser& parser, const ConfigFolder& folder,
                     std::string& failure)
{
    caches::Listing& cache = caches::listing();
    caches::ParsedContainer& parsed = cache.parsed[veid];
    // A container never parsed is read straight away: its stamp comes from
    // the read itself, one look at the file fewer.
    bool kept = parsed.config && parsed.settingsGeneration == cache.settingsGeneration &&
                !folder.changed(veid, parsed.stamp);
    if (!kept) {
        parsed.config = parseContainer(veid, folder, parser, cache.defaults, parsed.stamp, failure);
        parsed.settingsGeneration = cache.settingsGeneration;
    }
    entry.modTime = parsed.stamp;
    entry.config = boost::const_pointer_cast<KQSEnvConfig>(parsed.config);
    if (!parsed.config) {
        cache.parsed.erase(veid);  // read again next time rather than remember a failure
        // A container asked for by VEID may have no file at all: that is a
        // container that is gone, not one that is broken.
        if (!folder.has(veid))
            failure.clear();
    }
}

boost::shared_ptr<KQSEnvConfig> bareConfig(int veid)
{
    boost::shared_ptr<KQSEnvConfig> config(new KQSEnvConfig());
    config->setVeid(veid);
    config->setType(KQC::KQCEnvType(KQSEnv::type));
    return config;
}

// ---- the steps of the listing -------------------------------------------

// A container being created has a lock but no configuration file yet.
int applyTransitions(const std::string& lockDir, KQSVPSList& list)
{
    KQC::OpenDir dir(lockDir);
    if (!dir) {
        KQC::setErrorMessage("can't open lock folder '%s': %s", lockDir.c_str(), std::strerror(errno));
        return -1;
    }
    while (dir.read()) {
        int veid = 0;
        if (!parseVeidName(dir.name(), "", ".lck", veid) || veid == kHostVeid)
            continue;
        int transition = 0;
        if (KQSVEActionSystemLinux::getVPSTransition(lockDir, veid, &transition) != 0)
            continue;
        KQSVPSEntry& entry = list[veid];
        entry.transition = transition;
        if (!entry.config)
            entry.config = bareConfig(veid);
    }
    return 0;
}

void applyDumps(const std::string& dumpDir, KQSVPSList& list)
{
    KQC::OpenDir dir(dumpDir);
    if (!dir)
        return;  // no dump folder: nothing is suspended
    while (dir.read()) {
        int veid = 0;
        if (!parseVeidName(dir.name(), "Dump.", "", veid))
            continue;
        auto found = list.find(veid);
        if (found != list.end() && found->second.state < KQC::ENV_STATE_RUNNING)
            found->second.state = KQC::ENV_STATE_SUSPENDED;
    }
}

// Looks at private areas from their parent folder, which containers mostly
// share: one folder opened for a run of them instead of a walk of each long
// path. A dump is looked for only where one can be: not in an area that is
// not there, nor in an unchanged area that had no dump folder.
class PrivateAreas {
public:
    enum Kind { Missing, Present, Suspended };

    // `known` remembers the area between listings; may be null.
    Kind look(const std::string& area, caches::ParsedContainer* known)
    {
        size_t slash = area.rfind('/');
        if (slash == std::string::npos || slash == 0 || slash + 1 == area.size())
            return lookByPath(area);
        if (m_parent.compare(0, std::string::npos, area, 0, slash) != 0) {
            m_parent.assign(area, 0, slash);
            m_fd.reset(::open(m_parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        }
        if (!m_fd.isValid())
            return lookByPath(area);
        const char* leaf = area.c_str() + slash + 1;
        struct stat st;
        if (::fstatat(m_fd.get(), leaf, &st, 0) != 0 || !S_ISDIR(st.st_mode)) {
            if (known)
                known->areaStamp.reset();
            return Missing;
        }
        if (!known || known->areaStamp.update(st)) {
            bool hasDumpFolder = ::fstatat(m_fd.get(), (std::string(leaf) + "/dump").c_str(), &st, 0) == 0;
            if (!known)
                return hasDumpFolder && hasDump(leaf) ? Suspended : Present;
            known->areaHasDumpFolder = hasDumpFolder;
        }
        return known->areaHasDumpFolder && hasDump(leaf) ? Suspended : Present;
    }

private:
    bool hasDump(const char* leaf) const
    {
        struct stat st;
        return ::fstatat(m_fd.get(), (std::string(leaf) + "/dump/Dump").c_str(), &st, 0) == 0;
    }
    static Kind lookByPath(const std::string& area)
    {
        if (!isDirectory(area))
            return Missing;
        return KQC::fentryExists(area + "/dump/Dump") ? Suspended : Present;
    }

    std::string m_parent;
    KQC::KQCHandle m_fd;
};

// The caller holds the listing's lock.
void applyPrivateAreas(KQSVPSList& list)
{
    PrivateAreas areas;
    std::string privateDir;
    std::map<int, caches::ParsedContainer>& parsed = caches::listing().parsed;
    for (auto& item : list) {
        KQSVPSEntry& entry = item.second;
        if (entry.state < KQC::ENV_STATE_STOPPED && entry.config && entry.config->getVEPrivate(privateDir) == 0) {
            auto known = parsed.find(item.first);
            PrivateAreas::Kind kind = areas.look(privateDir, known == parsed.end() ? nullptr : &known->second);
            if (kind == PrivateAreas::Suspended)
                entry.state = KQC::ENV_STATE_SUSPENDED;
            else if (kind == PrivateAreas::Present)
                entry.state = KQC::ENV_STATE_STOPPED;
        }
        if (!KQSVEActionSystemLinux::isVPSRepaired(entry.config))
            continue;
        // The offline-management setting comes from the container that the
        // type value names, when the listing has it.
        int named = 0;
        veType(entry.config, named);
        auto source = list.find(named);
        if (source != list.end() && source->second.config) {
            KQC::KQCOptionalProperty<bool> offline;
            source->second.config->getOfflineManagement(offline);
            boost::shared_ptr<KQSEnvConfig> copy(new KQSEnvConfig(*entry.config));
            copy->setOfflineManagement(offline);
            entry.config = copy;
        }
        entry.state = KQC::ENV_STATE_REPAIRING;
    }
}

bool isDropped(int veid, const KQSVPSEntry& entry, bool skipForRepair)
{
    if (entry.state < KQC::ENV_STATE_STOPPED && entry.transition == 0)
        return true;  // neither there nor on its way
    if (skipForRepair && KQSVEActionSystemLinux::isVPSForRepair(entry.config))
        return true;
    return KQSVEActionSystemLinux::isVPSForTempOper(entry.config) || veid == kPlatformVeid;
}

void dropEntries(KQSVPSList& list, bool skipForRepair)
{
    for (auto it = list.begin(); it != list.end();) {
        if (isDropped(it->first, it->second, skipForRepair))
            it = list.erase(it);
        else
            ++it;
    }
}

// ---- live adapter state --------------------------------------------------

// The live up/down state and, for DHCP adapters, addresses of one adapter.
int readLiveAdapter(int veid, unsigned flags, KQSNetVEth& adapter)
{
    adapter.setStatus(KQSNetVEth::STATUS_UNKNOWN);
    kqnet_filter* filter = kqnet_get_simple_filter(KQNET_FILTER_BY_NAME, 0, 0, adapter.getName().c_str(), veid, veid);
    if (!filter)
        return 0;
    kqnet_info* info = kqnet_get_info(flags, filter);
    kqnet_release_filter(filter);
    if (!info)
        return 0;  // not live: the state stays unknown
    bool down = (info->flags & KQNET_FLAG_DOWN) != 0;
    bool up = (info->flags & KQNET_FLAG_UP) != 0;
    if (down && up) {
        KQC::setErrorMessage("invalid up/down status of VEth: ctid:%i veth:\"%s\"", veid, adapter.getName().c_str());
        kqnet_release_info(info);
        return -1;
    }
    if (down)
        adapter.setStatus(KQSNetVEth::STATUS_DOWN);
    else if (up)
        adapter.setStatus(KQSNetVEth::STATUS_UP);
    if (adapter.isAnyDhcp()) {
        std::vector<KQC::KQCIPAddress> addresses;
        for (int index = 0; index < info->address_count; ++index) {
            KQC::KQCIPAddress address;
            if (info->addresses[index] && address.fromString(info->addresses[index]) == 0)
                addresses.push_back(address);
        }
        adapter.setAddresses(addresses);
    }
    kqnet_release_info(info);
    return 0;
}

// ---- the running list ----------------------------------------------------

// One try with `room` slots: 1 when the answer did not fit, 0 done, -1 failed.
int tryRunningList(size_t room, std::set<int>& veids)
{
    std::vector<uint32_t> buffer(room, 0);
    kqlist_veidctl control;
    std::memset(&control, 0, sizeof control);
    control.count = static_cast<uint32_t>(room);
    control.veids = buffer.data();
    long count = KQS::kqLinGetVeidsCall(&control);
    if (count < 0) {
        // Kernels without the list request still list the beancounters,
        // which are the running containers.
        long bytes = KQS::kqLinUbstatCall(static_cast<long>(KQ_UBSTAT_GET_UBIDS), 0, 0, buffer.data(),
                                          static_cast<long>(room * sizeof(uint32_t)));
        if (bytes < 0) {
            KQC::setErrorMessage("can't get the list of running containers: %s", std::strerror(errno));
            return -1;
        }
        count = bytes / static_cast<long>(sizeof(uint32_t));
        if (static_cast<size_t>(count) >= room)
            return 1;
    } else if (static_cast<size_t>(count) > room) {
        return 1;
    }
    veids.clear();
    for (long index = 0; index < count; ++index)
        if (buffer[static_cast<size_t>(index)] != static_cast<uint32_t>(kHostVeid))
            veids.insert(static_cast<int>(buffer[static_cast<size_t>(index)]));
    return 0;
}

} // namespace

const std::map<std::string, int> VPSTransitionsMapLinux = makeTransitionsMap();
std::map<std::string, int> KQSVEActionSystemLinux::m_vpsRoots;

int KQSVEActionSystemLinux::getVPSTransitionByString(const std::string& word)
{
    auto found = VPSTransitionsMapLinux.find(word);
    return found == VPSTransitionsMapLinux.end() ? kUnknownTransition : found->second;
}

int KQSVEActionSystemLinux::getVPSTransition(const std::string& lockDir, int veid, int* transition)
{
    return guarded("getVPSTransition", [&]() -> int {
        if (transition)
            *transition = 0;
        std::string path = lockDir + "/" + std::to_string(veid) + ".lck";
        std::string text;
        if (KQC::file2str(path, text) != 0) {
            KQC::setErrorMessage("no transition lock for ctid %d", veid);
            return -1;
        }
        // "PID WORD": who holds the lock, and for what.
        std::istringstream in(text);
        int pid = 0;
        std::string word;
        if (!(in >> pid)) {
            KQC::setErrorMessage("the transition lock of ctid %d names no process", veid);
            return -1;
        }
        in >> word;
        // The holder may have died; a lock whose process is gone is stale.
        if (pid <= 0 || !KQC::fentryExists("/proc/" + std::to_string(pid))) {
            KQC::setErrorMessage("the transition lock of ctid %d is stale", veid);
            return -1;
        }
        if (transition)
            *transition = getVPSTransitionByString(word);
        return 0;
    });
}

bool KQSVEActionSystemLinux::isVPSExist(const boost::shared_ptr<KQSEnvConfig>& config)
{
    std::string privateDir;
    return config && config->getVEPrivate(privateDir) == 0 && isDirectory(privateDir);
}

bool KQSVEActionSystemLinux::isVPSRepaired(const boost::shared_ptr<KQSEnvConfig>& config)
{
    return hasVEType(config, kVETypeRepaired);
}

bool KQSVEActionSystemLinux::isVPSForRepair(const boost::shared_ptr<KQSEnvConfig>& config)
{
    return hasVEType(config, kVETypeForRepair);
}

bool KQSVEActionSystemLinux::isVPSForTempOper(const boost::shared_ptr<KQSEnvConfig>& config)
{
    return hasVEType(config, kVETypeForTempOper);
}

int KQSVEActionSystemLinux::getVeidList(std::set<int>& veids)
{
    return guarded("getVeidList", [&]() -> int {
        caches::Listing& cache = caches::listing();
        std::lock_guard<std::mutex> guard(cache.veidsLock);
        std::string folder = KQC::hostPath(kConfigFolder);
        if (cache.veidsStamp.changed(folder)) {
            KQC::OpenDir dir(folder);
            if (!dir) {
                cache.veidsStamp.forget();
                KQC::setErrorMessage("can't open configuration folder '%s': %s", folder.c_str(), std::strerror(errno));
                return -1;
            }
            std::vector<int> found;
            while (dir.read()) {
                int veid = 0;
                if (parseVeidName(dir.name(), "", ".conf", veid) && veid != kHostVeid)
                    found.push_back(veid);
            }
            std::sort(found.begin(), found.end());
            found.erase(std::unique(found.begin(), found.end()), found.end());
            found.shrink_to_fit();
            cache.veids.swap(found);
        }
        veids = std::set<int>(cache.veids.begin(), cache.veids.end());
        return 0;
    });
}

int KQSVEActionSystemLinux::getRunVPSList(std::set<int>& veids)
{
    try {
        for (size_t room = kInitialRunningRoom; room <= kMaxRunningRoom; room *= 2) {
            int result = tryRunningList(room, veids);
            if (result <= 0)
                return result;
        }
        KQC::setErrorMessage("can't get the list of running containers: more than %zu", kMaxRunningRoom);
        return -1;
    } catch (const std::bad_alloc&) {
        KQC::setErrorMessage("can't get the list of running containers: out of memory");
        return -1;
    }
}

int KQSVEActionSystemLinux::getMountedVPSList(std::set<int>& veids)
{
    const char* function = __func__;
    const char* signature = __PRETTY_FUNCTION__;
    return guarded("getMountedVPSList", [&]() -> int {
        std::string text;
        if (KQC::file2str(KQC::hostPath(kMounts), text) != 0) {
            KQC::Log2(kLogComponent, __FILE__, __LINE__, function, signature).put(1, "Cannot open file /proc/mounts");
            KQC::setErrorMessage("Cannot open file /proc/mounts");
            return -1;
        }
        std::istringstream in(text);
        std::string line;
        std::lock_guard<std::mutex> guard(vpsRootsLock());
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::string device, mountPoint;
            if (!(fields >> device >> mountPoint))
                continue;
            auto found = m_vpsRoots.find(mountPoint);
            if (found != m_vpsRoots.end())
                veids.insert(found->second);
        }
        return 0;
    });
}

int KQSVEActionSystemLinux::getActualParametersForVEth(KQSEnvConfig& config)
{
    return guarded("getActualParametersForVEth", [&]() -> int {
        KQC::KQCOptionalProperty<KQSNetVEthList> adapters;
        if (config.getNetVEths(adapters) != 0) {
            KQC::setErrorMessage("can't get VEth list");
            return -1;
        }
        if (!adapters.isSpecified() || adapters.get().empty())
            return 0;
        int veid = 0;
        if (config.getVeid(veid) != 0) {
            KQC::setErrorMessage("can't get CTID");
            return -1;
        }
        unsigned flags = KQNET_INFO_ADDRESSES | KQNET_INFO_STATE;
        if (KQSVT().isIPv6Available())
            flags |= KQNET_INFO_IPV6;
        for (KQSNetVEth& adapter : adapters.get())
            if (!adapter.isHostRouted() && readLiveAdapter(veid, flags, adapter) != 0)
                return -1;
        config.setNetVEths(adapters);
        return 0;
    });
}

namespace {

std::mutex& configPathsLock()
{
    static std::mutex lock;
    return lock;
}

// One path template of a container's configuration file, with its VEID put
// in (files written by the tools hold it already; older ones the variable).
int readConfigPath(int veid, std::string* dir, const char* what,
                   int (KQSEnvConfig::*getter)(KQC::KQCOptionalProperty<std::string>&) const)
{
    if (!dir) {
        KQC::setErrorMessage("no place for the %s of ctid %d", what, veid);
        return -1;
    }
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("can't get the configuration parser");
        return -1;
    }
    KQSEnvConfig config;
    {
        std::lock_guard<std::mutex> guard(configPathsLock());
        std::string path = KQSVEActionSystemLinux::getVPSSystemConfigPathByVeid(veid);
        if (getBashConfig(path.c_str(), *parser, config) != 0)
            return -1;
    }
    KQC::KQCOptionalProperty<std::string> value;
    (config.*getter)(value);
    if (!value.isSpecified() || value.get().empty()) {
        KQC::setErrorMessage("the %s of ctid %d is not set", what, veid);
        return -1;
    }
    std::string path = value.get();
    KQSEnvConfig::veidSubstitute(veid, path);
    *dir = path;
    return 0;
}

} // namespace

int KQSVEActionSystemLinux::getPrivateDir(int veid, std::string* dir)
{
    return guarded("getPrivateDir",
                   [&] { return readConfigPath(veid, dir, "VE_PRIVATE", &KQSEnvConfig::getVEPrivateVar); });
}

int KQSVEActionSystemLinux::getRootDir(int veid, std::string* dir)
{
    return guarded("getRootDir", [&] { return readConfigPath(veid, dir, "VE_ROOT", &KQSEnvConfig::getVERootVar); });
}

int KQSVEActionSystemLinux::getVEPrivateLayoutVersion(const std::string& privateDir)
{
    int version = kqctl_env_layout_version(privateDir.c_str());
    if (version < 0)
        KQC::setErrorMessage("can't get the layout version of '%s': %s", privateDir.c_str(), std::strerror(errno));
    return version;
}

int KQSVEActionSystemLinux::getVPSList(KQSVPSList& list, bool skipForRepair, bool onlyGiven)
{
    return getVPSList(list, skipForRepair, onlyGiven, nullptr);
}

int KQSVEActionSystemLinux::getVPSList(KQSVPSList& list, bool skipForRepair, bool onlyGiven,
                                       KQSUnreadableList* unreadable)
{
    // Log lines name this operation, not the lambda below.
    const char* function = __func__;
    const char* signature = __PRETTY_FUNCTION__;
    return guarded("getVPSList", [&]() -> int {
        caches::Listing& host = caches::listing();
        std::lock_guard<std::mutex> guard(host.lock);
        ConfigFolder folder;
        if (folder.path() != host.folder) {
            // Another host root: nothing read from the last one holds here.
            host.parsed.clear();
            host.settingsStamp.reset();
            host.folder = folder.path();
        }

        boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
        if (!parser) {
            KQC::setErrorMessage("can't get the configuration parser");
            return -7;
        }
        if (int result = refreshHostSettings(host, *parser))
            return result;
        std::string lockDir = settingOrEmpty(host.settings, "lockdir");
        std::string dumpDir = settingOrEmpty(host.settings, "dumpdir");

        if (!onlyGiven || list.empty()) {
            std::set<int> veids;
            if (getVeidList(veids) != 0)
                return -1;
            for (int veid : veids)
                list.emplace_hint(list.end(), veid, KQSVPSEntry());
        }
        KQSUnreadableList broken;
        for (auto& item : list) {
            // States are found afresh on every listing; only configurations are
            // kept while their files stay the same.
            item.second.state = KQC::ENV_STATE_UNKNOWN;
            item.second.transition = 0;
            std::string failure;
            readEntryConfig(item.first, item.second, *parser, folder, failure);
            if (!failure.empty())
                broken.emplace_hint(broken.end(), item.first, failure);
        }
        if (!lockDir.empty() && applyTransitions(lockDir, list) != 0)
            return -1;

        std::set<int> running;
        if (getRunVPSList(running) != 0)
            return -1;
        for (int veid : running) {
            auto found = list.find(veid);
            if (found != list.end())
                found->second.state = KQC::ENV_STATE_RUNNING;
        }
        if (!dumpDir.empty())
            applyDumps(dumpDir, list);
        std::set<int> mounted;
        if (getMountedVPSList(mounted) != 0)
            return -1;
        for (int veid : mounted) {
            auto found = list.find(veid);
            if (found != list.end() && found->second.state < KQC::ENV_STATE_MOUNTED)
                found->second.state = KQC::ENV_STATE_MOUNTED;
        }
        applyPrivateAreas(list);
        dropEntries(list, skipForRepair);
        if (unreadable) {
            // A broken container that runs or is on its way stays listed,
            // without its configuration; only the ones left out are named.
            for (const auto& item : broken)
                if (!list.count(item.first))
                    unreadable->insert(item);
        }
        for (auto& item : list) {
            KQSVPSEntry& entry = item.second;
            if (entry.state <= KQC::ENV_STATE_SUSPENDED || !entry.config)
                continue;  // kept as parsed: a container that does not run has no live state
            // The live state goes on a copy: the parsed configuration is shared.
            boost::shared_ptr<KQSEnvConfig> live(new KQSEnvConfig(*entry.config));
            if (KQSVEActionSystemLinux::getActualParametersForVEth(*live) != 0)
                KQC::Log2(kLogComponent, __FILE__, __LINE__, function, signature)
                    .put(1, "can't get parameters for veth:%s", KQC::getErrorMessage());
            gatherAddresses(*live, true);
            entry.config = live;
        }
        return 0;
    });
}

} // namespace KQS
