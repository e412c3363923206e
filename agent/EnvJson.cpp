#include "EnvJson.h"

#include <string>

namespace kqagent {
namespace {

// Contract form of an address: always with its prefix length.
std::string addressText(const KQC::KQCIPAddress& address)
{
    return address.address() + "/" + std::to_string(address.prefixLength());
}

boost::json::array addressesToJson(const std::vector<KQC::KQCIPAddress>& addresses)
{
    boost::json::array array;
    for (const auto& address : addresses)
        array.push_back(boost::json::value(addressText(address)));
    return array;
}

template <class Strings>
boost::json::array stringsToJson(const Strings& strings)
{
    boost::json::array array;
    for (const auto& text : strings)
        array.push_back(boost::json::value(text));
    return array;
}

// Sets `key` to the property's value when it is specified.
template <class T>
void putIfSpecified(boost::json::object& object, const char* key, const KQC::KQCOptionalProperty<T>& property)
{
    if (property.isSpecified())
        object[key] = property.get();
}

void putNonEmpty(boost::json::object& object, const char* key, const std::string& text)
{
    if (!text.empty())
        object[key] = text;
}

boost::json::object vethToJson(const KQS::KQSNetVEth& veth)
{
    boost::json::object object;
    object["name"] = veth.getName();
    putNonEmpty(object, "mac", veth.getMac());
    object["addresses"] = addressesToJson(veth.getAddresses());
    object["dhcp"] = veth.isDhcp();
    object["dhcp6"] = veth.isDhcp6();
    putNonEmpty(object, "network", veth.getNetworkId());
    putNonEmpty(object, "gateway", veth.getGateway());
    putNonEmpty(object, "gateway6", veth.getGateway6());
    object["nameservers"] = stringsToJson(veth.getNameservers());
    object["host_routed"] = veth.isHostRouted();
    object["status"] = veth.getStatus();
    return object;
}

boost::json::object osToJson(const KQC::KQCOS& os)
{
    boost::json::object object;
    putIfSpecified(object, "f1", os.platform);
    putIfSpecified(object, "f2", os.distribution);
    putIfSpecified(object, "f3", os.version);
    putIfSpecified(object, "f4", os.kernel);
    return object;
}

void putTexts(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<std::string> text;
    config.getName(text);
    putIfSpecified(object, "name", text);
    config.getDescription(text);
    putIfSpecified(object, "description", text);
    config.getHostname(text);
    putIfSpecified(object, "hostname", text);
    config.getDomain(text);
    putIfSpecified(object, "domain", text);
    config.getArchitecture(text);
    putIfSpecified(object, "architecture", text);
    config.getOriginSample(text);
    putIfSpecified(object, "origin_sample", text);
}

void putTemplates(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQS::KQSTemplate> osTemplate;
    config.getOsTemplate(osTemplate);
    if (osTemplate.isSpecified())
        object["ostemplate"] = osTemplate.get().toString();
    KQC::KQCOptionalProperty<KQS::KQSTemplateList> templates;
    config.getTemplates(templates);
    if (templates.isSpecified()) {
        boost::json::array array;
        for (const auto& each : templates.get())
            array.push_back(boost::json::value(each.toString()));
        object["templates"] = array;
    }
}

void putNetwork(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
    config.getAddresses(addresses);
    if (addresses.isSpecified())
        object["addresses"] = addressesToJson(addresses.get());
    KQC::KQCOptionalProperty<KQC::KQCStringList> nameservers;
    config.getNameservers(nameservers);
    if (nameservers.isSpecified())
        object["nameservers"] = stringsToJson(nameservers.get());
    KQC::KQCOptionalProperty<KQC::KQCStringSet> searchDomains;
    config.getSearchDomains(searchDomains);
    if (searchDomains.isSpecified())
        object["searchdomains"] = stringsToJson(searchDomains.get());
    KQC::KQCOptionalProperty<KQS::KQSNetVEthList> veths;
    config.getNetVEths(veths);
    if (veths.isSpecified()) {
        boost::json::array array;
        for (const auto& veth : veths.get())
            array.push_back(vethToJson(veth));
        object["veths"] = array;
    }
}

void putFlags(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<bool> flag;
    config.getOnBoot(flag);
    putIfSpecified(object, "onboot", flag);
    if (config.getDisabled(flag) == 0)
        object["disabled"] = flag.get();
    config.getOfflineManagement(flag);
    putIfSpecified(object, "offline_management", flag);
}

// The paths with the VEID put in when that can be done, else the templates.
void putPaths(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    std::string path;
    KQC::KQCOptionalProperty<std::string> pathVar;
    if (config.getVERoot(path) == 0)
        object["ve_root"] = path;
    else if (config.getVERootVar(pathVar) == 0 && pathVar.isSpecified())
        object["ve_root"] = pathVar.get();
    if (config.getVEPrivate(path) == 0)
        object["ve_private"] = path;
    else if (config.getVEPrivateVar(pathVar) == 0 && pathVar.isSpecified())
        object["ve_private"] = pathVar.get();
}

void putQoS(boost::json::object& object, const KQS::KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQC::KQCQoSSet> qoses;
    config.getQoSes(qoses);
    if (!qoses.isSpecified())
        return;
    boost::json::array array;
    for (const auto& qos : qoses.get()) {
        boost::json::object entry;
        entry["id"] = qos.id;
        entry["barrier"] = qos.barrier;
        entry["limit"] = qos.limit;
        array.push_back(entry);
    }
    object["qos"] = array;
}

} // namespace

boost::json::object configToJson(const KQS::KQSEnvConfig& config)
{
    boost::json::object object;
    int veid = 0;
    if (config.getVeid(veid) == 0)
        object["veid"] = veid;
    putTexts(object, config);
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    config.getOS(os);
    if (os.isSpecified())
        object["os"] = osToJson(os.get());
    putTemplates(object, config);
    putNetwork(object, config);
    putFlags(object, config);
    putPaths(object, config);
    putQoS(object, config);
    return object;
}

boost::json::object envToJson(const KQC::KQCEnv& env)
{
    boost::json::object object;
    object["eid"] = env.getEID().toString();
    if (env.getConfig()) {
        // A configuration of any level is shown with every property it has.
        for (const auto& field : configToJson(KQS::KQSEnvConfig(*env.getConfig())))
            object[field.key()] = field.value();
    }
    object["state"] = env.getStatus().state();
    object["transition"] = env.getStatus().transition();
    object["type"] = env.getType();
    if (env.getParentEID().isValid())
        object["parent_eid"] = env.getParentEID().toString();
    return object;
}

} // namespace kqagent
