#pragma once
// The container configuration of the management library.
//
// KQSEnvConfig holds the framework properties (KQC/EnvConfig.h) and the
// container's own: its VEID, OS template and templates, boot and offline
// management flags, root and private path templates, adapters and the rest.
// Property accessors follow KQC/EnvConfig.h: `int getX(KQCOptionalProperty<T>&)
// const` returns 0, `setX` takes a value or an optional property.
//
// Paths: VE_ROOT and VE_PRIVATE are kept as templates that may hold the VEID
// variable ("$VEID" or "${VEID}"); getVERoot/getVEPrivate give them with the
// VEID put in.
//
// Message form: readFrom/writeTo a node (the object under TAG_ENV_CONFIG in
// the agent's environment files, under TAG_SAMPLE_CONFIG in samples).
// Value type with deep copies; thread safety as for any value.
#include "KQC/EnvConfig.h"
#include "KQS/NetVEth.h"
#include "KQS/Template.h"

#include <boost/shared_ptr.hpp>

#include <set>
#include <string>

namespace KQS {

// The distribution a container runs, by name and version.
struct KQSDistribution {
    std::string name;
    std::string version;

    bool operator==(const KQSDistribution& other) const { return name == other.name && version == other.version; }
    bool operator!=(const KQSDistribution& other) const { return !(*this == other); }
    int readFrom(KQC::KQCMessageIterator& it);
    int writeTo(KQC::KQCMessageIterator& it) const;
};

// One capability of a container, switched on or off. Ordered by identifier.
struct KQSEnvCapability {
    std::string id;
    bool enabled = true;

    KQSEnvCapability() = default;
    KQSEnvCapability(const std::string& id_, bool enabled_) : id(id_), enabled(enabled_) {}
    bool operator<(const KQSEnvCapability& other) const { return id < other.id; }
    bool operator==(const KQSEnvCapability& other) const { return id == other.id && enabled == other.enabled; }
    int readFrom(KQC::KQCMessageIterator& it);
    int writeTo(KQC::KQCMessageIterator& it) const;
};

typedef std::set<KQSEnvCapability> KQSEnvCapabilitySet;

class KQSEnvConfig : public KQC::KQCVEnvConfig {
    KQC_CONFIG_PROPERTY(KQSTemplate, OsTemplate, m_osTemplate)
    KQC_SPARSE_CONFIG_PROPERTY(KQSTemplateList, Templates, m_templates)
    KQC_CONFIG_PROPERTY(bool, OfflineManagement, m_offlineManagement)
    KQC_CONFIG_PROPERTY(bool, OnBoot, m_onBoot)
    KQC_CONFIG_PROPERTY(std::string, VERootVar, m_veRootVar)
    KQC_CONFIG_PROPERTY(std::string, VEPrivateVar, m_vePrivateVar)
    KQC_SPARSE_CONFIG_PROPERTY(KQSDistribution, Distribution, m_distribution)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCStringSet, OfflineServices, m_offlineServices)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCStringSet, ServerRoles, m_serverRoles)
    KQC_SPARSE_CONFIG_PROPERTY(KQSEnvCapabilitySet, Capabilities, m_capabilities)
    KQC_SPARSE_CONFIG_PROPERTY(std::string, SLMMode, m_slmMode)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCStringSet, IPTables, m_iptables)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCIPAddressList, WinsServers, m_winsServers)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCStringSet, TSLicenseServers, m_tsLicenseServers)
    KQC_SPARSE_CONFIG_PROPERTY(int, TSMode, m_tsMode)
    KQC_SPARSE_CONFIG_PROPERTY(KQC::KQCInterfaceRateList, RatesList, m_ratesList)
    KQC_SPARSE_CONFIG_PROPERTY(bool, RateBound, m_rateBound)
    KQC_SPARSE_CONFIG_PROPERTY(bool, AllowReboot, m_allowReboot)
    KQC_CONFIG_PROPERTY(KQSNetVEthList, NetVEths, m_netVEths)
    // The sample's or container's UUID text.
    KQC_SPARSE_CONFIG_PROPERTY(std::string, UUID, m_uuid)
    // The name of the sample the container was made from.
    KQC_SPARSE_CONFIG_PROPERTY(std::string, OriginSample, m_originSample)
    // The container's kind: 4 made for a repair, 5 under repair, 6 made for a
    // temporary operation; unspecified or 0 for an ordinary container.
    KQC_CONFIG_PROPERTY(int, VEType, m_veType)

public:
    KQSEnvConfig() = default;
    // Takes every property `other` has: all of them when it is a
    // KQSEnvConfig, the framework ones otherwise.
    explicit KQSEnvConfig(const KQC::KQCEnvConfig& other);
    KQSEnvConfig(const KQSEnvConfig& other) = default;
    KQSEnvConfig& operator=(const KQSEnvConfig& other) = default;
    KQSEnvConfig(KQSEnvConfig&& other) = default;
    KQSEnvConfig& operator=(KQSEnvConfig&& other) = default;

    // 0 with the VEID when the configuration holds one, -1 otherwise.
    int getVeid(int& veid) const;
    int getVeid(KQC::KQCOptionalProperty<int>& veid) const
    {
        veid = m_veid;
        return 0;
    }
    void setVeid(int veid) { m_veid.set(veid); }
    void setVeid(const KQC::KQCOptionalProperty<int>& veid) { m_veid = veid; }
    void unsetVeid() { m_veid.unset(); }

    // The root and private paths with the VEID put in. -1 when the template
    // is not specified, or holds the VEID variable and there is no VEID.
    int getVERoot(std::string& path) const;
    int getVEPrivate(std::string& path) const;

    // Puts `veid` in place of every "$VEID" and "${VEID}" of `path`.
    static void veidSubstitute(int veid, std::string& path);

    boost::shared_ptr<KQC::KQCEnvConfig> clone() const override;
    bool equals(const KQC::KQCEnvConfig& other) const override;
    bool operator==(const KQSEnvConfig& other) const { return equals(other); }
    bool operator!=(const KQSEnvConfig& other) const { return !equals(other); }
    int readFrom(KQC::KQCMessageIterator& it) override;
    int writeTo(KQC::KQCMessageIterator& it) const override;

private:
    int substitutedPath(const KQC::KQCOptionalProperty<std::string>& pathVar, std::string& path) const;
    bool sameContainerProperties(const KQSEnvConfig& other) const;
    int readContainerProperties(KQC::KQCMessageIterator& it);

    KQC::KQCOptionalProperty<int> m_veid;
};

// The same as KQSEnvConfig::veidSubstitute.
void veidSubstitute(int veid, std::string& path);

// A configuration in the control tool's own text form.
class KQSNativeConfig : public KQC::KQCNativeConfig {
public:
    KQSNativeConfig() = default;
    explicit KQSNativeConfig(const std::string& text) : m_text(text) {}
    const std::string& getText() const { return m_text; }
    void setText(const std::string& text) { m_text = text; }

private:
    std::string m_text;
};

} // namespace KQS
