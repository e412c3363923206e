// Combining configurations: the target keeps what it has and takes what it
// lacks from the source.
#include "KQSEnvMLocal.h"

#include "KQC/Computer.h"
#include "KQC/Lock.h"

namespace KQS {
namespace {

// The general rule: a property the target has is kept; otherwise the
// source's is taken whole (lists and sets replace, they are never joined).
template <class T, class Getter, class Setter>
void takeIfMissing(const KQSEnvConfig& source, KQSEnvConfig& target,
                   int (Getter::*get)(KQC::KQCOptionalProperty<T>&) const,
                   void (Setter::*set)(const KQC::KQCOptionalProperty<T>&))
{
    KQC::KQCOptionalProperty<T> own;
    if ((target.*get)(own) == 0 && own.isSpecified())
        return;
    KQC::KQCOptionalProperty<T> offered;
    if ((source.*get)(offered) == 0 && offered.isSpecified())
        (target.*set)(offered);
}

#define KQS_TAKE_IF_MISSING(Stem) takeIfMissing(source, target, &KQSEnvConfig::get##Stem, &KQSEnvConfig::set##Stem)

// An empty host name is no host name: it neither clears nor fills.
void mergeHostname(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    KQC::KQCOptionalProperty<std::string> own;
    target.getHostname(own);
    if (own.isSpecified())
        return;
    KQC::KQCOptionalProperty<std::string> offered;
    source.getHostname(offered);
    if (offered.isSpecified() && !offered.get().empty())
        target.setHostname(offered);
}

void mergeType(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    KQC::KQCOptionalProperty<KQC::KQCEnvType> own, offered;
    target.getType(own);
    source.getType(offered);
    if (!own.isSpecified() && offered.isSpecified())
        target.setType(offered);
}

// Field by field: the target's OS is completed, never overwritten.
void mergeOS(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    KQC::KQCOptionalProperty<KQC::KQCOS> own, offered;
    target.getOS(own);
    source.getOS(offered);
    KQC::KQCOS merged = own.get();
    bool copied = false;
    for (int index = 0; index < 4; ++index) {
        const KQC::KQCOptionalProperty<std::string>& field = offered.get().field(index);
        if (!merged.field(index).isSpecified() && field.isSpecified() && !field.get().empty()) {
            merged.field(index) = field;
            copied = true;
        }
    }
    if (copied)
        target.setOS(merged);
}

void mergeVeid(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    int own = 0, offered = 0;
    if (target.getVeid(own) != 0 && source.getVeid(offered) == 0)
        target.setVeid(offered);
}

// getDisabled fails when the flag is not given.
void mergeDisabled(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    KQC::KQCOptionalProperty<bool> own, offered;
    if (target.getDisabled(own) != 0 && source.getDisabled(offered) == 0)
        target.setDisabled(offered);
}

// The host's system information, fetched until one fetch succeeded.
KQC::KQCLock systemInfoLock;
bool systemInfoKnown = false;
KQC::KQCSystemInfo systemInfo;

KQC::KQCSystemInfo hostSystemInfo()
{
    KQC::KQCGuard guard(systemInfoLock);
    if (!systemInfoKnown) {
        KQC::KQCSystemInfo fetched;
        // A failed fetch is not reported: what it did find is used.
        systemInfoKnown = KQC::KQCComputerMLocal(KQC::KQCAccessProvider()).getSystem(fetched) == 0;
        systemInfo = fetched;
    }
    return systemInfo;
}

} // namespace

void KQSEnvMLocal::mergeConfigs(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    KQS_TAKE_IF_MISSING(Name);
    KQS_TAKE_IF_MISSING(Description);
    KQS_TAKE_IF_MISSING(Domain);
    mergeHostname(source, target);
    KQS_TAKE_IF_MISSING(Architecture);
    KQS_TAKE_IF_MISSING(Addresses);
    KQS_TAKE_IF_MISSING(Nameservers);
    KQS_TAKE_IF_MISSING(SearchDomains);
    KQS_TAKE_IF_MISSING(QoSes);
    mergeType(source, target);
    mergeOS(source, target);
    mergeVeid(source, target);
    KQS_TAKE_IF_MISSING(OsTemplate);
    KQS_TAKE_IF_MISSING(Templates);
    mergeDisabled(source, target);
    KQS_TAKE_IF_MISSING(OfflineManagement);
    KQS_TAKE_IF_MISSING(OnBoot);
    KQS_TAKE_IF_MISSING(VERootVar);
    KQS_TAKE_IF_MISSING(VEPrivateVar);
    KQS_TAKE_IF_MISSING(Distribution);
    KQS_TAKE_IF_MISSING(OfflineServices);
    KQS_TAKE_IF_MISSING(ServerRoles);
    KQS_TAKE_IF_MISSING(Capabilities);
    KQS_TAKE_IF_MISSING(SLMMode);
    KQS_TAKE_IF_MISSING(IPTables);
    KQS_TAKE_IF_MISSING(WinsServers);
    KQS_TAKE_IF_MISSING(TSLicenseServers);
    KQS_TAKE_IF_MISSING(TSMode);
    KQS_TAKE_IF_MISSING(RatesList);
    KQS_TAKE_IF_MISSING(RateBound);
    KQS_TAKE_IF_MISSING(AllowReboot);
}

void KQSEnvMLocal::mergeConfigsKQDefaultToVE(const KQSEnvConfig& source, KQSEnvConfig& target)
{
    // Only what a host may set as a default for its containers.
    KQS_TAKE_IF_MISSING(Nameservers);
    KQS_TAKE_IF_MISSING(SearchDomains);
    KQS_TAKE_IF_MISSING(QoSes);
    mergeDisabled(source, target);
    KQS_TAKE_IF_MISSING(OfflineManagement);
    KQS_TAKE_IF_MISSING(OnBoot);
    KQS_TAKE_IF_MISSING(VERootVar);
    KQS_TAKE_IF_MISSING(VEPrivateVar);
    KQS_TAKE_IF_MISSING(Capabilities);
    KQS_TAKE_IF_MISSING(SLMMode);
}

void KQSEnvMLocal::fillSystemInfo(KQSEnvConfig& config)
{
    const KQC::KQCSystemInfo host = hostSystemInfo();
    // A container runs the host's kernel; its distribution is its OS
    // template's.
    KQC::KQCOS os = host.os;
    KQC::KQCOptionalProperty<KQSTemplate> osTemplate;
    config.getOsTemplate(osTemplate);
    if (osTemplate.isSpecified()) {
        os.distribution.set(osTemplate.get().name);
        os.version.set(osTemplate.get().version);
    }
    config.setOS(os);
    KQC::KQCOptionalProperty<std::string> architecture;
    config.getArchitecture(architecture);
    if (!architecture.isSpecified())
        config.setArchitecture(host.architecture);
}

} // namespace KQS
