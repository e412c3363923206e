// Listing environments and their information: the registry joined with the
// host's container list.
#include "KQSBasicFunctionalityCommon.h"
#include "KQSEnvMLocal.h"
#include "KQSCaches.h"
#include "KQSResult.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Boundary.h"
#include "KQC/Configuration.h"
#include "KQC/Error.h"
#include "KQC/Handle.h"
#include "KQC/HostPaths.h"
#include "KQS/Env.h"

#include <fcntl.h>
#include <vector>

namespace KQS {
namespace {

const unsigned int kMaskAll = 0xffffffff;
const unsigned int kMaskBasic = 1;
const unsigned int kMaskNameservers = 2;
const unsigned int kMaskSearchDomains = 4;
const unsigned int kMaskAddresses = 8;
const unsigned int kMaskParent = 16;

// The part of a container's configuration that the mask asks for.
boost::shared_ptr<KQSEnvConfig> reducedConfig(const KQSEnvConfig& full, unsigned int mask)
{
    boost::shared_ptr<KQSEnvConfig> config(new KQSEnvConfig);
    config->setType(KQC::KQCEnvType(KQSEnv::type));
    if (mask & kMaskBasic) {
        KQC::KQCOptionalProperty<std::string> text;
        full.getName(text), config->setName(text);
        full.getDescription(text), config->setDescription(text);
        full.getHostname(text), config->setHostname(text);
        full.getArchitecture(text), config->setArchitecture(text);
        full.getOriginSample(text), config->setOriginSample(text);
        KQC::KQCOptionalProperty<KQC::KQCOS> os;
        full.getOS(os), config->setOS(os);
        KQC::KQCOptionalProperty<KQSTemplate> osTemplate;
        full.getOsTemplate(osTemplate), config->setOsTemplate(osTemplate);
        KQC::KQCOptionalProperty<int> veid;
        full.getVeid(veid), config->setVeid(veid);
    }
    if (mask & kMaskNameservers) {
        KQC::KQCOptionalProperty<KQC::KQCStringList> nameservers;
        full.getNameservers(nameservers), config->setNameservers(nameservers);
    }
    if (mask & kMaskSearchDomains) {
        KQC::KQCOptionalProperty<KQC::KQCStringSet> domains;
        full.getSearchDomains(domains), config->setSearchDomains(domains);
    }
    if (mask & kMaskAddresses) {
        KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
        full.getAddresses(addresses), config->setAddresses(addresses);
    }
    return config;
}

boost::shared_ptr<KQC::KQCEnv> buildEnv(const KQC::KQCEID& eid, const KQSVPSEntry& entry, unsigned int mask)
{
    KQSEnvConfig empty;
    const KQSEnvConfig& full = entry.config ? *entry.config : empty;
    // The entry belongs to this call's own list and is dropped after, so
    // the full configuration is handed over rather than copied.
    boost::shared_ptr<KQSEnvConfig> config =
        mask != kMaskAll ? reducedConfig(full, mask)
                         : entry.config ? entry.config : boost::shared_ptr<KQSEnvConfig>(new KQSEnvConfig);
    boost::shared_ptr<KQSEnv> env(new KQSEnv(eid, config, KQC::KQCEnvStatus(entry.state, entry.transition)));
    if (mask != kMaskAll && (mask & kMaskParent)) {
        std::string local;
        KQC::KQCEID parent;
        if (KQC::KQCConfiguration::getLocalEID(local) == 0 && parent.fromString(local) == 0)
            env->setParentEID(parent);
    }
    return env;
}

struct Registered {
    KQC::KQCEID eid;
    int veid;
    bool found;  // whether the registry knows its VEID
};

// The VEIDs of many environments at once, each agent-side file looked at
// from the folder held open for the whole call rather than by its path.
class RegistryVeids {
public:
    explicit RegistryVeids(KQSEnvMLocal& envm)
        : m_envm(envm),
          m_fd(::open(KQC::KQCInstanceFolders::etc().leaf("configs").string().c_str(),
                      O_PATH | O_DIRECTORY | O_CLOEXEC))
    {
    }

