#include "KQSim/Container.h"

#include "KQSim/Accounts.h"

#include "KQC/Error.h"

#include <cerrno>
#include <unistd.h>

namespace KQSim {
namespace {

int privateLayout(const std::string& privateArea)
{
    std::string text;
    if (readFile(privateArea + "/.ve.layout", text) != 0)
        return 3;
    int layout = 3;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return parseInt(text, layout) ? layout : 3;
}

int writeConfiguration(const ContainerFiles& files, const ConfigValues& values)
{
    ShellConfig config;
    config.set("VE_ROOT", files.rootDir);
    config.set("VE_PRIVATE", files.privateArea);
    for (const auto& value : values)
        config.set(value.first, value.second);
    if (files.layout != 4)
        return config.save(files.configPath);
    std::string target = files.privateArea + "/ve.conf";
    if (config.save(target) != 0)
        return -1;
    if (::symlink(target.c_str(), files.configPath.c_str()) != 0) {
        KQC::setErrorMessage("link '%s' -> '%s': %m", files.configPath.c_str(), target.c_str());
        return -1;
    }
    return 0;
}

} // namespace

std::string ContainerFiles::fileTree() const
{
    return privateArea + (layout == 4 ? "/fs/root" : "/root");
}

std::string ContainerFiles::dumpFile(const HostSettings& settings) const
{
    return settings.dumpDir + "/Dump." + std::to_string(veid);
}

std::string ContainerFiles::lockFile(const HostSettings& settings) const
{
    return settings.lockDir + "/" + std::to_string(veid) + ".lck";
}

int findContainer(const SimHost& host, const HostSettings& settings, int veid,
                  ContainerFiles& files, ShellConfig* config)
{
    files.veid = veid;
    files.configPath = host.containerConfig(veid);
    ShellConfig own;
    ShellConfig& parsed = config ? *config : own;
    if (!pathExists(files.configPath)) {
        KQC::setErrorMessage("Container %d does not exist", veid);
        return -1;
    }
    if (parsed.load(files.configPath) != 0)
        return -1;
    files.rootDir = expandVeid(parsed.get("VE_ROOT", settings.veRoot), veid);
    files.privateArea = expandVeid(parsed.get("VE_PRIVATE", settings.vePrivate), veid);
    files.layout = privateLayout(files.privateArea);
    return 0;
}

int createContainer(const SimHost& host, const HostSettings& settings, int veid, int layout,
                    const ConfigValues& values, ContainerFiles& files)
{
    files.veid = veid;
    files.layout = layout;
    files.configPath = host.containerConfig(veid);
    files.rootDir = expandVeid(settings.veRoot, veid);
    files.privateArea = expandVeid(settings.vePrivate, veid);
    if (entryExists(files.configPath)) {
        KQC::setErrorMessage("Container %d already exists", veid);
        return -1;
    }
    if (entryExists(files.privateArea)) {
        KQC::setErrorMessage("Private area already exists in %s", files.privateArea.c_str());
        return -1;
    }
    // Every private area has a scripts folder, whatever its layout: the
    // repair-time action scripts go there.
    if (makeDirs(files.fileTree()) != 0 || makeDirs(files.rootDir) != 0
        || makeDirs(files.privateArea + "/scripts") != 0)
        return -1;
    if (layout == 4 && writeFileAtomic(files.privateArea + "/.ve.layout", "4\n") != 0)
        return -1;
    if (writeAccounts(files.fileTree()) != 0)
        return -1;
    return writeConfiguration(files, values);
}

int destroyContainer(const SimHost& host, const HostSettings& settings, const ContainerFiles& files)
{
    if (::unlink(files.configPath.c_str()) != 0 && errno != ENOENT) {
        KQC::setErrorMessage("remove '%s': %m", files.configPath.c_str());
        return -1;
    }
    std::string base = host.scriptsDir() + "/" + std::to_string(files.veid);
    ::unlink((base + ".mount").c_str());
    ::unlink((base + ".umount").c_str());
    ::unlink(files.dumpFile(settings).c_str());
    if (removeTree(files.privateArea) != 0)
        return -1;
    return removeTree(files.rootDir);
}

} // namespace KQSim
