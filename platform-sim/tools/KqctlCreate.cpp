// kqctl create VEID --config SAMPLE [--name N] [--hostname H] [--ostemplate T]
//                   [--ipadd ADDR]... [--private DIR] [--root DIR] [--layout 3|4]
#include "Kqctl.h"

#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <set>

namespace KQSim {
namespace {

struct CreateRequest {
    std::string sample;
    std::string osTemplate;
    std::string privateArea, rootDir;
    int layout = 4;
    ConfigValues explicitValues;
    std::vector<std::string> addresses;
};

int parseCreate(const KqctlCall& call, CreateRequest& request)
{
    const std::vector<std::string>& options = call.options;
    for (size_t i = 0; i < options.size(); ++i) {
        const std::string& option = options[i];
        if (i + 1 >= options.size())
            return refuse(kExitUsage, "Missing value for " + option);
        const std::string& value = options[++i];
        if (option == "--config")
            request.sample = value;
        else if (option == "--ostemplate")
            request.osTemplate = value;
        else if (option == "--name")
            request.explicitValues.emplace_back("NAME", toolEscaped(value));
        else if (option == "--hostname")
            request.explicitValues.emplace_back("HOSTNAME", value);
        else if (option == "--ipadd")
            request.addresses.push_back(value);
        else if (option == "--private")
            request.privateArea = value;
        else if (option == "--root")
            request.rootDir = value;
        else if (option == "--layout" && (value == "3" || value == "4"))
            request.layout = value == "3" ? 3 : 4;
        else
            return refuse(kExitUsage, "Invalid option for create: " + option);
    }
    return 0;
}

// The sample's settings, without what belongs to the sample itself or to
// where the new container lives.
int sampleValues(const KqctlCall& call, const std::string& sample, ShellConfig& config)
{
    std::string path = call.host.scriptsDir() + "/ve-" + sample + ".conf-sample";
    if (!pathExists(path))
        return refuse(kExitFailed, "Sample configuration file " + path + " not found");
    if (config.load(path) != 0)
        return refuse(kExitFailed, KQC::getErrorMessage());
    for (const char* own : {"VE_ROOT", "VE_PRIVATE", "UUID", "NAME"})
        config.unset(own);
    return 0;
}

std::string defaultSample(const KqctlCall& call)
{
    ShellConfig settings;
    if (settings.load(call.host.hostSettings()) != 0)
        return "basic";
    return settings.get("CONFIGFILE", "basic");
}

std::string defaultOsTemplate(const KqctlCall& call)
{
    ShellConfig settings;
    return settings.load(call.host.hostSettings()) == 0 ? settings.get("DEF_OSTEMPLATE") : "";
}

} // namespace

int actionCreate(KqctlCall& call)
{
    CreateRequest request;
    if (int status = parseCreate(call, request))
        return status;
    if (entryExists(call.host.containerConfig(call.veid)))
        return refuse(kExitExists, "Container " + std::to_string(call.veid) + " already exists");
    std::string sample = request.sample.empty() ? defaultSample(call) : request.sample;
    ShellConfig config;
    if (int status = sampleValues(call, sample, config))
        return status;
    std::string osTemplate = !request.osTemplate.empty() ? request.osTemplate
                                                         : config.get("OSTEMPLATE", defaultOsTemplate(call));
    if (osTemplate.empty() || !isDirectory(call.settings.templateDir + "/" + osTemplate))
        return refuse(kExitFailed, "OS template '" + osTemplate + "' is not installed");

    ConfigValues values = config.values();
    for (auto& value : values)
        if (isToolEscapedKey(value.first))
            value.second = toolEscaped(value.second);
    values.emplace_back("OSTEMPLATE", osTemplate);
    // A sample written for one creation says which sample it came from.
    if (!config.has("ORIGIN_SAMPLE"))
        values.emplace_back("ORIGIN_SAMPLE", sample);
    values.insert(values.end(), request.explicitValues.begin(), request.explicitValues.end());
    if (!request.addresses.empty())
        values.emplace_back("IP_ADDRESS", joinWords(request.addresses));
    HostSettings settings = call.settings;
    if (!request.privateArea.empty())
        settings.vePrivate = request.privateArea;
    if (!request.rootDir.empty())
        settings.veRoot = request.rootDir;
    if (entryExists(expandVeid(settings.vePrivate, call.veid)))
        return refuse(kExitExists, "Private area already exists in " + expandVeid(settings.vePrivate, call.veid));

    progress(call, "Creating container private area (" + osTemplate + ")");
    ContainerFiles files;
    if (createContainer(call.host, settings, call.veid, request.layout, values, files) != 0) {
        std::string reason = KQC::getErrorMessage();
        removeTree(files.privateArea);
        return refuse(kExitFailed, reason);
    }
    progress(call, "Performing postcreate actions");
    progress(call, "Container private area was created");
    return kExitDone;
}

} // namespace KQSim
