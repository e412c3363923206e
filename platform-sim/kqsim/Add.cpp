// kqsim add ROOT VEID [options]: a container as the platform would have it.
#include "Commands.h"
#include "HostFiles.h"

#include "KQSim/Container.h"
#include "KQSim/Host.h"
#include "KQSim/Netif.h"
#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <map>

namespace KQSim {
namespace {

struct AddRequest {
    std::string root;
    int veid = 0;
    std::string state = "stopped";
    int layout = 3;
    std::string name, hostname, osTemplate, type, offlineManagement;
    bool hasName = false, hasHostname = false;
    std::vector<std::string> addresses;
    std::vector<std::string> netifs;
};

// Options that take one value; the rest of the parsing is the positionals.
int takeOption(AddRequest& request, const std::string& option, const std::string& value)
{
    int number = 0;
    if (option == "--state") {
        if (value != "stopped" && value != "mounted" && value != "suspended" && value != "running")
            return fail(2, "add: --state must be stopped, mounted, suspended or running");
        request.state = value;
    } else if (option == "--name") {
        request.name = value;
        request.hasName = true;
    } else if (option == "--hostname") {
        request.hostname = value;
        request.hasHostname = true;
    } else if (option == "--ip") {
        request.addresses.push_back(value);
    } else if (option == "--ostemplate") {
        request.osTemplate = value;
    } else if (option == "--type") {
        if (!parseInt(value, number))
            return fail(2, "add: --type needs a number");
        request.type = value;
    } else if (option == "--netif") {
        request.netifs.push_back(value);
    } else if (option == "--offline-management") {
        if (value != "yes" && value != "no")
            return fail(2, "add: --offline-management must be yes or no");
        request.offlineManagement = value;
    } else if (option == "--layout") {
        if (value != "3" && value != "4")
            return fail(2, "add: --layout must be 3 or 4");
        request.layout = value == "4" ? 4 : 3;
    } else {
        return fail(2, "add: unknown option '" + option + "'");
    }
    return 0;
}

int parseRequest(const Arguments& args, AddRequest& request)
{
    std::vector<std::string> positionals;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg.size() > 2 && arg.compare(0, 2, "--") == 0) {
            if (i + 1 >= args.size())
                return fail(2, "add: " + arg + " needs a value");
            if (int status = takeOption(request, arg, args[++i]))
                return status;
        } else {
            positionals.push_back(arg);
        }
    }
    if (positionals.size() != 2)
        return fail(2, "add: ROOT and VEID expected");
    request.root = absolutePath(positionals[0]);
    if (!parseInt(positionals[1], request.veid))
        return fail(2, "add: VEID must be a number, not '" + positionals[1] + "'");
    return 0;
}

int configValues(const AddRequest& request, ConfigValues& values)
{
    auto put = [&values](const std::string& key, const std::string& value) { values.emplace_back(key, value); };
    put("ONBOOT", "no");
    put("OSTEMPLATE", request.osTemplate.empty() ? kDefaultOsTemplate : request.osTemplate);
    put("ORIGIN_SAMPLE", "basic");
    put("DISKSPACE", "1048576:1153434");
    put("DISKINODES", "200000:220000");
    put("NAMESERVER", "192.0.2.53");
    if (request.hasName)
        put("NAME", toolEscaped(request.name));
    if (request.hasHostname)
        put("HOSTNAME", request.hostname);
    if (!request.addresses.empty())
        put("IP_ADDRESS", joinWords(request.addresses));
    if (!request.type.empty())
        put("VE_TYPE", request.type);
    if (!request.offlineManagement.empty())
        put("OFFLINE_MANAGEMENT", request.offlineManagement);
    std::string netif;
    for (size_t i = 0; i < request.netifs.size(); ++i) {
        std::string adapter;
        if (normalizeNetif(request.netifs[i], request.veid, static_cast<int>(i), adapter) != 0)
            return fail(2, std::string("add: ") + KQC::getErrorMessage());
        netif += (i ? ";" : "") + adapter;
    }
    if (!request.netifs.empty())
        put("NETIF", netif);
    return 0;
}

int applyState(const SimHost& host, const HostSettings& settings, const ContainerFiles& files,
               const std::string& state)
{
    if (state == "suspended")
        return writeFileAtomic(files.dumpFile(settings), "simulated checkpoint of container "
                                                         + std::to_string(files.veid) + "\n");
    if (state == "stopped")
        return 0;
    StateLock lock(host);
    if (!lock.locked() || setMounted(host, files.rootDir, true) != 0)
        return -1;
    return state == "running" ? setRunning(host, files.veid, true) : 0;
}

} // namespace

int commandAdd(const Arguments& args)
{
    AddRequest request;
    if (int status = parseRequest(args, request))
        return status;
    ConfigValues values;
    if (int status = configValues(request, values))
        return status;
    SimHost host{request.root};
    if (int status = requireSimulatedHost(host.root))
        return status;
    HostSettings settings;
    ContainerFiles files;
    if (readHostSettings(host, settings) != 0
        || createContainer(host, settings, request.veid, request.layout, values, files) != 0
        || applyState(host, settings, files, request.state) != 0)
        return failWithErrorMessage();
    return 0;
}

} // namespace KQSim
