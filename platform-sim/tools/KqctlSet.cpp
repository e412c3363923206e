// kqctl set VEID [--save] [options] and kqctl unset VEID [--save] [options]:
// changes of a container's configuration, saved into its file.
#include "Kqctl.h"

#include "KQSim/Accounts.h"
#include "KQSim/Host.h"
#include "KQSim/Netif.h"
#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <map>

namespace KQSim {
namespace {

// Options that take no value.
const char* const kFlags[] = {"--save", "--netif_mac_renew"};

// Options with a value that simply set a configuration key.
const std::map<std::string, std::string>& plainKeys()
{
    static const std::map<std::string, std::string> keys = {
        {"--hostname", "HOSTNAME"},       {"--name", "NAME"},
        {"--description", "DESCRIPTION"}, {"--onboot", "ONBOOT"},
        {"--disabled", "DISABLED"},       {"--offline_management", "OFFLINE_MANAGEMENT"},
        {"--diskspace", "DISKSPACE"},     {"--diskinodes", "DISKINODES"},
        {"--cpuunits", "CPUUNITS"},       {"--ostemplate", "OSTEMPLATE"},
    };
    return keys;
}

const char* const kYesNoOptions[] = {"--onboot", "--disabled", "--offline_management", "--dhcp", "--dhcp6"};

// Options with a value that the set logic handles itself.
const char* const kSpecialOptions[] = {"--setmode",  "--ipadd",   "--ipdel",      "--dhcp",       "--dhcp6",
                                       "--ifname",   "--mac",     "--gw",         "--gw6",        "--nameserver",
                                       "--netif_add", "--netif_del", "--applyconfig", "--userpasswd", "--searchdomain"};

template <size_t N>
bool isOneOf(const std::string& option, const char* const (&list)[N])
{
    return std::find_if(std::begin(list), std::end(list), [&](const char* name) { return option == name; })
        != std::end(list);
}

using Option = std::pair<std::string, std::string>;

// "--network=ID" arrives as one word; everything else as word and value.
int splitOptions(const std::vector<std::string>& words, std::vector<Option>& options)
{
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.compare(0, 10, "--network=") == 0) {
            options.emplace_back("--network", word.substr(10));
        } else if (isOneOf(word, kFlags)) {
            options.emplace_back(word, "");
        } else if (plainKeys().count(word) || isOneOf(word, kSpecialOptions)) {
            if (i + 1 >= words.size())
                return refuse(kExitUsage, "Missing value for " + word);
            options.emplace_back(word, words[++i]);
        } else {
            return refuse(kExitUsage, "Invalid option: " + word);
        }
        if (isOneOf(options.back().first, kYesNoOptions) && options.back().second != "yes"
            && options.back().second != "no")
            return refuse(kExitUsage, "Invalid value for " + options.back().first + ": " + options.back().second);
    }
    return 0;
}

void deleteAddress(std::vector<std::string>& addresses, const std::string& which)
{
    if (which == "all") {
        addresses.clear();
        return;
    }
    auto bare = [](const std::string& address) { return address.substr(0, address.find('/')); };
    addresses.erase(std::remove_if(addresses.begin(), addresses.end(),
                                   [&](const std::string& address) { return bare(address) == bare(which); }),
                    addresses.end());
}

class ConfigEditor {
public:
    ConfigEditor(KqctlCall& call, ShellConfig& config) : m_call(call), m_config(config) {}

    int apply(const std::vector<Option>& options)
    {
        for (const Option& option : options)
            if (option.first == "--ifname")
                m_ifname = option.second;
        m_adapters = parseNetifLine(m_config.get("NETIF"));
        // The sample comes first so that explicit options override it.
        for (const Option& option : options)
            if (option.first == "--applyconfig")
                if (int status = applySample(option.second))
                    return status;
        for (const Option& option : options)
            if (int status = applyOne(option))
                return status;
        if (m_adapters.empty())
            m_config.unset("NETIF");
        else
            m_config.set("NETIF", formatNetifLine(m_adapters));
        return 0;
    }

private:
    int applyOne(const Option& option)
    {
        const std::string& name = option.first;
        const std::string& value = option.second;
        auto plain = plainKeys().find(name);
        if (plain != plainKeys().end()) {
            m_config.set(plain->second, isToolEscapedKey(plain->second) ? toolEscaped(value) : value);
            return 0;
        }
        if (name == "--netif_add")
            return addAdapter(value);
        if (name == "--netif_del")
            return deleteAdapter(value);
        if (name == "--nameserver") {
            m_nameservers.push_back(value);
            m_config.set("NAMESERVER", joinWords(m_nameservers));
            return 0;
        }
        if (name == "--searchdomain") {
            m_config.set("SEARCHDOMAIN", value);
            return 0;
        }
        if (name == "--userpasswd")
            return setUserPassword(value);
        if (name == "--ipadd" || name == "--ipdel")
            return m_ifname.empty() ? editHostRoutedAddresses(name, value) : editAdapter(name, value);
        if (name == "--dhcp" || name == "--dhcp6" || name == "--mac" || name == "--netif_mac_renew"
            || name == "--network" || name == "--gw" || name == "--gw6")
            return editAdapter(name, value);
        return 0;  // --save, --setmode, --ifname, --applyconfig: handled or implied
    }

