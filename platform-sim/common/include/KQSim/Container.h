#pragma once
// A container's files on a simulated host.
//
// Layout 3: configuration ROOT/etc/sysconfig/kq-scripts/VEID.conf, file
// tree PRIVATE/root, action scripts beside the configuration as
// VEID.mount / VEID.umount.
// Layout 4: PRIVATE/.ve.layout holds "4", configuration PRIVATE/ve.conf
// with kq-scripts/VEID.conf a symbolic link to it, file tree
// PRIVATE/fs/root, action scripts in PRIVATE/scripts.
// A container's configuration holds VE_ROOT and VE_PRIVATE with the VEID
// put in; when it lacks them the host settings' templates are used.
// Failure: 0 or -1 with the framework's error message.
#include "KQSim/Host.h"
#include "KQSim/ShellConfig.h"

#include <string>
#include <utility>
#include <vector>

namespace KQSim {

struct ContainerFiles {
    int veid = 0;
    int layout = 3;
    std::string configPath;   // the name in kq-scripts (maybe a link)
    std::string rootDir;
    std::string privateArea;

    std::string fileTree() const;  // PRIVATE/root or PRIVATE/fs/root
    std::string dumpFile(const HostSettings& settings) const;
    std::string lockFile(const HostSettings& settings) const;
};

// A container that exists (its configuration file is there): fills files
// and, when given, the parsed configuration. -1 with "Container VEID does
// not exist" when there is no configuration.
int findContainer(const SimHost& host, const HostSettings& settings, int veid,
                  ContainerFiles& files, ShellConfig* config = nullptr);

using ConfigValues = std::vector<std::pair<std::string, std::string>>;

// Makes a new container: private area with the file tree and accounts,
// and the configuration file holding values plus VE_ROOT and VE_PRIVATE.
// Refuses when the configuration or the private area exists already.
int createContainer(const SimHost& host, const HostSettings& settings, int veid, int layout,
                    const ConfigValues& values, ContainerFiles& files);

// Removes the configuration (and its link), the private area, the root
// folder and the dump file.
int destroyContainer(const SimHost& host, const HostSettings& settings, const ContainerFiles& files);

} // namespace KQSim
