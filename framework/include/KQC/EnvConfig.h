#pragma once
// The framework's environment configuration records.
//
// A configuration is a set of optional properties (OptionalProperty.h). Each
// property X has `int getX(KQCOptionalProperty<T>&) const`, which returns 0
// and copies the property (specified or not), and `setX`, which takes either
// a value (the property becomes specified) or an optional property (to unset
// it). Exception: getDisabled returns -1 when the flag is not specified.
//
// KQCEnvConfig is the polymorphic base of every configuration; KQCVEnvConfig
// adds what virtual environments have (disabled flag, QoS limits); the
// container configuration KQS::KQSEnvConfig derives from it. Records copy
// deeply (they hold values only); clone() copies the dynamic type.
// Message form: readFrom/writeTo a KQCMessageIterator positioned at the
// record's own node (see Tags.h for the keys); only specified properties are
// written, and reading leaves properties that the node lacks unspecified.
// Thread safety: none of their own.
#include "KQC/IPAddress.h"
#include "KQC/OptionalProperty.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

// Declares the getter, the two setters and the member of one property,
// held in a Holder<Type>: KQCOptionalProperty, or KQCSparseProperty for one
// that most configurations leave unspecified.
#define KQC_CONFIG_PROPERTY_IN(Holder, Type, Stem, member)                        \
public:                                                                           \
    int get##Stem(KQC::KQCOptionalProperty<Type>& value) const                    \
    {                                                                             \
        value = member;                                                           \
        return 0;                                                                 \
    }                                                                             \
    void set##Stem(const KQC::KQCOptionalProperty<Type>& value) { member = value; } \
    void set##Stem(const Type& value) { member.set(value); }                      \
                                                                                  \
protected:                                                                        \
    Holder<Type> member;

#define KQC_CONFIG_PROPERTY(Type, Stem, member) KQC_CONFIG_PROPERTY_IN(KQC::KQCOptionalProperty, Type, Stem, member)
#define KQC_SPARSE_CONFIG_PROPERTY(Type, Stem, member) \
    KQC_CONFIG_PROPERTY_IN(KQC::KQCSparseProperty, Type, Stem, member)

namespace KQC {

class KQCMessageIterator;

typedef std::vector<std::string> KQCStringList;
typedef std::set<std::string> KQCStringSet;
typedef std::vector<KQCIPAddress> KQCIPAddressList;
typedef limited_length_string<16> KQCEnvType;

// The operating system of an environment: four text fields, each optional.
// Field 1 is the platform ("Linux"), 2 the distribution (for containers the
// OS template's name), 3 its version, 4 the kernel.
struct KQCOS {
    KQCOptionalProperty<std::string> platform;
    KQCOptionalProperty<std::string> distribution;
    KQCOptionalProperty<std::string> version;
    KQCOptionalProperty<std::string> kernel;

    // Field by number 0..3 in the order above (any other number: field 3).
    KQCOptionalProperty<std::string>& field(int index);
    const KQCOptionalProperty<std::string>& field(int index) const;

    bool operator==(const KQCOS& other) const;
    bool operator!=(const KQCOS& other) const { return !(*this == other); }
    int readFrom(KQCMessageIterator& it);
    int writeTo(KQCMessageIterator& it) const;
};

// One resource limit: an identifier from the vocabulary's "qos" and "ubc"
// categories ("diskspace", ...) with its barrier and limit. Ordered and
// compared by identifier only, so a set holds one entry per resource.
struct KQCQoS {
    std::string id;
    uint64_t barrier = 0;
    uint64_t limit = 0;

    KQCQoS() = default;
    KQCQoS(const std::string& id_, uint64_t barrier_, uint64_t limit_) : id(id_), barrier(barrier_), limit(limit_) {}
    // One value for both: "the entry is given the one value".
    KQCQoS(const std::string& id_, uint64_t value) : id(id_), barrier(value), limit(value) {}

