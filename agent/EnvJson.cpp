#include "EnvJson.h"

#include "JsonWriter.h"

#include <string>
#include <vector>

namespace kqagent {
namespace {

// Builds a boost::json value through the same calls JsonWriter takes, so
// that one description of each object serves both the payloads the console
// keeps and the listings it writes as they are made.
class TreeBuilder {
public:
    void beginObject() { open(boost::json::object()); }
    void beginArray() { open(boost::json::array()); }
    void endObject() { m_open.pop_back(); }
    void endArray() { m_open.pop_back(); }
    void key(std::string_view name) { m_key.assign(name.data(), name.size()); }
    void string(std::string_view text) { put(boost::json::string(text)); }
    void number(long long value) { put(value); }
    void unsignedNumber(unsigned long long value) { put(value); }
    void boolean(bool value) { put(value); }

    boost::json::object takeObject() { return std::move(m_top.as_object()); }

private:
    // Where the next value goes: the top, the member named by the last key
    // of the open object, or the end of the open array.
    boost::json::value& slot()
    {
        if (m_open.empty())
            return m_top;
        boost::json::value& container = *m_open.back();
        if (container.is_array()) {
            container.as_array().emplace_back(nullptr);
            return container.as_array().back();
        }
        return container.as_object()[m_key];
    }
    void put(boost::json::value value) { slot() = std::move(value); }
    void open(boost::json::value value)
    {
        boost::json::value& at = slot();
        at = std::move(value);
        m_open.push_back(&at);
    }