    int applySample(const std::string& sample)
    {
        std::string path = m_call.host.scriptsDir() + "/ve-" + sample + ".conf-sample";
        ShellConfig values;
        if (!pathExists(path))
            return refuse(kExitFailed, "Sample configuration file " + path + " not found");
        if (values.load(path) != 0)
            return refuse(kExitFailed, KQC::getErrorMessage());
        // Where the container lives and how it is reached stay its own.
        static const char* const kKept[] = {"VE_ROOT", "VE_PRIVATE", "UUID", "NAME", "OSTEMPLATE",
                                            "ORIGIN_SAMPLE", "IP_ADDRESS", "NETIF", "TEMPLATES"};
        // A sample made from another one says so; the container then came
        // from that one.
        if (!values.get("ORIGIN_SAMPLE").empty())
            m_config.set("ORIGIN_SAMPLE", values.get("ORIGIN_SAMPLE"));
        for (const auto& value : values.values())
            if (!isOneOf(value.first, kKept))
                m_config.set(value.first, isToolEscapedKey(value.first) ? toolEscaped(value.second) : value.second);
        return 0;
    }

    int editHostRoutedAddresses(const std::string& name, const std::string& value)
    {
        std::vector<std::string> addresses = splitWords(m_config.get("IP_ADDRESS"));
        if (name == "--ipdel")
            deleteAddress(addresses, value);
        else if (std::find(addresses.begin(), addresses.end(), value) == addresses.end())
            addresses.push_back(value);
        m_config.set("IP_ADDRESS", joinWords(addresses));
        return 0;
    }

    NetifAdapter* adapter(const std::string& name)
    {
        for (NetifAdapter& candidate : m_adapters)
            if (candidate.name() == name)
                return &candidate;
        return nullptr;
    }

    int addAdapter(const std::string& name)
    {
        if (adapter(name))
            return refuse(kExitFailed, "Network interface " + name + " already exists");
        NetifAdapter added;
        added.add("name", name);
        added.add("mac", generatedMac(m_call.veid, static_cast<int>(m_adapters.size())));
        m_adapters.push_back(added);
        return 0;
    }

    int deleteAdapter(const std::string& name)
    {
        auto found = std::find_if(m_adapters.begin(), m_adapters.end(),
                                  [&](const NetifAdapter& candidate) { return candidate.name() == name; });
        if (found == m_adapters.end())
            return refuse(kExitFailed, "Network interface " + name + " does not exist");
        m_adapters.erase(found);
        return 0;
    }

    int editAdapter(const std::string& name, const std::string& value)
    {
        if (m_ifname.empty())
            return refuse(kExitUsage, name + " needs --ifname");
        NetifAdapter* target = adapter(m_ifname);
        if (!target)
            return refuse(kExitFailed, "Network interface " + m_ifname + " does not exist");
        if (name == "--ipdel") {
            std::vector<std::string> addresses;
            for (const auto& pair : target->pairs)
                if (pair.first == "ip")
                    addresses.push_back(pair.second);
            deleteAddress(addresses, value);
            target->removeAll("ip");
            for (const std::string& address : addresses)
                target->add("ip", address);
        } else if (name == "--ipadd") {
            target->add("ip", value);
        } else if (name == "--netif_mac_renew") {
            target->set("mac", generatedMac(m_call.veid, static_cast<int>(target - m_adapters.data()) + 100));
        } else {
            std::string key = name.substr(2);
            if (value.empty())
                target->removeAll(key);
            else
                target->set(key, value);
        }
        return 0;
    }

    int setUserPassword(const std::string& value)
    {
        size_t colon = value.find(':');
        if (colon == std::string::npos || colon == 0)
            return refuse(kExitUsage, "Invalid --userpasswd: USER:PASSWORD expected");
        if (setPassword(m_call.files.fileTree(), value.substr(0, colon), value.substr(colon + 1)) != 0)
            return refuse(kExitFailed, KQC::getErrorMessage());
        return 0;
    }

    KqctlCall& m_call;
    ShellConfig& m_config;
    std::string m_ifname;
    std::vector<NetifAdapter> m_adapters;
    std::vector<std::string> m_nameservers;
};

// The file behind the configuration's name: a layout-4 container's name is
// a link, and replacing the link itself would cut it from its private area.
std::string configTarget(const ContainerFiles& files)
{
    char* resolved = ::realpath(files.configPath.c_str(), nullptr);
    if (!resolved)
        return files.configPath;
    std::string path = resolved;
    std::free(resolved);
    return path;
}

int saveConfig(KqctlCall& call, const ShellConfig& config)
{
    if (config.save(configTarget(call.files)) != 0)
        return refuse(kExitFailed, KQC::getErrorMessage());
    progress(call, "Saved parameters for container " + std::to_string(call.veid));
    return kExitDone;
}

} // namespace

int actionSet(KqctlCall& call)
{
    std::vector<Option> options;
    if (int status = splitOptions(call.options, options))
        return status;
    ShellConfig config;
    if (config.load(call.files.configPath) != 0)
        return refuse(kExitFailed, KQC::getErrorMessage());
    ConfigEditor editor(call, config);
    if (int status = editor.apply(options))
        return status;
    return saveConfig(call, config);
}

int actionUnset(KqctlCall& call)
{
    static const std::map<std::string, std::string> keys = {
        {"--offline_service", "OFFLINE_SERVICE"}, {"--iptables", "IPTABLES"},
        {"--rate", "RATE"},                       {"--nameserver", "NAMESERVER"},
        {"--searchdomain", "SEARCHDOMAIN"},       {"--hostname", "HOSTNAME"},
        {"--description", "DESCRIPTION"},         {"--name", "NAME"},
    };
    ShellConfig config;
    if (config.load(call.files.configPath) != 0)
        return refuse(kExitFailed, KQC::getErrorMessage());
    for (const std::string& option : call.options) {
        if (option == "--save")
            continue;
        auto key = keys.find(option);
        if (key == keys.end())
            return refuse(kExitUsage, "Invalid option: " + option);
        config.unset(key->second);
    }
    return saveConfig(call, config);
}

} // namespace KQSim
