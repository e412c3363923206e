// Commands that make and change containers: create, set (from options or
// from a sample) and password.
#include "Commands.h"
#include "EnvJson.h"

#include "KQC/EnvConfig.h"
#include "KQC/Error.h"
#include "KQC/Vocabulary.h"
#include "KQS/BashParsers.h"

#include <boost/make_shared.hpp>
#include <iostream>
#include <set>
#include <sstream>

namespace kqagent {
namespace {

// The options that describe a container, shared by create and set.
struct ConfigOptions {
    std::string* name = nullptr;
    std::string* hostname = nullptr;
    std::string* description = nullptr;
    std::vector<std::string>* addresses = nullptr;
    std::vector<std::string>* nameservers = nullptr;
    std::vector<std::string>* netifs = nullptr;
    CLI::Option* nameGiven = nullptr;
    CLI::Option* hostnameGiven = nullptr;
    CLI::Option* descriptionGiven = nullptr;
};

ConfigOptions addConfigOptions(CommandLine& cli, CLI::App& command)
{
    ConfigOptions options;
    options.name = &cli.value<std::string>();
    options.hostname = &cli.value<std::string>();
    options.description = &cli.value<std::string>();
    options.addresses = &cli.value<std::vector<std::string>>();
    options.nameservers = &cli.value<std::vector<std::string>>();
    options.netifs = &cli.value<std::vector<std::string>>();
    options.nameGiven = command.add_option("--name", *options.name, "name");
    options.hostnameGiven = command.add_option("--hostname", *options.hostname, "host name");
    options.descriptionGiven = command.add_option("--description", *options.description, "description");
    command.add_option("--ip", *options.addresses, "ADDRESS[/PREFIX], or auto/auto6 (create)")->allow_extra_args(false);
    command.add_option("--nameserver", *options.nameservers, "name server")->allow_extra_args(false);
    command.add_option("--netif", *options.netifs, "adapter: key=value,...")->allow_extra_args(false);
    return options;
}

// A value inside double quotes of a configuration file.
std::string configQuoted(const std::string& text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\' || c == '$' || c == '`')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

// "auto" and "auto6" ask for an address from the host's pool; the request
// carries them as the unspecified address of the family. "" for any other
// text.
std::string automaticAddress(const std::string& text)
{
    if (text == "auto")
        return "0.0.0.0";
    if (text == "auto6")
        return "::";
    return std::string();
}

// One adapter spec with its "ip=auto" items in the request's form.
std::string withAutomaticAddresses(const std::string& adapter, bool creating)
{
    std::string out;
    std::istringstream items(adapter);
    std::string item;
    while (std::getline(items, item, ',')) {
        if (item.compare(0, 3, "ip=") == 0 && !automaticAddress(item.substr(3)).empty()) {
            if (!creating)
                throw UsageError("--netif '" + adapter + "': automatic addresses are handed out by create only");
            item = "ip=" + automaticAddress(item.substr(3));
        }
        out += (out.empty() ? "" : ",") + item;
    }
    return out;
}

// Adapters in the configuration file's own form, read by the same parser
// that reads containers' files, so that one syntax holds everywhere.
KQS::KQSNetVEthList parseAdapters(const std::vector<std::string>& adapters, bool creating)
{
    std::string joined;
    for (const std::string& adapter : adapters) {
        if (adapter.find(';') != std::string::npos)
            throw UsageError("--netif '" + adapter + "': one adapter per option");
        joined += (joined.empty() ? "" : ";") + withAutomaticAddresses(adapter, creating);
    }
    KQC::KQCVocMap vocabularies;
    KQS::KQSEnvConfig config;
    std::istringstream input("NETIF=" + configQuoted(joined) + "\n");
    if (KQS::KQSEnvConfigBashParser::getInstance(vocabularies)->getConfig(input, config) != 0)
        throw UsageError("--netif: " + std::string(KQC::getErrorMessage()));
    KQC::KQCOptionalProperty<KQS::KQSNetVEthList> veths;
    config.getNetVEths(veths);
    // A file always has the default host-routed adapter, so the reader adds
    // it last when the file names none; the request wants only those given.
    if (veths.get().size() == adapters.size() + 1 && veths.get().back().isDefaultHostRouted())
        veths.get().pop_back();
    if (veths.get().size() != adapters.size())
        throw UsageError("--netif: malformed adapter list");
    std::set<std::string> names;
    for (const KQS::KQSNetVEth& veth : veths.get()) {
        if (veth.getName().empty())
            throw UsageError("--netif: an adapter needs name=NAME");
        if (!names.insert(veth.getName()).second)
            throw UsageError("--netif: two adapters named '" + veth.getName() + "'");
    }
    return veths.get();
}

// The configuration the options ask for: only what was given is specified.
// An automatic address (--ip auto) can only be asked for on an adapter, so
// without --netif the addresses go on the default host-routed adapter,
// which is where a container's own addresses live anyway.
boost::shared_ptr<KQS::KQSEnvConfig> configOf(const ConfigOptions& options, bool creating)
{
    auto config = boost::make_shared<KQS::KQSEnvConfig>();
    if (options.nameGiven->count())
        config->setName(*options.name);
    if (options.hostnameGiven->count())
        config->setHostname(*options.hostname);
    if (options.descriptionGiven->count())
        config->setDescription(*options.description);
    bool automatic = false;
    KQC::KQCIPAddressList addresses;
    for (const std::string& text : *options.addresses) {
        const std::string wanted = automaticAddress(text);
        automatic = automatic || !wanted.empty();
        KQC::KQCIPAddress address;
        if (address.fromString(wanted.empty() ? text : wanted) != 0)
            throw UsageError("--ip '" + text + "' is not an address");
        addresses.push_back(address);
    }
    if (automatic && !creating)
        throw UsageError("--ip auto: automatic addresses are handed out by create only");
    if (automatic && !options.netifs->empty())
        throw UsageError("--ip auto: with --netif, ask on the adapter (ip=auto)");
    if (automatic) {
        KQS::KQSNetVEth hostRouted;
        hostRouted.setName(KQS::kDefaultHostRoutedName);
        hostRouted.setHostRouted(true);
        hostRouted.setAddresses(addresses);
        config->setNetVEths(KQS::KQSNetVEthList{hostRouted});
    } else if (!addresses.empty()) {
        config->setAddresses(addresses);
    }
    if (!options.nameservers->empty())
        config->setNameservers(KQC::KQCStringList(options.nameservers->begin(), options.nameservers->end()));
    if (!options.netifs->empty())
        config->setNetVEths(parseAdapters(*options.netifs, creating));
    return config;
}

void addCreate(CommandLine& cli)
{
    cli.add(cli.root(), "create",
            "create [--eid E] [--veid N] [--sample ID] [--ostemplate T] [--name N] [--hostname H] "
            "[--description D] [--ip ADDR]... [--nameserver NS]... [--netif SPEC]... [--ve-root T] "
            "[--ve-private T]",
            [&cli](CLI::App& command) -> Build {
                ConfigOptions options = addConfigOptions(cli, command);
                auto& eidText = cli.value<std::string>();
                auto& veidText = cli.value<std::string>();
                auto& sampleText = cli.value<std::string>();
                auto& osTemplate = cli.value<std::string>();
                auto& veRoot = cli.value<std::string>();
                auto& vePrivate = cli.value<std::string>();
                command.add_option("--eid", eidText, "environment identifier");
                command.add_option("--veid", veidText, "VEID");
                command.add_option("--sample", sampleText, "sample identifier");
                command.add_option("--ostemplate", osTemplate, "OS template");
                command.add_option("--ve-root", veRoot, "root path template");
                command.add_option("--ve-private", vePrivate, "private path template");
                return [=, &eidText, &veidText, &sampleText, &osTemplate, &veRoot, &vePrivate] {
                    boost::shared_ptr<KQS::KQSEnvConfig> config = configOf(options, true);
                    KQC::KQCEID eid;
                    if (!eidText.empty() && eid.fromString(eidText) != 0)
                        throw UsageError("--eid '" + eidText + "' is not an environment identifier");
                    if (!veidText.empty()) {
                        long long veid = parseNumber(veidText, "--veid");
                        if (veid < 0 || veid > 2147483647LL)
                            throw UsageError("--veid '" + veidText + "' is out of range");
                        config->setVeid(static_cast<int>(veid));
                    }
                    if (!sampleText.empty()) {
                        KQC::KQCGUID id;
                        if (id.fromString(sampleText) != 0)
                            throw UsageError("--sample '" + sampleText + "' is not a sample identifier");
                        config->setBaseSampleId(id.toString());
                    }
                    if (!osTemplate.empty())
                        config->setOsTemplate(KQS::KQSTemplate::fromString(osTemplate));
                    if (!veRoot.empty())
                        config->setVERootVar(veRoot);
                    if (!vePrivate.empty())
                        config->setVEPrivateVar(vePrivate);
                    return Runner([config, eid](Session& session) {
                        boost::shared_ptr<KQC::KQCEnv> env;
                        Outcome outcome =
                            resultOf(session.envM().create(&env, *config, KQC::KQCStringSet(), false, eid));
                        if (outcome.rc == 0 && env)
                            outcome.payload["env"] = envToJson(*env);
                        return outcome;
                    });
                };
            });
}

void addSet(CommandLine& cli)
{
    cli.add(cli.root(), "set",
            "set CT [--name N] [--hostname H] [--description D] [--ip ADDR]... [--nameserver NS]... "
            "[--netif SPEC]... [--setmode M] [--unset KEY]... | set CT --sample ID [--category C]... [--param P]...",
            [&cli](CLI::App& command) -> Build {
                std::string& ctText = addCT(cli, command);
                ConfigOptions options = addConfigOptions(cli, command);
                auto& setMode = cli.value<std::string>();
                auto& unset = cli.value<std::vector<std::string>>();
                auto& sampleText = cli.value<std::string>();
                auto& categories = cli.value<std::vector<std::string>>();
                auto& parameters = cli.value<std::vector<std::string>>();
                command.add_option("--setmode", setMode, "restart|ignore");
                command.add_option("--unset", unset, "key to remove")->allow_extra_args(false);
                command.add_option("--sample", sampleText, "sample identifier");
                command.add_option("--category", categories, "sample category")->allow_extra_args(false);
                command.add_option("--param", parameters, "sample parameter")->allow_extra_args(false);
                return [=, &ctText, &setMode, &unset, &sampleText, &categories, &parameters] {
                    CtRef ct = parseCT(ctText);
                    if (!sampleText.empty()) {
                        KQC::KQCGUID id;
                        if (id.fromString(sampleText) != 0)
                            throw UsageError("--sample '" + sampleText + "' is not a sample identifier");
                        KQC::KQCStringSet cats(categories.begin(), categories.end());
                        KQC::KQCStringSet params(parameters.begin(), parameters.end());
                        std::string mode = setMode;
                        return onEnvironment(ct, [id, cats, params, mode](Session& session, const KQC::KQCEID& eid) {
                            Outcome outcome;
                            return resultOf(session.envM().set(eid, id, mode.empty() ? nullptr : mode.c_str(),
                                                               params, cats));
                        });
                    }
                    if (!categories.empty() || !parameters.empty())
                        throw UsageError("--category and --param need --sample");
                    boost::shared_ptr<KQS::KQSEnvConfig> config = configOf(options, false);
                    KQC::KQCStringSet keys(unset.begin(), unset.end());
                    std::string mode = setMode;
                    return onEnvironment(ct, [config, keys, mode](Session& session, const KQC::KQCEID& eid) {
                        Outcome outcome;
                        boost::shared_ptr<KQC::KQCEnvConfig> now;
                        outcome = resultOf(
                            session.envM().set(eid, *config, &now, keys, false, mode.empty() ? nullptr : mode.c_str()));
                        if (outcome.rc == 0) {
                            KQC::KQCEnvVector envs;
                            if (session.envM().getInfo(KQC::KQCEIDSet{eid}, envs, 0xffffffff) == 0 && envs.size() == 1)
                                outcome.payload["env"] = envToJson(*envs.front());
                        }
                        return outcome;
                    });
                };
            });
}

void addPassword(CommandLine& cli)
{
    cli.add(cli.root(), "password", "password CT USER", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& user = cli.value<std::string>();
        command.add_option("USER", user, "user name")->required();
        return [&ctText, &user] {
            CtRef ct = parseCT(ctText);
            std::string who = user;
            return onEnvironment(ct, [who](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                std::string password;
                std::getline(std::cin, password);
                return resultOf(session.kqsEnvM().setUserPassword(eid, who, password));
            });
        };
    });
}

} // namespace

void addCreateCommands(CommandLine& cli)
{
    addCreate(cli);
    addSet(cli);
    addPassword(cli);
}

} // namespace kqagent
