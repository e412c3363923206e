// Listing environments and their information: the registry joined with the
// host's container list.
#include "KQSBasicFunctionalityCommon.h"
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/Configuration.h"
#include "KQC/Error.h"
#include "KQS/Env.h"

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

} // namespace

int KQSEnvMLocal::getInfo(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask)
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
    return getInfoEx(wanted, out, mask, false);
}

int KQSEnvMLocal::getList(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options)
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
    KQSVPSList containers;
    KQC::KQCEIDSet known;
    // The VEIDs found while seeding, so that each environment's file is
    // looked at once per call.
    std::map<KQC::KQCEID, int, KQC::KQCEnvIDComparator> veidOf;
    if (eids.empty()) {
        int rc = getEnvList(known);
        if (rc)
            return rc;
    } else {
        for (const KQC::KQCEID& eid : eids) {
            int veid = 0;
            if (findByEid(eid, &veid) != 0)
                continue;
            known.insert(eid);
            veidOf[eid] = veid;
            containers[veid].config.reset(new KQSEnvConfig);
        }
    }
    int rc = KQSVEActionSystemLinux::getVPSList(containers, true, !eids.empty());
    if (rc)
        return rc;
    for (const KQC::KQCEID& eid : known) {
        auto seeded = veidOf.find(eid);
        int veid = seeded != veidOf.end() ? seeded->second : 0;
        if (seeded == veidOf.end() && findByEid(eid, &veid) != 0) {
            if (sync)
                removeEnv(eid);
            continue;
        }
        auto it = containers.find(veid);
        if (it != containers.end()) {
            out.push_back(buildEnv(eid, it->second, mask));
            containers.erase(it);
        } else if (sync) {
            removeEnv(eid);
        }
    }
    if (!sync)
        return 0;
    for (const auto& entry : containers) {
        KQC::KQCEID eid;
        rc = addNewEnv(entry.first, eid);
        if (rc)
            return rc;
        // Without its record the container is still registered and listed,
        // so a failure to write it is logged rather than failing the listing.
        if (updateEnvEID(eid, entry.second.config) != 0)
            KQS_LOG().put(1, "[%s] can't record the EID of ctid %d : %s", "getInfoEx", entry.first,
                          KQC::getErrorMessage());
        out.push_back(buildEnv(eid, entry.second, mask));
    }
    return 0;
}

} // namespace KQS