    bool operator<(const KQCQoS& other) const { return id < other.id; }
    bool operator==(const KQCQoS& other) const
    {
        return id == other.id && barrier == other.barrier && limit == other.limit;
    }
    int readFrom(KQCMessageIterator& it);
    int writeTo(KQCMessageIterator& it) const;
};
typedef std::set<KQCQoS> KQCQoSSet;

// A traffic-shaping rate: interface, traffic class, rate in Kbit/s.
struct KQCInterfaceRate {
    std::string interfaceName;
    int trafficClass = 0;
    int rate = 0;

    bool operator<(const KQCInterfaceRate& other) const;
    bool operator==(const KQCInterfaceRate& other) const
    {
        return interfaceName == other.interfaceName && trafficClass == other.trafficClass && rate == other.rate;
    }
    int readFrom(KQCMessageIterator& it);
    int writeTo(KQCMessageIterator& it) const;
};
typedef std::vector<KQCInterfaceRate> KQCInterfaceRateList;

class KQCEnvConfig {
    KQC_CONFIG_PROPERTY(std::string, Name, m_name)
    KQC_CONFIG_PROPERTY(std::string, Hostname, m_hostname)
    KQC_SPARSE_CONFIG_PROPERTY(std::string, Domain, m_domain)
    KQC_SPARSE_CONFIG_PROPERTY(std::string, Description, m_description)
    KQC_CONFIG_PROPERTY(KQCIPAddressList, Addresses, m_addresses)
    KQC_CONFIG_PROPERTY(KQCStringList, Nameservers, m_nameservers)
    KQC_SPARSE_CONFIG_PROPERTY(KQCStringSet, SearchDomains, m_searchDomains)
    KQC_CONFIG_PROPERTY(std::string, Architecture, m_architecture)
    // The GUID text of the sample the environment is to be made from.
    KQC_SPARSE_CONFIG_PROPERTY(std::string, BaseSampleId, m_baseSampleId)
    KQC_CONFIG_PROPERTY(KQCOS, OS, m_os)
    KQC_CONFIG_PROPERTY(KQCEnvType, Type, m_type)

public:
    KQCEnvConfig() = default;
    virtual ~KQCEnvConfig() = default;
    KQCEnvConfig(const KQCEnvConfig&) = default;
    KQCEnvConfig& operator=(const KQCEnvConfig&) = default;
    // A record just parsed is handed over without copying its texts.
    KQCEnvConfig(KQCEnvConfig&&) = default;
    KQCEnvConfig& operator=(KQCEnvConfig&&) = default;

    // A copy of the same dynamic type.
    virtual boost::shared_ptr<KQCEnvConfig> clone() const;
    // Equal when of the same dynamic type with equal properties.
    virtual bool equals(const KQCEnvConfig& other) const;
    virtual int readFrom(KQCMessageIterator& it);
    virtual int writeTo(KQCMessageIterator& it) const;

protected:
    // This level's properties only; derived records chain them.
    bool sameBaseProperties(const KQCEnvConfig& other) const;
    // Copies this level's properties from any configuration.
    void assignBase(const KQCEnvConfig& other) { *this = other; }
};

class KQCVEnvConfig : public KQCEnvConfig {
    KQC_CONFIG_PROPERTY(KQCQoSSet, QoSes, m_qoses)

public:
    KQCVEnvConfig() = default;

    // -1 when the flag is not specified, else 0 with it.
    int getDisabled(KQCOptionalProperty<bool>& value) const
    {
        value = m_disabled;
        return m_disabled.isSpecified() ? 0 : -1;
    }
    void setDisabled(const KQCOptionalProperty<bool>& value) { m_disabled = value; }
    void setDisabled(bool value) { m_disabled.set(value); }

    boost::shared_ptr<KQCEnvConfig> clone() const override;
    bool equals(const KQCEnvConfig& other) const override;
    int readFrom(KQCMessageIterator& it) override;
    int writeTo(KQCMessageIterator& it) const override;

protected:
    bool sameVirtualProperties(const KQCVEnvConfig& other) const;
    // Copies the framework levels of any configuration into this one.
    void assignFrom(const KQCEnvConfig& other);

    KQCOptionalProperty<bool> m_disabled;
};

// A configuration in the control tool's own form; see KQS::KQSNativeConfig.
class KQCNativeConfig {
public:
    virtual ~KQCNativeConfig() = default;
};

} // namespace KQC
