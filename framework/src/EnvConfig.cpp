#include "KQC/EnvConfig.h"

#include "KQC/Message.h"
#include "RecordMessageIO.h"

#include <cerrno>
#include <cstdlib>
#include <tuple>
#include <typeinfo>

namespace KQC {

using namespace RecordMessageIO;

namespace {

const int kOSFieldTags[4] = {TAG_OS_PLATFORM, TAG_OS_DISTRIBUTION, TAG_OS_VERSION, TAG_OS_KERNEL};

// Limits are 64-bit unsigned and travel as decimal text.
int readUnsigned(KQCMessageIterator& it, int tag, uint64_t& value)
{
    std::string text;
    if (it.getString(tag, text) != 0 || text.empty())
        return -1;
    errno = 0;
    char* end = nullptr;
    unsigned long long number = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || text[0] == '-')
        return -1;
    value = number;
    return 0;
}

} // namespace

// ---- KQCOS ----

KQCOptionalProperty<std::string>& KQCOS::field(int index)
{
    switch (index) {
    case 0:
        return platform;
    case 1:
        return distribution;
    case 2:
        return version;
    default:
        return kernel;
    }
}

const KQCOptionalProperty<std::string>& KQCOS::field(int index) const
{
    return const_cast<KQCOS*>(this)->field(index);
}

bool KQCOS::operator==(const KQCOS& other) const
{
    return platform == other.platform && distribution == other.distribution && version == other.version &&
           kernel == other.kernel;
}

int KQCOS::readFrom(KQCMessageIterator& it)
{
    for (int i = 0; i < 4; ++i)
        if (readString(it, kOSFieldTags[i], field(i)) != 0)
            return -1;
    return 0;
}

int KQCOS::writeTo(KQCMessageIterator& it) const
{
    for (int i = 0; i < 4; ++i)
        writeString(it, kOSFieldTags[i], field(i));
    return 0;
}

// ---- KQCQoS ----

int KQCQoS::readFrom(KQCMessageIterator& it)
{
    if (it.getString(TAG_ID, id) != 0 || readUnsigned(it, TAG_BARRIER, barrier) != 0 ||
        readUnsigned(it, TAG_LIMIT, limit) != 0)
        return -1;
    return 0;
}

int KQCQoS::writeTo(KQCMessageIterator& it) const
{
    it.putString(TAG_ID, id);
    it.putString(TAG_BARRIER, std::to_string(barrier));
    it.putString(TAG_LIMIT, std::to_string(limit));
    return 0;
}

// ---- KQCInterfaceRate ----

bool KQCInterfaceRate::operator<(const KQCInterfaceRate& other) const
{
    return std::tie(interfaceName, trafficClass, rate) <
           std::tie(other.interfaceName, other.trafficClass, other.rate);
}

int KQCInterfaceRate::readFrom(KQCMessageIterator& it)
{
    if (it.getString(TAG_INTERFACE, interfaceName) != 0 || it.getInt(TAG_RATE_CLASS, trafficClass) != 0 ||
        it.getInt(TAG_RATE_VALUE, rate) != 0)
        return -1;
    return 0;
}

int KQCInterfaceRate::writeTo(KQCMessageIterator& it) const
{
    it.putString(TAG_INTERFACE, interfaceName);
    it.putInt(TAG_RATE_CLASS, trafficClass);
    it.putInt(TAG_RATE_VALUE, rate);
    return 0;
}

// ---- KQCEnvConfig ----

boost::shared_ptr<KQCEnvConfig> KQCEnvConfig::clone() const
{
    return boost::shared_ptr<KQCEnvConfig>(new KQCEnvConfig(*this));
}

bool KQCEnvConfig::sameBaseProperties(const KQCEnvConfig& other) const
{
    return m_name == other.m_name && m_hostname == other.m_hostname && m_domain == other.m_domain &&
           m_description == other.m_description && m_addresses == other.m_addresses &&
           m_nameservers == other.m_nameservers && m_searchDomains == other.m_searchDomains &&
           m_architecture == other.m_architecture && m_baseSampleId == other.m_baseSampleId &&
           m_os == other.m_os && m_type == other.m_type;
}

