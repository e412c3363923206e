#include "EnvConfigKeys.h"

#include "KQC/Error.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cctype>
#include <sstream>

namespace KQS {
namespace EnvConfigKeys {
namespace {

using KQC::KQCOptionalProperty;

std::vector<std::string> splitOn(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream input(text);
    while (std::getline(input, part, separator))
        parts.push_back(part);
    return parts;
}

// The blank-separated words of a value, as a stream's >> would read them;
// split by hand, since a stream costs more to make than most values to read.
std::vector<std::string> words(const std::string& text)
{
    std::vector<std::string> result;
    size_t at = 0;
    for (;;) {
        while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])))
            ++at;
        if (at == text.size())
            return result;
        size_t end = at;
        while (end < text.size() && !std::isspace(static_cast<unsigned char>(text[end])))
            ++end;
        result.emplace_back(text, at, end - at);
        at = end;
    }
}

template <class Container>
std::string joinWords(const Container& items)
{
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : " ") + item;
    return text;
}

int invalid(const char* key, const std::string& text)
{
    KQC::setErrorMessage("invalid value '%s' of %s", text.c_str(), key);
    return -1;
}

int parseFlag(const char* key, const std::string& text, bool& flag)
{
    if (text == "yes")
        flag = true;
    else if (text == "no")
        flag = false;
    else
        return invalid(key, text);
    return 0;
}

int parseNumber(const char* key, const std::string& text, int& number)
{
    errno = 0;
    char* end = nullptr;
    long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || *end != '\0' || value < INT32_MIN || value > INT32_MAX)
        return invalid(key, text);
    number = static_cast<int>(value);
    return 0;
}

int parseUnsigned(const std::string& text, uint64_t& number)
{
    if (text == "unlimited") {
        number = INT64_MAX;
        return 0;
    }
    errno = 0;
    char* end = nullptr;
    unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || text[0] == '-' || errno != 0 || *end != '\0')
        return -1;
    number = value;
    return 0;
}

int parseAddresses(const char* key, const std::string& text, KQC::KQCIPAddressList& addresses)
{
    for (const std::string& word : words(text)) {
        KQC::KQCIPAddress address;
        if (address.fromString(word) != 0)
            return invalid(key, word);
        addresses.push_back(address);
    }
    return 0;
}

std::string formatAddresses(const KQC::KQCIPAddressList& addresses)
{
    std::vector<std::string> texts;
    for (const KQC::KQCIPAddress& address : addresses)
        texts.push_back(address.toString());
    return joinWords(texts);
}

bool text(const KQCOptionalProperty<std::string>& value, std::string& out)
{
    if (value.isSpecified())
        out = value.get();
    return value.isSpecified();
}

bool flag(const KQCOptionalProperty<bool>& value, std::string& out)
{
    if (value.isSpecified())
        out = value.get() ? "yes" : "no";
    return value.isSpecified();
}

template <class Container>
bool wordList(const KQCOptionalProperty<Container>& value, std::string& out)
{
    if (value.isSpecified())
        out = joinWords(value.get());
    return value.isSpecified();
}

// Shorthands for a property read from a configuration.
template <class T, class Getter>
KQCOptionalProperty<T> get(const KQSEnvConfig& config, Getter getter)
{
    KQCOptionalProperty<T> value;
    (config.*getter)(value);
    return value;
}

int parseAdapterField(const std::string& field, KQSNetVEth& adapter)
{
    std::string::size_type equals = field.find('=');
    if (equals == std::string::npos)
        return invalid("NETIF", field);
    const std::string key = field.substr(0, equals);
    const std::string value = field.substr(equals + 1);
    bool on = false;
    if (key == "name")
        adapter.setName(value);
    else if (key == "mac")
        adapter.setMac(value);
    else if (key == "ip") {
        KQC::KQCIPAddress address;
        if (address.fromString(value) != 0)
            return invalid("NETIF", field);
        adapter.getAddresses().push_back(address);
    } else if (key == "dhcp" || key == "dhcp6" || key == "host_routed") {
        if (parseFlag("NETIF", value, on) != 0)
            return -1;
        if (key == "dhcp")
            adapter.setDhcp(on);
        else if (key == "dhcp6")
            adapter.setDhcp6(on);
        else
            adapter.setHostRouted(on);
    } else if (key == "network")
        adapter.setNetworkId(value);
    else if (key == "gw")
        adapter.setGateway(value);
    else if (key == "gw6")
        adapter.setGateway6(value);
    else if (key == "ns") {
        std::vector<std::string> nameservers = adapter.getNameservers();
        nameservers.push_back(value);
        adapter.setNameservers(nameservers);
    } else
        return invalid("NETIF", field);
    return 0;
}

