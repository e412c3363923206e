// mount [-n] [-t TYPE] [-o OPTIONS] DEVICE DIR and umount [-n] DIR on the
// simulated host: nothing is mounted for real; the kernel's mount table
// (ROOT/proc/mounts) gets or loses the line "DEVICE DIR TYPE OPTIONS 0 0".
// Exit 32, as the system's tools do for a failed mount, when DIR does not
// exist or is mounted already (mount), or is not mounted (umount); 1 for a
// bad command line.
#include "Tools.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"

#include <cstdio>

namespace KQSim {
namespace {

const int kMountFailure = 32;

int usage(const std::string& tool)
{
    std::fprintf(stderr, "%s: bad usage\n", tool.c_str());
    return 1;
}

} // namespace

int runMount(const SimHost& host, const ToolArguments& args)
{
    std::string type = "auto", options = "rw", device, dir;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-n")
            continue;
        if ((arg == "-t" || arg == "-o") && i + 1 < args.size())
            (arg == "-t" ? type : options) = args[++i];
        else if (!arg.empty() && arg[0] == '-')
            return usage("mount");
        else if (device.empty())
            device = arg;
        else if (dir.empty())
            dir = arg;
        else
            return usage("mount");
    }
    if (dir.empty())
        return usage("mount");
    if (!isDirectory(dir)) {
        std::fprintf(stderr, "mount: %s: mount point does not exist.\n", dir.c_str());
        return kMountFailure;
    }
    if (isMounted(host, dir)) {
        std::fprintf(stderr, "mount: %s: %s already mounted on %s.\n", dir.c_str(), device.c_str(), dir.c_str());
        return kMountFailure;
    }
    std::string text;
    if (pathExists(host.procMounts()) && readFile(host.procMounts(), text) != 0)
        return kMountFailure;
    text += device + " " + dir + " " + type + " " + options + " 0 0\n";
    return writeFileAtomic(host.procMounts(), text) == 0 ? 0 : kMountFailure;
}

int runUmount(const SimHost& host, const ToolArguments& args)
{
    std::string dir;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "-n")
            continue;
        if (!dir.empty() || args[i].empty() || args[i][0] == '-')
            return usage("umount");
        dir = args[i];
    }
    if (dir.empty())
        return usage("umount");
    if (!isMounted(host, dir)) {
        std::fprintf(stderr, "umount: %s: not mounted.\n", dir.c_str());
        return kMountFailure;
    }
    return setMounted(host, dir, false) == 0 ? 0 : kMountFailure;
}

} // namespace KQSim
