// kqsim init ROOT [--ipv6] [--ip-pool RANGE]...: an empty simulated host.
#include "Commands.h"
#include "HostFiles.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"
#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <unistd.h>

namespace KQSim {
namespace {

// A host that was made already, or any folder with content, is left alone:
// init never mixes a new host into existing files.
int checkTarget(const std::string& root)
{
    if (!entryExists(root))
        return 0;
    if (isSimulatedHost(root))
        return fail(1, root + ": already a simulated host");
    std::vector<std::string> names;
    if (!isDirectory(root) || listDirectory(root, names) != 0)
        return fail(1, root + ": not a folder");
    if (!names.empty())
        return fail(1, root + ": folder is not empty");
    return 0;
}

int makeFolders(const SimHost& host)
{
    static const char* const kFolders[] = {
        "/etc/sysconfig/kq-scripts", "/etc/kqsim", "/etc/kqagent/configs", "/var/lib/kqagent",
        "/usr/lib/kqagent", "/var/log/kqsim", "/var/lib/kqsim/kernel/host", "/var/lib/kqsim/proc",
        "/kq/root", "/kq/private", "/kq/lock", "/kq/dump", "/kq/template", "/proc", "/dev",
        "/bin", "/tmp", "/usr/share/corvantis-release"};
    for (const char* folder : kFolders)
        if (makeDirs(host.path(folder)) != 0)
            return -1;
    return 0;
}

int writeEmptyState(const SimHost& host)
{
    const char* const kEmptyFiles[] = {"/proc/mounts", "/var/log/kqsim/calls.log", "/etc/kqsim/faults",
                                       "/var/lib/kqsim/running", "/dev/kqctl", "/etc/fstab"};
    for (const char* file : kEmptyFiles)
        if (writeFileAtomic(host.path(file), "") != 0)
            return -1;
    if (writeFileAtomic(host.path("/proc/partitions"), partitionsText()) != 0 ||
        writeFileAtomic(host.path("/proc/filesystems"), fileSystemsText()) != 0)
        return -1;
    return writeFileAtomic(host.path("/proc/cpuinfo"), cpuInfoText());
}

int writeEnvFile(const SimHost& host)
{
    std::string text = "KQ_HOST_ROOT=" + (host.root.empty() ? std::string("/") : host.root) + "\n"
                       "KQSIM_BIN=" KQSIM_TOOLS_DIR "\n"
                       "KQSIM_PRELOAD=" KQSIM_PRELOAD_PATH "\n";
    return writeFileAtomic(host.envFile(), text);
}

int linkTool(const SimHost& host, const std::string& tool, const std::string& hostPath)
{
    std::string link = host.path(hostPath);
    std::string target = KQSIM_TOOLS_DIR "/" + tool;
    if (::symlink(target.c_str(), link.c_str()) != 0) {
        KQC::setErrorMessage("link '%s': %m", link.c_str());
        return -1;
    }
    return 0;
}

// The host's /bin/kqps, and the per-container agent in the agent's binary
// folder, where the host's agent starts it from.
int linkHostTools(const SimHost& host)
{
    if (linkTool(host, "kqps", "/bin/kqps") != 0)
        return -1;
    return linkTool(host, "kqsvpsagent", "/usr/lib/kqagent/kqsvpsagent");
}

int writeReleaseFiles(const SimHost& host, bool ipv6)
{
    if (writeFileAtomic(host.path("/etc/os-release"), osReleaseText()) != 0)
        return -1;
    if (writeFileAtomic(host.path("/usr/share/corvantis-release/packing.lst"), packingListText(ipv6)) != 0)
        return -1;
    if (!ipv6)
        return 0;
    if (makeDirs(host.path("/proc/net")) != 0)
        return -1;
    return writeFileAtomic(host.path("/proc/net/if_inet6"),
                           "00000000000000000000000000000001 01 80 10 80       lo\n");
}

// The agent's instance folders get the project's data files: vocabulary,
// agent configuration, repair files, action script samples.
int copyAgentData(const SimHost& host)
{
    std::string source = std::string(KQ_FRAMEWORK_DATA_DIR) + "/etc";
    if (!isDirectory(source))
        return 0;
    return copyTree(source, host.path("/etc/kqagent"));
}

int writeTemplates(const SimHost& host)
{
    std::string folder = host.path("/kq/template");
    for (const TemplateFile& file : templateFiles()) {
        std::string conf = folder + "/" + file.name + "/conf";
        if (makeDirs(conf) != 0)
            return -1;
        if (writeFileAtomic(conf + "/" + file.name + ".conf." + file.version, file.text) != 0)
            return -1;
        if (file.cached && writeFileAtomic(folder + "/" + file.name + "-" + file.version + ".tar.gz",
                                           emptyCacheArchive()) != 0)
            return -1;
    }
    return 0;
}

int buildHost(const SimHost& host, bool ipv6)
{
    if (makeFolders(host) != 0 || writeEmptyState(host) != 0 || writeEnvFile(host) != 0)
        return -1;
    if (writeFileAtomic(host.hostSettings(), hostSettingsText(host.root, ipv6)) != 0)
        return -1;
    if (writeFileAtomic(host.scriptsDir() + "/ve-basic.conf-sample", basicSampleText()) != 0)
        return -1;
    if (linkHostTools(host) != 0 || writeReleaseFiles(host, ipv6) != 0)
        return -1;
    if (writeTemplates(host) != 0)
        return -1;
    return copyAgentData(host);
}

} // namespace

int commandInit(const Arguments& args)
{
    bool ipv6 = false;
    std::string root;
    std::string pool;  // the agent's address pool, one range a line
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--ipv6")
            ipv6 = true;
        else if (arg == "--ip-pool" && i + 1 < args.size())
            pool += args[++i] + "\n";
        else if (root.empty() && !arg.empty() && arg[0] != '-')
            root = arg;
        else
            return fail(2, "init: unexpected argument '" + arg + "'");
    }
    if (root.empty())
        return fail(2, "init: ROOT is missing");
    SimHost host{absolutePath(root)};
    if (int refused = checkTarget(host.root))
        return refused;
    if (buildHost(host, ipv6) != 0)
        return failWithErrorMessage();
    // Written as given: checking the ranges is the agent's business.
    if (!pool.empty() && writeFileAtomic(host.path("/etc/kqagent/ip-pool.conf"), pool) != 0)
        return failWithErrorMessage();
    return 0;
}

} // namespace KQSim