int parseAdapter(const std::string& text, KQSNetVEth& adapter)
{
    for (const std::string& field : splitOn(text, ','))
        if (!field.empty() && parseAdapterField(field, adapter) != 0)
            return -1;
    if (adapter.getName().empty())
        return invalid("NETIF", text);
    return 0;
}

std::string formatAdapter(const KQSNetVEth& adapter)
{
    std::string text = "name=" + adapter.getName();
    if (!adapter.getMac().empty())
        text += ",mac=" + adapter.getMac();
    for (const KQC::KQCIPAddress& address : adapter.getAddresses())
        text += ",ip=" + address.toString();
    text += std::string(",dhcp=") + (adapter.isDhcp() ? "yes" : "no");
    text += std::string(",dhcp6=") + (adapter.isDhcp6() ? "yes" : "no");
    if (!adapter.getNetworkId().empty())
        text += ",network=" + adapter.getNetworkId();
    if (!adapter.getGateway().empty())
        text += ",gw=" + adapter.getGateway();
    if (!adapter.getGateway6().empty())
        text += ",gw6=" + adapter.getGateway6();
    for (const std::string& nameserver : adapter.getNameservers())
        text += ",ns=" + nameserver;
    text += std::string(",host_routed=") + (adapter.isHostRouted() ? "yes" : "no");
    return text;
}

// The file keeps the default host-routed adapter's addresses in IP_ADDRESS:
// they are the adapter's when the configuration has one (that is what the
// adapter code changes), else the configuration's own address list.
bool formatHostRoutedAddresses(const KQSEnvConfig& config, std::string& out)
{
    KQCOptionalProperty<KQSNetVEthList> adapters = get<KQSNetVEthList>(config, &KQSEnvConfig::getNetVEths);
    for (const KQSNetVEth& adapter : adapters.get())
        if (adapter.isDefaultHostRouted()) {
            out = formatAddresses(adapter.getAddresses());
            return true;
        }
    KQCOptionalProperty<KQC::KQCIPAddressList> value = get<KQC::KQCIPAddressList>(config, &KQSEnvConfig::getAddresses);
    out = formatAddresses(value.get());
    return value.isSpecified();
}

// NETIF leaves the default host-routed adapter out: it always exists and
// has nothing to keep but its addresses, which IP_ADDRESS holds. An empty
// list is still written, so that rewriting an old file drops its adapters.
bool formatNetif(const KQSEnvConfig& config, std::string& out)
{
    KQCOptionalProperty<KQSNetVEthList> adapters = get<KQSNetVEthList>(config, &KQSEnvConfig::getNetVEths);
    KQSNetVEthList written;
    for (const KQSNetVEth& adapter : adapters.get())
        if (!adapter.isDefaultHostRouted())
            written.push_back(adapter);
    out = formatAdapters(written);
    return adapters.isSpecified();
}

int parseCapabilities(const std::string& value, KQSEnvConfig& config)
{
    KQSEnvCapabilitySet capabilities;
    for (const std::string& word : words(value)) {
        std::string::size_type colon = word.rfind(':');
        std::string state = colon == std::string::npos ? "" : word.substr(colon + 1);
        if (colon == 0 || (state != "on" && state != "off"))
            return invalid("CAPABILITY", word);
        capabilities.insert(KQSEnvCapability(word.substr(0, colon), state == "on"));
    }
    config.setCapabilities(capabilities);
    return 0;
}