    // 0 with the VEID, else findByEid's failure.
    int find(const KQC::KQCEID& eid, int& veid) { return m_envm.findByEid(eid, &veid, m_fd.get()); }

private:
    KQSEnvMLocal& m_envm;
    KQC::KQCHandle m_fd;
};

} // namespace

int KQSEnvMLocal::getInfo(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask)
{
    return KQC::guardedCall("getInfo", [&] { return infoOf(eids, out, mask); });
}

int KQSEnvMLocal::infoOf(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask)
{
    KQC::KQCEIDSet wanted = eids;
    if (wanted.empty()) {
        int rc = getEnvList(wanted);
        if (rc)
            return rc;
    }
    boost::shared_ptr<KQC::KQCClientContext> context = KQC::KQCAccessChecker::getClientContext(access());
    if (KQC::KQCAccessChecker::accessCheck(context, wanted, KQC::RIGHT_ENV_INFO, eids.empty()) != 0)
        return KQC::KQC_ERR_ACCESS_DENIED;
    if (wanted.empty())
        return 0;
    // "All" stays "all" for the join: a container whose file cannot be read
    // is left out of all, while one asked for by name is an error.
    return getInfoEx(eids, out, mask, false);
}

int KQSEnvMLocal::getList(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options)
{
    return KQC::guardedCall("getList", [&] { return listOf(out, options); });
}

int KQSEnvMLocal::listOf(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options)
{
    KQC::KQCEnvVector envs;
    int rc = getInfo(KQC::KQCEIDSet(), envs, kMaskAll);
    if (rc)
        return rc;
    for (const auto& env : envs)
        if (options.states.empty() || options.states.count(env->getStatus().state()))
            out.insert(env->getEID());
    return 0;
}

int KQSEnvMLocal::getInfoEx(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask, bool sync)
{
    return KQC::guardedCall("getInfoEx", [&] { return joinWithHost(eids, out, mask, sync); });
}

int KQSEnvMLocal::joinWithHost(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask, bool sync)
{
    KQSVPSList containers;
    // Every environment with its VEID, looked up once per call, in EID order.
    std::vector<Registered> known;
    RegistryVeids registry(*this);
    // Every listing, the synchronising one included, is guarded by the
    // listing right; the synchronising one would otherwise hand out every
    // environment to a client that may not see them.
    boost::shared_ptr<KQC::KQCClientContext> context = KQC::KQCAccessChecker::getClientContext(access());
    if (eids.empty()) {
        KQC::KQCEIDSet all;
        int rc = getEnvList(all);
        if (rc)
            return rc;
        if (KQC::KQCAccessChecker::accessCheck(context, all, KQC::RIGHT_ENV_INFO, true) != 0)
            return KQC::KQC_ERR_ACCESS_DENIED;
        known.reserve(all.size());
        for (const KQC::KQCEID& eid : all) {
            Registered item{eid, 0, false};
            item.found = registry.find(eid, item.veid) == 0;
            known.push_back(item);
        }
    } else {
        if (KQC::KQCAccessChecker::accessCheck(context, eids, KQC::RIGHT_ENV_INFO, false) != 0)
            return KQC::KQC_ERR_ACCESS_DENIED;
        known.reserve(eids.size());
        for (const KQC::KQCEID& eid : eids) {
            Registered item{eid, 0, true};
            if (registry.find(eid, item.veid) != 0)
                continue;
            known.push_back(item);
            // The listing reads the configuration of every entry it is given.
            containers.emplace(item.veid, KQSVPSEntry());
        }
    }
    KQSUnreadableList unreadable;
    int rc = KQSVEActionSystemLinux::getVPSList(containers, true, !eids.empty(), &unreadable);
    if (rc)
        return rc;
    // A container asked for by name whose file cannot be read is an error
    // naming that file, not "no such environment".
    if (!eids.empty()) {
        for (const Registered& item : known) {
            auto broken = unreadable.find(item.veid);
            if (broken != unreadable.end() && !containers.count(item.veid)) {
                KQC::setErrorMessage("%s", broken->second.c_str());
                return KQS_ERR_READ;
            }
        }
    }
    // The environment each listed container was given to, for the
    // synchronising pass.
    std::map<int, std::pair<KQC::KQCEID, boost::shared_ptr<KQSEnvConfig>>> listed;
    out.reserve(out.size() + known.size());
    for (const Registered& item : known) {
        auto it = item.found ? containers.find(item.veid) : containers.end();
        if (it != containers.end()) {
            out.push_back(buildEnv(item.eid, it->second, mask));
            if (sync)
                listed[item.veid] = std::make_pair(item.eid, it->second.config);
            containers.erase(it);
        } else if (sync && !(item.found && unreadable.count(item.veid))) {
            // Only a container whose file is gone is forgotten: one whose
            // file cannot be read now keeps its identity for when the file
            // is repaired.
            removeEnv(item.eid);
            // A second environment of a container listed already: the
            // container's record must name the one that stays.
            auto kept = item.found ? listed.find(item.veid) : listed.end();
            if (kept != listed.end())
                (void)recordEid(kept->second.first, kept->second.second);
        }
    }
    if (!sync)
        return 0;
    // The identity each container records, else a new one, found from the
    // configuration at hand rather than a listing of its own.
    Unregistered unregistered;
    unregistered.reserve(containers.size());
    for (const auto& entry : containers)
        unregistered.emplace_back(entry.first, entry.second.config);
    std::vector<KQC::KQCEID> registered;
    rc = registerContainers(unregistered, registered);
    auto entry = containers.begin();
    for (const KQC::KQCEID& eid : registered)
        out.push_back(buildEnv(eid, (entry++)->second, mask));
    return rc;
}

} // namespace KQS