    boost::json::value m_top;
    // Values inside containers do not move while they are the last member
    // or element being filled.
    std::vector<boost::json::value*> m_open;
    std::string m_key;
};

// Contract form of an address: always with its prefix length.
std::string addressText(const KQC::KQCIPAddress& address)
{
    return address.address() + "/" + std::to_string(address.prefixLength());
}

template <class Out>
void putAddresses(Out& out, const char* key, const std::vector<KQC::KQCIPAddress>& addresses)
{
    out.key(key);
    out.beginArray();
    for (const auto& address : addresses)
        out.string(addressText(address));
    out.endArray();
}

template <class Out, class Strings>
void putStrings(Out& out, const char* key, const Strings& strings)
{
    out.key(key);
    out.beginArray();
    for (const auto& text : strings)
        out.string(text);
    out.endArray();
}

template <class Out>
void put(Out& out, const char* key, const std::string& text)
{
    out.key(key);
    out.string(text);
}

template <class Out>
void put(Out& out, const char* key, bool flag)
{
    out.key(key);
    out.boolean(flag);
}

template <class Out>
void put(Out& out, const char* key, int number)
{
    out.key(key);
    out.number(number);
}

// The member `key` with the property's value, when it is specified.
template <class Out, class T>
void putIfSpecified(Out& out, const char* key, const KQC::KQCOptionalProperty<T>& property)
{
    if (property.isSpecified())
        put(out, key, property.get());
}

template <class Out>
void putNonEmpty(Out& out, const char* key, const std::string& text)
{
    if (!text.empty())
        put(out, key, text);
}

template <class Out>
void putVeth(Out& out, const KQS::KQSNetVEth& veth)
{
    out.beginObject();
    put(out, "name", veth.getName());
    putNonEmpty(out, "mac", veth.getMac());
    putAddresses(out, "addresses", veth.getAddresses());
    put(out, "dhcp", veth.isDhcp());
    put(out, "dhcp6", veth.isDhcp6());
    putNonEmpty(out, "network", veth.getNetworkId());
    putNonEmpty(out, "gateway", veth.getGateway());
    putNonEmpty(out, "gateway6", veth.getGateway6());
    putStrings(out, "nameservers", veth.getNameservers());
    put(out, "host_routed", veth.isHostRouted());
    put(out, "status", veth.getStatus());
    out.endObject();
}

template <class Out>
void putOS(Out& out, const KQC::KQCOS& os)
{
    out.key("os");
    out.beginObject();
    putIfSpecified(out, "f1", os.platform);
    putIfSpecified(out, "f2", os.distribution);
    putIfSpecified(out, "f3", os.version);
    putIfSpecified(out, "f4", os.kernel);
    out.endObject();
}

template <class Out>
void putTexts(Out& out, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<std::string> text;
    config.getName(text);
    putIfSpecified(out, "name", text);
    config.getDescription(text);
    putIfSpecified(out, "description", text);
    config.getHostname(text);
    putIfSpecified(out, "hostname", text);
    config.getDomain(text);
    putIfSpecified(out, "domain", text);
    config.getArchitecture(text);
    putIfSpecified(out, "architecture", text);
    config.getOriginSample(text);
    putIfSpecified(out, "origin_sample", text);
}

template <class Out>
void putTemplates(Out& out, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQS::KQSTemplate> osTemplate;
    config.getOsTemplate(osTemplate);
    if (osTemplate.isSpecified())
        put(out, "ostemplate", osTemplate.get().toString());
    KQC::KQCOptionalProperty<KQS::KQSTemplateList> templates;
    config.getTemplates(templates);
    if (templates.isSpecified()) {
        out.key("templates");
        out.beginArray();
        for (const auto& each : templates.get())
            out.string(each.toString());
        out.endArray();
    }
}

template <class Out>
void putNetwork(Out& out, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
    config.getAddresses(addresses);
    if (addresses.isSpecified())
        putAddresses(out, "addresses", addresses.get());
    KQC::KQCOptionalProperty<KQC::KQCStringList> nameservers;
    config.getNameservers(nameservers);
    if (nameservers.isSpecified())
        putStrings(out, "nameservers", nameservers.get());
    KQC::KQCOptionalProperty<KQC::KQCStringSet> searchDomains;
    config.getSearchDomains(searchDomains);
    if (searchDomains.isSpecified())
        putStrings(out, "searchdomains", searchDomains.get());
    KQC::KQCOptionalProperty<KQS::KQSNetVEthList> veths;
    config.getNetVEths(veths);
    if (veths.isSpecified()) {
        out.key("veths");
        out.beginArray();
        for (const auto& veth : veths.get())
            putVeth(out, veth);
        out.endArray();
    }
}

template <class Out>
void putFlags(Out& out, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<bool> flag;
    config.getOnBoot(flag);
    putIfSpecified(out, "onboot", flag);
    if (config.getDisabled(flag) == 0)
        put(out, "disabled", flag.get());
    config.getOfflineManagement(flag);
    putIfSpecified(out, "offline_management", flag);
}

// The paths with the VEID put in when that can be done, else the templates.
template <class Out>
void putPaths(Out& out, const KQS::KQSEnvConfig& config)
{
    std::string path;
    KQC::KQCOptionalProperty<std::string> pathVar;
    if (config.getVERoot(path) == 0)
        put(out, "ve_root", path);
    else if (config.getVERootVar(pathVar) == 0 && pathVar.isSpecified())
        put(out, "ve_root", pathVar.get());
    if (config.getVEPrivate(path) == 0)
        put(out, "ve_private", path);
    else if (config.getVEPrivateVar(pathVar) == 0 && pathVar.isSpecified())
        put(out, "ve_private", pathVar.get());
}

template <class Out>
void putQoS(Out& out, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQC::KQCQoSSet> qoses;
    config.getQoSes(qoses);
    if (!qoses.isSpecified())
        return;
    out.key("qos");
    out.beginArray();
    for (const auto& qos : qoses.get()) {
        out.beginObject();
        put(out, "id", qos.id);
        out.key("barrier");
        out.unsignedNumber(qos.barrier);
        out.key("limit");
        out.unsignedNumber(qos.limit);
        out.endObject();
    }
    out.endArray();
}

// The configuration's members, inside an object the caller opened.
template <class Out>
void putConfigFields(Out& out, const KQS::KQSEnvConfig& config)
{
    int veid = 0;
    if (config.getVeid(veid) == 0)
        put(out, "veid", veid);
    putTexts(out, config);
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    config.getOS(os);
    if (os.isSpecified())
        putOS(out, os.get());
    putTemplates(out, config);
    putNetwork(out, config);
    putFlags(out, config);
    putPaths(out, config);
    putQoS(out, config);
}

template <class Out>
void putEnv(Out& out, const KQC::KQCEnv& env)
{
    out.beginObject();
    put(out, "eid", env.getEID().toString());
    if (const KQC::KQCEnvConfig* config = env.getConfig().get()) {
        // A configuration of any level is shown with every property it has;
        // a container's own is shown as it is, without a copy.
        if (const auto* own = dynamic_cast<const KQS::KQSEnvConfig*>(config))
            putConfigFields(out, *own);
        else
            putConfigFields(out, KQS::KQSEnvConfig(*config));
    }
    put(out, "state", env.getStatus().state());
    put(out, "transition", env.getStatus().transition());
    put(out, "type", env.getType());
    if (env.getParentEID().isValid())
        put(out, "parent_eid", env.getParentEID().toString());
    out.endObject();
}

} // namespace

boost::json::object configToJson(const KQS::KQSEnvConfig& config)
{
    TreeBuilder builder;
    builder.beginObject();
    putConfigFields(builder, config);
    builder.endObject();
    return builder.takeObject();
}

boost::json::object envToJson(const KQC::KQCEnv& env)
{
    TreeBuilder builder;
    putEnv(builder, env);
    return builder.takeObject();
}

void writeEnvJson(JsonWriter& writer, const KQC::KQCEnv& env) { putEnv(writer, env); }

} // namespace kqagent