bool KQCEnvConfig::equals(const KQCEnvConfig& other) const
{
    return typeid(*this) == typeid(other) && sameBaseProperties(other);
}

int KQCEnvConfig::readFrom(KQCMessageIterator& it)
{
    KQCOptionalProperty<std::string> type;
    if (readString(it, TAG_NAME, m_name) != 0 || readString(it, TAG_HOSTNAME, m_hostname) != 0 ||
        readSparse(m_domain, readString, it, TAG_DOMAIN) != 0 ||
        readSparse(m_description, readString, it, TAG_DESCRIPTION) != 0 ||
        readAddresses(it, TAG_ADDRESSES, m_addresses) != 0 ||
        readStrings(it, TAG_NAMESERVERS, m_nameservers) != 0 ||
        readSparse(m_searchDomains, readStringSet, it, TAG_SEARCH_DOMAINS) != 0 ||
        readString(it, TAG_ARCHITECTURE, m_architecture) != 0 ||
        readSparse(m_baseSampleId, readString, it, TAG_BASE_SAMPLE_ID) != 0 || readObject(it, TAG_OS, m_os) != 0 ||
        readString(it, TAG_TYPE, type) != 0)
        return -1;
    if (type.isSpecified())
        m_type.set(KQCEnvType(type.get()));
    return 0;
}

int KQCEnvConfig::writeTo(KQCMessageIterator& it) const
{
    writeString(it, TAG_NAME, m_name);
    writeString(it, TAG_HOSTNAME, m_hostname);
    writeString(it, TAG_DOMAIN, m_domain);
    writeString(it, TAG_DESCRIPTION, m_description);
    writeAddresses(it, TAG_ADDRESSES, m_addresses);
    writeStrings(it, TAG_NAMESERVERS, m_nameservers);
    writeStringSet(it, TAG_SEARCH_DOMAINS, m_searchDomains);
    writeString(it, TAG_ARCHITECTURE, m_architecture);
    writeString(it, TAG_BASE_SAMPLE_ID, m_baseSampleId);
    writeObject(it, TAG_OS, m_os);
    if (m_type.isSpecified())
        it.addString(TAG_TYPE, m_type.get().str());
    return 0;
}

// ---- KQCVEnvConfig ----

boost::shared_ptr<KQCEnvConfig> KQCVEnvConfig::clone() const
{
    return boost::shared_ptr<KQCEnvConfig>(new KQCVEnvConfig(*this));
}

bool KQCVEnvConfig::sameVirtualProperties(const KQCVEnvConfig& other) const
{
    return sameBaseProperties(other) && m_qoses == other.m_qoses && m_disabled == other.m_disabled;
}

bool KQCVEnvConfig::equals(const KQCEnvConfig& other) const
{
    return typeid(*this) == typeid(other) && sameVirtualProperties(static_cast<const KQCVEnvConfig&>(other));
}

void KQCVEnvConfig::assignFrom(const KQCEnvConfig& other)
{
    assignBase(other);
    if (const KQCVEnvConfig* virtualConfig = dynamic_cast<const KQCVEnvConfig*>(&other)) {
        m_qoses = virtualConfig->m_qoses;
        m_disabled = virtualConfig->m_disabled;
    }
}

int KQCVEnvConfig::readFrom(KQCMessageIterator& it)
{
    if (KQCEnvConfig::readFrom(it) != 0 || readObjects(it, TAG_QOSES, TAG_QOS, m_qoses) != 0 ||
        readBool(it, TAG_DISABLED, m_disabled) != 0)
        return -1;
    return 0;
}

int KQCVEnvConfig::writeTo(KQCMessageIterator& it) const
{
    KQCEnvConfig::writeTo(it);
    writeObjects(it, TAG_QOSES, TAG_QOS, m_qoses);
    writeBool(it, TAG_DISABLED, m_disabled);
    return 0;
}

} // namespace KQC