bool formatCapabilities(const KQSEnvConfig& config, std::string& out)
{
    KQCOptionalProperty<KQSEnvCapabilitySet> value = get<KQSEnvCapabilitySet>(config, &KQSEnvConfig::getCapabilities);
    std::vector<std::string> texts;
    for (const KQSEnvCapability& capability : value.get())
        texts.push_back(capability.id + (capability.enabled ? ":on" : ":off"));
    out = joinWords(texts);
    return value.isSpecified();
}

int parseRates(const std::string& value, KQSEnvConfig& config)
{
    KQC::KQCInterfaceRateList rates;
    for (const std::string& word : words(value)) {
        std::vector<std::string> parts = splitOn(word, ':');
        KQC::KQCInterfaceRate rate;
        if (parts.size() != 3 || parts[0].empty() || parseNumber("RATE", parts[1], rate.trafficClass) != 0 ||
            parseNumber("RATE", parts[2], rate.rate) != 0)
            return invalid("RATE", word);
        rate.interfaceName = parts[0];
        rates.push_back(rate);
    }
    config.setRatesList(rates);
    return 0;
}

bool formatRates(const KQSEnvConfig& config, std::string& out)
{
    KQCOptionalProperty<KQC::KQCInterfaceRateList> value =
        get<KQC::KQCInterfaceRateList>(config, &KQSEnvConfig::getRatesList);
    std::vector<std::string> texts;
    for (const KQC::KQCInterfaceRate& rate : value.get())
        texts.push_back(rate.interfaceName + ":" + std::to_string(rate.trafficClass) + ":" + std::to_string(rate.rate));
    out = joinWords(texts);
    return value.isSpecified();
}

// A template as a file names it: "name" or "name/version". Slashes at the
// end give no version and are dropped, so that what is written back reads
// as the same template ("a//" would otherwise turn into "a/", then "a").
KQSTemplate templateOf(std::string word)
{
    while (!word.empty() && word.back() == '/')
        word.pop_back();
    return KQSTemplate::fromString(word);
}

int parseTemplates(const std::string& value, KQSEnvConfig& config)
{
    KQSTemplateList templates;
    for (const std::string& word : words(value))
        if (!templateOf(word).toString().empty())
            templates.push_back(templateOf(word));
    config.setTemplates(templates);
    return 0;
}

bool formatTemplates(const KQSEnvConfig& config, std::string& out)
{
    KQCOptionalProperty<KQSTemplateList> value = get<KQSTemplateList>(config, &KQSEnvConfig::getTemplates);
    std::vector<std::string> texts;
    for (const KQSTemplate& item : value.get())
        texts.push_back(item.toString());
    out = joinWords(texts);
    return value.isSpecified();
}

