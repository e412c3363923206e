// Making a new container: the request completed from a sample, a VEID, the
// addresses, the identifier, and the control tool.
#include "KQSEnvMLocal.h"

#include "KQSBasicFunctionalityCommon.h"
#include "KQSEnvConfigLock.h"
#include "KQSResult.h"
#include "KQSSampleMLocal.h"

#include "KQC/Computer.h"
#include "KQC/Error.h"
#include "KQC/NetworkResource.h"
#include "KQS/IPAutoAllocation.h"
#include "KQS/Notifications.h"

#include <boost/algorithm/string/predicate.hpp>
#include <boost/make_shared.hpp>

namespace KQS {
namespace {

typedef KQSVEActionSystemLinux Actions;

} // namespace

bool isCompatibleHost(const KQC::KQCEnvSample& sample)
{
    if (!sample.config)
        return false;
    KQC::KQCSystemInfo host;
    (void)KQC::KQCComputerMLocal(KQC::KQCAccessProvider()).getSystem(host);
    KQC::KQCOptionalProperty<std::string> architecture;
    sample.config->getArchitecture(architecture);
    if (architecture.isSpecified() && !architecture.get().empty() && !host.architecture.empty()
        && !boost::iequals(architecture.get(), host.architecture))
        return false;
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    sample.config->getOS(os);
    const KQC::KQCOptionalProperty<std::string>& platform = os.get().platform;
    const std::string& hostPlatform = host.os.platform.get();
    return !platform.isSpecified() || platform.get().empty() || hostPlatform.empty()
           || boost::iequals(platform.get(), hostPlatform);
}

namespace {

// Completes the addresses and names of a configuration being created.
class Builder {
public:
    explicit Builder(KQSEnvConfig& config) : m_config(config) {}

    // Adapters that ask for automatic addresses (the unspecified address
    // of a family) get free ones from the host's pool; adapters that ask
    // for none leave the pool and its lock alone.
    int autoAllocateIPs(const KQC::KQCAccessProvider& access)
    {
        KQC::KQCOptionalProperty<KQSNetVEthList> adapters;
        m_config.getNetVEths(adapters);
        if (!adapters.isSpecified())
            return 0;
        KQS::IPAutoAllocation::Builder builder(adapters.get());
        if (!builder.wantsAddresses())
            return 0;
        KQC::IPAutoAllocation::Director director(access);
        if (int rc = director.construct(builder))
            return rc;
        m_config.setNetVEths(builder.getResult());
        return 0;
    }

    // "$VEID" in the name becomes the container's number.
    int resolveName()
    {
        KQC::KQCOptionalProperty<std::string> name;
        m_config.getName(name);
        if (!name.isSpecified())
            return 0;
        return substituteVeid(name) ? (m_config.setName(name.get()), 0) : 1;
    }

    // "$RESOLVE_IP" asks for the name the resolver gives one of the
    // container's addresses (resolveIP); a host name that cannot be
    // resolved is left unset.
    int resolveHostname()
    {
        KQS_LOG().put(4, "[%s] Calling", __func__);
        KQC::KQCOptionalProperty<std::string> hostname;
        m_config.getHostname(hostname);
        if (!hostname.isSpecified())
            return 0;
        if (hostname.get() == "$RESOLVE_IP") {
            std::string resolved;
            if (!resolveIP(resolved)) {
                m_config.setHostname(KQC::KQCOptionalProperty<std::string>());
                return 1;
            }
            m_config.setHostname(resolved);
            return 0;
        }
        return substituteVeid(hostname) ? (m_config.setHostname(hostname.get()), 0) : 1;
    }

    // The name the resolver has for `name` (a host name or an address).
    static bool resolve(const std::string& name, std::string& out)
    {
        KQC::KQCNetworkResource resource(name);
        if (!resource.hasName())
            return false;
        out = resource.getName();
        return true;
    }

private:
    // The container's first address that the resolver can name: the
    // configuration's own addresses first, then each adapter's in order
    // (automatic ones are filled in by then).
    bool resolveIP(std::string& hostname) const
    {
        KQC::KQCIPAddressList candidates;
        KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
        m_config.getAddresses(addresses);
        candidates = addresses.get();
        KQC::KQCOptionalProperty<KQSNetVEthList> adapters;
        m_config.getNetVEths(adapters);
        for (const KQSNetVEth& adapter : adapters.get())
            candidates.insert(candidates.end(), adapter.getAddresses().begin(), adapter.getAddresses().end());
        for (const KQC::KQCIPAddress& address : candidates)
            if (!KQC::IPAutoAllocation::isAutomatic(address) && resolve(address.address(), hostname))
                return true;
        return false;
    }

