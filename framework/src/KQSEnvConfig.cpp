#include "KQS/EnvConfig.h"

#include "KQC/Message.h"
#include "RecordMessageIO.h"

#include <typeinfo>

namespace KQS {

using namespace KQC::RecordMessageIO;
using KQC::KQCMessageIterator;

// ---- KQSDistribution, KQSEnvCapability ----

int KQSDistribution::readFrom(KQCMessageIterator& it)
{
    if (it.getString(KQC::TAG_NAME, name) != 0)
        return -1;
    version.clear();
    it.getString(KQC::TAG_VERSION, version);
    return 0;
}

int KQSDistribution::writeTo(KQCMessageIterator& it) const
{
    it.putString(KQC::TAG_NAME, name);
    it.putString(KQC::TAG_VERSION, version);
    return 0;
}

int KQSEnvCapability::readFrom(KQCMessageIterator& it)
{
    int on = 1;
    if (it.getString(KQC::TAG_ID, id) != 0)
        return -1;
    it.getInt(KQC::TAG_ENABLED, on);
    enabled = on != 0;
    return 0;
}

int KQSEnvCapability::writeTo(KQCMessageIterator& it) const
{
    it.putString(KQC::TAG_ID, id);
    it.putInt(KQC::TAG_ENABLED, enabled ? 1 : 0);
    return 0;
}

// ---- KQSEnvConfig ----

KQSEnvConfig::KQSEnvConfig(const KQC::KQCEnvConfig& other)
{
    if (const KQSEnvConfig* full = dynamic_cast<const KQSEnvConfig*>(&other))
        *this = *full;
    else
        assignFrom(other);
}

int KQSEnvConfig::getVeid(int& veid) const
{
    if (!m_veid.isSpecified())
        return -1;
    veid = m_veid.get();
    return 0;
}

void KQSEnvConfig::veidSubstitute(int veid, std::string& path)
{
    static const char* const kVariables[] = {"${VEID}", "$VEID"};
    const std::string number = std::to_string(veid);
    for (const char* variable : kVariables) {
        const std::string name(variable);
        for (std::string::size_type at = path.find(name); at != std::string::npos;
             at = path.find(name, at + number.size()))
            path.replace(at, name.size(), number);
    }
}

void veidSubstitute(int veid, std::string& path) { KQSEnvConfig::veidSubstitute(veid, path); }

int KQSEnvConfig::substitutedPath(const KQC::KQCOptionalProperty<std::string>& pathVar, std::string& path) const
{
    if (!pathVar.isSpecified())
        return -1;
    std::string result = pathVar.get();
    if (result.find("$VEID") != std::string::npos || result.find("${VEID}") != std::string::npos) {
        if (!m_veid.isSpecified())
            return -1;
        veidSubstitute(m_veid.get(), result);
    }
    path = result;
    return 0;
}

int KQSEnvConfig::getVERoot(std::string& path) const { return substitutedPath(m_veRootVar, path); }

int KQSEnvConfig::getVEPrivate(std::string& path) const { return substitutedPath(m_vePrivateVar, path); }

boost::shared_ptr<KQC::KQCEnvConfig> KQSEnvConfig::clone() const
{
    return boost::shared_ptr<KQC::KQCEnvConfig>(new KQSEnvConfig(*this));
}

bool KQSEnvConfig::sameContainerProperties(const KQSEnvConfig& other) const
{
    return m_osTemplate == other.m_osTemplate && m_templates == other.m_templates &&
           m_offlineManagement == other.m_offlineManagement && m_onBoot == other.m_onBoot &&
           m_veRootVar == other.m_veRootVar && m_vePrivateVar == other.m_vePrivateVar &&
           m_distribution == other.m_distribution && m_offlineServices == other.m_offlineServices &&
           m_serverRoles == other.m_serverRoles && m_capabilities == other.m_capabilities &&
           m_slmMode == other.m_slmMode && m_iptables == other.m_iptables &&
           m_winsServers == other.m_winsServers && m_tsLicenseServers == other.m_tsLicenseServers &&
           m_tsMode == other.m_tsMode && m_ratesList == other.m_ratesList && m_rateBound == other.m_rateBound &&
           m_allowReboot == other.m_allowReboot && m_netVEths == other.m_netVEths && m_uuid == other.m_uuid &&
           m_originSample == other.m_originSample && m_veType == other.m_veType && m_veid == other.m_veid;
}

bool KQSEnvConfig::equals(const KQC::KQCEnvConfig& other) const
{
    if (typeid(*this) != typeid(other))
        return false;
    const KQSEnvConfig& container = static_cast<const KQSEnvConfig&>(other);
    return sameVirtualProperties(container) && sameContainerProperties(container);
}

int KQSEnvConfig::readContainerProperties(KQCMessageIterator& it)
{
    if (readInt(it, KQC::TAG_VEID, m_veid) != 0 || readObject(it, KQC::TAG_OS_TEMPLATE, m_osTemplate) != 0 ||
        readSparse(m_templates, readObjects<KQSTemplateList>, it, KQC::TAG_TEMPLATES, KQC::TAG_TEMPLATE) != 0 ||
        readBool(it, KQC::TAG_OFFLINE_MANAGEMENT, m_offlineManagement) != 0 ||
        readBool(it, KQC::TAG_ON_BOOT, m_onBoot) != 0 || readString(it, KQC::TAG_VE_ROOT, m_veRootVar) != 0 ||
        readString(it, KQC::TAG_VE_PRIVATE, m_vePrivateVar) != 0 ||
        readSparse(m_distribution, readObject<KQSDistribution>, it, KQC::TAG_DISTRIBUTION) != 0 ||
        readSparse(m_offlineServices, readStringSet, it, KQC::TAG_OFFLINE_SERVICES) != 0 ||
        readSparse(m_serverRoles, readStringSet, it, KQC::TAG_SERVER_ROLES) != 0 ||
        readSparse(m_capabilities, readObjects<KQSEnvCapabilitySet>, it, KQC::TAG_CAPABILITIES, KQC::TAG_CAPABILITY) != 0 ||
        readSparse(m_slmMode, readString, it, KQC::TAG_SLM_MODE) != 0 ||
        readSparse(m_iptables, readStringSet, it, KQC::TAG_IPTABLES) != 0 ||
        readSparse(m_winsServers, readAddresses, it, KQC::TAG_WINS_SERVERS) != 0 ||
        readSparse(m_tsLicenseServers, readStringSet, it, KQC::TAG_TS_LICENSE_SERVERS) != 0 ||
        readSparse(m_tsMode, readInt, it, KQC::TAG_TS_MODE) != 0 ||
        readSparse(m_ratesList, readObjects<KQC::KQCInterfaceRateList>, it, KQC::TAG_RATES, KQC::TAG_RATE) != 0 ||
        readSparse(m_rateBound, readBool, it, KQC::TAG_RATE_BOUND) != 0 ||
        readSparse(m_allowReboot, readBool, it, KQC::TAG_ALLOW_REBOOT) != 0 ||
        readObjects(it, KQC::TAG_NET_VETHS, KQC::TAG_NET_VETH, m_netVEths) != 0 ||
        readSparse(m_uuid, readString, it, KQC::TAG_UUID) != 0 || readSparse(m_originSample, readString, it, KQC::TAG_ORIGIN_SAMPLE) != 0 ||
        readInt(it, KQC::TAG_VE_TYPE, m_veType) != 0)
        return -1;
    return 0;
}

int KQSEnvConfig::readFrom(KQCMessageIterator& it)
{
    // Read into a fresh record so that a failure leaves no half-read mix.
    KQSEnvConfig fresh;
    if (fresh.KQCVEnvConfig::readFrom(it) != 0 || fresh.readContainerProperties(it) != 0)
        return -1;
    *this = std::move(fresh);
    return 0;
}

int KQSEnvConfig::writeTo(KQCMessageIterator& it) const
{
    KQCVEnvConfig::writeTo(it);
    writeInt(it, KQC::TAG_VEID, m_veid);
    writeObject(it, KQC::TAG_OS_TEMPLATE, m_osTemplate);
    writeObjects(it, KQC::TAG_TEMPLATES, KQC::TAG_TEMPLATE, m_templates.optional());
    writeBool(it, KQC::TAG_OFFLINE_MANAGEMENT, m_offlineManagement);
    writeBool(it, KQC::TAG_ON_BOOT, m_onBoot);
    writeString(it, KQC::TAG_VE_ROOT, m_veRootVar);
    writeString(it, KQC::TAG_VE_PRIVATE, m_vePrivateVar);
    writeObject(it, KQC::TAG_DISTRIBUTION, m_distribution.optional());
    writeStringSet(it, KQC::TAG_OFFLINE_SERVICES, m_offlineServices);
    writeStringSet(it, KQC::TAG_SERVER_ROLES, m_serverRoles);
    writeObjects(it, KQC::TAG_CAPABILITIES, KQC::TAG_CAPABILITY, m_capabilities.optional());
    writeString(it, KQC::TAG_SLM_MODE, m_slmMode);
    writeStringSet(it, KQC::TAG_IPTABLES, m_iptables);
    writeAddresses(it, KQC::TAG_WINS_SERVERS, m_winsServers);
    writeStringSet(it, KQC::TAG_TS_LICENSE_SERVERS, m_tsLicenseServers);
    writeInt(it, KQC::TAG_TS_MODE, m_tsMode);
    writeObjects(it, KQC::TAG_RATES, KQC::TAG_RATE, m_ratesList.optional());
    writeBool(it, KQC::TAG_RATE_BOUND, m_rateBound);
    writeBool(it, KQC::TAG_ALLOW_REBOOT, m_allowReboot);
    writeObjects(it, KQC::TAG_NET_VETHS, KQC::TAG_NET_VETH, m_netVEths);
    writeString(it, KQC::TAG_UUID, m_uuid);
    writeString(it, KQC::TAG_ORIGIN_SAMPLE, m_originSample);
    writeInt(it, KQC::TAG_VE_TYPE, m_veType);
    return 0;
}

} // namespace KQS