std::vector<KeyCodec> makeTable()
{
    return {
        {"ONBOOT",
         [](const std::string& v, KQSEnvConfig& c) { bool on; return parseFlag("ONBOOT", v, on) ? -1 : (c.setOnBoot(on), 0); },
         [](const KQSEnvConfig& c, std::string& t) { return flag(get<bool>(c, &KQSEnvConfig::getOnBoot), t); }},
        {"DISABLED",
         [](const std::string& v, KQSEnvConfig& c) { bool on; return parseFlag("DISABLED", v, on) ? -1 : (c.setDisabled(on), 0); },
         [](const KQSEnvConfig& c, std::string& t) {
             KQCOptionalProperty<bool> value;
             c.getDisabled(value);
             return flag(value, t);
         }},
        {"OFFLINE_MANAGEMENT",
         [](const std::string& v, KQSEnvConfig& c) {
             bool on;
             return parseFlag("OFFLINE_MANAGEMENT", v, on) ? -1 : (c.setOfflineManagement(on), 0);
         },
         [](const KQSEnvConfig& c, std::string& t) { return flag(get<bool>(c, &KQSEnvConfig::getOfflineManagement), t); }},
        {"VE_ROOT", [](const std::string& v, KQSEnvConfig& c) { return c.setVERootVar(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getVERootVar), t); }},
        {"VE_PRIVATE", [](const std::string& v, KQSEnvConfig& c) { return c.setVEPrivateVar(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getVEPrivateVar), t); }},
        {"OSTEMPLATE",
         // An empty OSTEMPLATE names no template.
         [](const std::string& v, KQSEnvConfig& c) {
             KQSTemplate osTemplate = templateOf(v);
             return osTemplate.toString().empty() ? 0 : (c.setOsTemplate(osTemplate), 0);
         },
         [](const KQSEnvConfig& c, std::string& t) {
             KQCOptionalProperty<KQSTemplate> value = get<KQSTemplate>(c, &KQSEnvConfig::getOsTemplate);
             t = value.get().toString();
             return value.isSpecified();
         }},
        {"TEMPLATES", parseTemplates, formatTemplates},
        {"ORIGIN_SAMPLE", [](const std::string& v, KQSEnvConfig& c) { return c.setOriginSample(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getOriginSample), t); }},
        {"UUID", [](const std::string& v, KQSEnvConfig& c) { return c.setUUID(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getUUID), t); }},
        {"VE_TYPE",
         [](const std::string& v, KQSEnvConfig& c) { int n; return parseNumber("VE_TYPE", v, n) ? -1 : (c.setVEType(n), 0); },
         [](const KQSEnvConfig& c, std::string& t) {
             KQCOptionalProperty<int> value = get<int>(c, &KQSEnvConfig::getVEType);
             t = std::to_string(value.get());
             return value.isSpecified();
         }},
        {"ARCH", [](const std::string& v, KQSEnvConfig& c) { return c.setArchitecture(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getArchitecture), t); }},
        {"DISTRIBUTION",
         [](const std::string& v, KQSEnvConfig& c) {
             KQSTemplate parts = templateOf(v);
             KQSDistribution distribution;
             distribution.name = parts.name;
             distribution.version = parts.version;
             return c.setDistribution(distribution), 0;
         },
         [](const KQSEnvConfig& c, std::string& t) {
             KQCOptionalProperty<KQSDistribution> value = get<KQSDistribution>(c, &KQSEnvConfig::getDistribution);
             t = KQSTemplate(value.get().name, value.get().version).toString();
             return value.isSpecified();
         }},
        {"NAME", [](const std::string& v, KQSEnvConfig& c) { return c.setName(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getName), t); }},
        {"DESCRIPTION", [](const std::string& v, KQSEnvConfig& c) { return c.setDescription(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getDescription), t); }},
        {"HOSTNAME", [](const std::string& v, KQSEnvConfig& c) { return c.setHostname(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getHostname), t); }},
        {"IP_ADDRESS",
         [](const std::string& v, KQSEnvConfig& c) {
             KQC::KQCIPAddressList addresses;
             return parseAddresses("IP_ADDRESS", v, addresses) ? -1 : (c.setAddresses(addresses), 0);
         },
         formatHostRoutedAddresses},
        {"NAMESERVER", [](const std::string& v, KQSEnvConfig& c) { return c.setNameservers(words(v)), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return wordList(get<KQC::KQCStringList>(c, &KQSEnvConfig::getNameservers), t); }},
        {"SEARCHDOMAIN",
         [](const std::string& v, KQSEnvConfig& c) {
             std::vector<std::string> list = words(v);
             return c.setSearchDomains(KQC::KQCStringSet(list.begin(), list.end())), 0;
         },
         [](const KQSEnvConfig& c, std::string& t) { return wordList(get<KQC::KQCStringSet>(c, &KQSEnvConfig::getSearchDomains), t); }},
        {"NETIF",
         [](const std::string& v, KQSEnvConfig& c) {
             KQSNetVEthList adapters;
             return parseAdapters(v, adapters) ? -1 : (c.setNetVEths(adapters), 0);
         },
         formatNetif},
        {"CAPABILITY", parseCapabilities, formatCapabilities},
        {"OFFLINE_SERVICE",
         [](const std::string& v, KQSEnvConfig& c) {
             std::vector<std::string> list = words(v);
             return c.setOfflineServices(KQC::KQCStringSet(list.begin(), list.end())), 0;
         },
         [](const KQSEnvConfig& c, std::string& t) { return wordList(get<KQC::KQCStringSet>(c, &KQSEnvConfig::getOfflineServices), t); }},
        {"IPTABLES",
         [](const std::string& v, KQSEnvConfig& c) {
             std::vector<std::string> list = words(v);
             return c.setIPTables(KQC::KQCStringSet(list.begin(), list.end())), 0;
         },
         [](const KQSEnvConfig& c, std::string& t) { return wordList(get<KQC::KQCStringSet>(c, &KQSEnvConfig::getIPTables), t); }},
        {"SLMMODE", [](const std::string& v, KQSEnvConfig& c) { return c.setSLMMode(v), 0; },
         [](const KQSEnvConfig& c, std::string& t) { return text(get<std::string>(c, &KQSEnvConfig::getSLMMode), t); }},
        {"RATE", parseRates, formatRates},
        {"RATEBOUND",
         [](const std::string& v, KQSEnvConfig& c) { bool on; return parseFlag("RATEBOUND", v, on) ? -1 : (c.setRateBound(on), 0); },
         [](const KQSEnvConfig& c, std::string& t) { return flag(get<bool>(c, &KQSEnvConfig::getRateBound), t); }},
        {"ALLOW_REBOOT",
         [](const std::string& v, KQSEnvConfig& c) { bool on; return parseFlag("ALLOW_REBOOT", v, on) ? -1 : (c.setAllowReboot(on), 0); },
         [](const KQSEnvConfig& c, std::string& t) { return flag(get<bool>(c, &KQSEnvConfig::getAllowReboot), t); }},
    };
}

} // namespace