    bool substituteVeid(KQC::KQCOptionalProperty<std::string>& text)
    {
        int veid = 0;
        if (m_config.getVeid(veid) != 0)
            return false;
        KQSEnvConfig::veidSubstitute(veid, text.get());
        return true;
    }

    KQSEnvConfig& m_config;
};

} // namespace

int KQSEnvMLocal::create(boost::shared_ptr<KQC::KQCEnv>* out, const KQC::KQCEnvConfig& config,
                         const KQC::KQCStringSet& tasks, bool, const KQC::KQCEID& eid)
{
    if (!out)
        std::abort();  // the caller's contract: an output is required
    return KQC::guardedCall("create", [&] { return createEnv(out, config, tasks, eid); });
}

int KQSEnvMLocal::createEnv(boost::shared_ptr<KQC::KQCEnv>* out, const KQC::KQCEnvConfig& requested,
                            const KQC::KQCStringSet& tasks, const KQC::KQCEID& requestedEid)
{
    int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()),
                                               KQC::RIGHT_ENV_CREATE);
    if (rc != KQS_OK)
        return rc;
    KQSEnvConfig config(requested);

    KQC::KQCOptionalProperty<std::string> sampleId;
    requested.getBaseSampleId(sampleId);
    if (sampleId.isSpecified()) {
        KQC::KQCEnvSample sample;
        KQSSampleMLocal samples(access());
        // An unknown sample is no error: the request goes on without one.
        if (samples.get(&sample, KQC::KQCGUID(sampleId.get())) == 0) {
            if (!isCompatibleHost(sample)) {
                KQC::setErrorMessage("Sample is not compatible");
                return KQS_ERR_NO_VEID;
            }
            mergeConfigs(*sample.config, config);
            KQC::KQCOptionalProperty<std::string> sampleName;
            sample.config->getName(sampleName);
            config.setOriginSample(sampleName.get());
        }
    }
    KQC::KQCOptionalProperty<std::string> origin;
    config.getOriginSample(origin);
    if (!origin.isSpecified())
        config.setOriginSample(std::string());

    int veid = 0;
    if (config.getVeid(veid) != 0) {
        if (allocateVeidFromMaster(veid, &config) != 0) {
            std::string why = KQC::getErrorMessage();
            KQC::setErrorMessage("can't allocate ctid:%s", why.c_str());
            return KQS_ERR_NO_VEID;
        }
        config.setVeid(veid);
    }
    KQC::KQCOptionalProperty<KQSTemplate> osTemplate;
    config.getOsTemplate(osTemplate);
    if (!osTemplate.isSpecified()) {
        KQC::setErrorMessage("OS template is not specified");
        return KQS_ERR_NO_VEID;
    }

    Builder builder(config);
    rc = builder.autoAllocateIPs(access());
    if (rc != 0)
        return rc;
    (void)builder.resolveName();
    (void)builder.resolveHostname();

    KQC::KQCEID eid = requestedEid;
    if (eid.isValid()) {
        if (findByEid(eid, nullptr) == KQS_OK) {
            KQC::setErrorMessage("Specified eid already exists");
            return KQS_ERR_BAD_ADAPTERS;
        }
        if (addNewEnv(veid, eid) != KQS_OK) {
            KQC::setErrorMessage("Can't reserve eid");
            return KQS_ERR_BAD_ADAPTERS;
        }
    }
    KQSEnvConfigLock configLock;
    eid.generate();  // replaced by the registered identifier below

    rc = Actions::create(*this, veid, config, false);
    if (rc != KQS_OK)
        return rc;
    KQSNotifications notifications(KQC::KQCEID::EID_INVALID, access());
    notifications.sendCommandConfUpdate(&veid);
    // The sample and the request are applied to the new container; the
    // addresses and names go as the tool's own options.
    if (Actions::setEnv(*this, veid, config, tasks, nullptr) != KQS_OK)
        return KQS_ERR_SET_PARAMS;
    notifications.sendCommandConfUpdate(&veid);

    // Unless the client named the identifier, the new container is not
    // registered yet: it gets its identifier here, as any container found
    // unregistered does.
    if (findByVeid(veid, eid, boost::shared_ptr<std::map<int, KQC::KQCEID>>()) != 0
        && registerContainer(veid, boost::shared_ptr<KQSEnvConfig>(), eid) != 0) {
        KQC::setErrorMessage("can't find eid for ctid=%d", veid);
        return KQS_ERR_TOOL;
    }
    KQC::KQCEnvVector envs;
    if (getInfoEx(KQC::KQCEIDSet{eid}, envs, 0xffffffff, false) == 0 && envs.size() == 1) {
        *out = envs.front();
        return KQS_OK;
    }
    return KQS_ERR_GENERIC;
}

} // namespace KQS