const std::vector<KeyCodec>& table()
{
    static const std::vector<KeyCodec> codecs = makeTable();
    return codecs;
}

int parseAdapters(const std::string& text, KQSNetVEthList& adapters)
{
    KQSNetVEthList parsed;
    for (const std::string& part : splitOn(text, ';')) {
        if (part.find_first_not_of(" \t") == std::string::npos)
            continue;
        KQSNetVEth adapter;
        if (parseAdapter(part, adapter) != 0)
            return -1;
        parsed.push_back(adapter);
    }
    adapters.swap(parsed);
    return 0;
}

void addDefaultHostRouted(KQSEnvConfig& config)
{
    KQCOptionalProperty<KQSNetVEthList> adapters = get<KQSNetVEthList>(config, &KQSEnvConfig::getNetVEths);
    KQSNetVEthList& list = adapters.get();
    auto venet = std::find_if(list.begin(), list.end(),
                              [](const KQSNetVEth& adapter) { return adapter.getName() == kDefaultHostRoutedName; });
    if (venet == list.end()) {
        // Last, so that the adapters the file lists keep their places.
        list.push_back(KQSNetVEth());
        venet = list.end() - 1;
        venet->setName(kDefaultHostRoutedName);
    }
    // An adapter the file calls venet0 is the host-routed one, whatever its
    // flag says; addresses it lists itself follow those of IP_ADDRESS.
    venet->setHostRouted(true);
    KQC::KQCIPAddressList addresses = get<KQC::KQCIPAddressList>(config, &KQSEnvConfig::getAddresses).get();
    for (const KQC::KQCIPAddress& address : venet->getAddresses())
        if (std::find(addresses.begin(), addresses.end(), address) == addresses.end())
            addresses.push_back(address);
    venet->setAddresses(addresses);
    config.setNetVEths(list);
}

std::string formatAdapters(const KQSNetVEthList& adapters)
{
    std::string text;
    for (const KQSNetVEth& adapter : adapters)
        text += (text.empty() ? "" : ";") + formatAdapter(adapter);
    return text;
}

int parseQoS(const std::string& id, const std::string& text, KQC::KQCQoS& qos)
{
    std::string::size_type colon = text.find(':');
    qos.id = id;
    if (colon == std::string::npos) {
        if (parseUnsigned(text, qos.barrier) != 0)
            return invalid(id.c_str(), text);
        qos.limit = qos.barrier;
        return 0;
    }
    if (parseUnsigned(text.substr(0, colon), qos.barrier) != 0 || parseUnsigned(text.substr(colon + 1), qos.limit) != 0)
        return invalid(id.c_str(), text);
    return 0;
}

std::string formatQoS(const KQC::KQCQoS& qos)
{
    return std::to_string(qos.barrier) + ":" + std::to_string(qos.limit);
}

} // namespace EnvConfigKeys
} // namespace KQS
