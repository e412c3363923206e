// kqmlocal -s SRC:DST:A:B            move container SRC to VEID DST
// kqmlocal -C SRC:DST:A:B [...]      clone SRC as DST (each copy in turn)
// Texts A and B are accepted and ignored. The areas follow the host
// settings' VE_ROOT / VE_PRIVATE with the new VEID. A moved container keeps
// its state; a clone is stopped.
// Exit: 0 done; 9 the source's transition lock is held; 1 other refusals
// (no source, target exists); 2 bad command line (an argument that is not
// SRC:DST:A:B with two positive VEIDs).
#include "Tools.h"

#include "TransitionLock.h"

#include "KQSim/Container.h"
#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

namespace KQSim {
namespace {

struct Pair {
    int source = 0;
    int target = 0;
};

int complain(int status, const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "kqmlocal: %s\n", text.c_str());
    return status;
}

// "SRC:DST:A:B": two VEIDs and the two texts, which may be empty (and may
// hold colons themselves: everything after the third colon is B's).
bool parsePair(const std::string& text, Pair& pair)
{
    size_t first = text.find(':');
    size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    size_t third = second == std::string::npos ? second : text.find(':', second + 1);
    if (third == std::string::npos)
        return false;
    return parseInt(text.substr(0, first), pair.source) &&
           parseInt(text.substr(first + 1, second - first - 1), pair.target) && pair.source > 0 && pair.target > 0;
}

void say(const std::string& line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// The new container's configuration in its place: the private area's
// ve.conf with a link for layout 4, the scripts folder's file otherwise.
// `link`: make the configuration folder's link to the ve.conf of layout 4
// (a move has made it already).
int writeConfig(const SimHost& host, const ContainerFiles& files, ShellConfig& config, bool link)
{
    config.set("VE_ROOT", files.rootDir);
    config.set("VE_PRIVATE", files.privateArea);
    std::string name = host.containerConfig(files.veid);
    if (files.layout != 4)
        return config.save(name);
    std::string target = files.privateArea + "/ve.conf";
    if (config.save(target) != 0)
        return -1;
    if (link && ::symlink(target.c_str(), name.c_str()) != 0) {
        KQC::setErrorMessage("link '%s': %m", name.c_str());
        return -1;
    }
    return 0;
}

int renamePath(const std::string& from, const std::string& to)
{
    if (::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
        KQC::setErrorMessage("rename '%s' -> '%s': %m", from.c_str(), to.c_str());
        return -1;
    }
    return 0;
}

class Migration {
public:
    explicit Migration(const SimHost& host) : m_host(host) {}

    int open() { return readHostSettings(m_host, m_settings) == 0 ? 0 : complain(1, KQC::getErrorMessage()); }

    // Interrupted at any moment, a move leaves the container's data with
    // exactly one container that has a configuration: the target's
    // configuration is in place before the private area moves (one rename),
    // and the source's is removed after it.
    int move(const Pair& pair)
    {
        ContainerFiles source, target;
        ShellConfig config;
        TransitionLock lock;
        if (int status = prepare(pair, "moving", source, target, config, lock))
            return status;
        say("Moving container " + std::to_string(pair.source) + " to " + std::to_string(pair.target) + " ...");
        StateLock state(m_host);
        bool running = isRunning(m_host, pair.source);
        bool mounted = isMounted(m_host, source.rootDir);
        if (placeTargetConfig(source, target, config) != 0)
            return complain(1, KQC::getErrorMessage());
        say("Moving private area " + source.privateArea + " to " + target.privateArea);
        if (renamePath(source.privateArea, target.privateArea) != 0) {
            std::string reason = KQC::getErrorMessage();
            ::unlink(target.configPath.c_str());
            return complain(1, reason);
        }
        ::unlink(source.configPath.c_str());
        if (renamePath(source.rootDir, target.rootDir) != 0 || writeConfig(m_host, target, config, false) != 0)
            return complain(1, KQC::getErrorMessage());
        renamePath(source.dumpFile(m_settings), target.dumpFile(m_settings));
        for (const char* script : {".mount", ".umount"})
            renamePath(m_host.scriptsDir() + "/" + std::to_string(pair.source) + script,
                       m_host.scriptsDir() + "/" + std::to_string(pair.target) + script);
        if (mounted && (setMounted(m_host, source.rootDir, false) != 0 || setMounted(m_host, target.rootDir, true) != 0))
            return complain(1, KQC::getErrorMessage());
        if (running && (setRunning(m_host, pair.source, false) != 0 || setRunning(m_host, pair.target, true) != 0))
            return complain(1, KQC::getErrorMessage());
        say("Container was moved");
        return 0;
    }

    int clone(const Pair& pair)
    {
        ContainerFiles source, target;
        ShellConfig config;
        TransitionLock lock;
        if (int status = prepare(pair, "cloning", source, target, config, lock))
            return status;
        say("Cloning container " + std::to_string(pair.source) + " as " + std::to_string(pair.target) + " ...");
        config.unset("UUID");
        if (copyTree(source.privateArea, target.privateArea) != 0 || makeDirs(target.rootDir) != 0) {
            std::string reason = KQC::getErrorMessage();
            removeTree(target.privateArea);
            return complain(1, reason);
        }
        ::unlink((target.privateArea + "/ve.conf").c_str());
        if (writeConfig(m_host, target, config, true) != 0)
            return complain(1, KQC::getErrorMessage());
        say("Container was cloned");
        return 0;
    }

private:
    // The target's configuration, before the private area moves. Layout 3:
    // its own file, naming areas that appear with the rename. Layout 4: the
    // file inside the area is made to name its areas by the "$VEID"
    // templates, which fit the source now and the target after the rename,
    // and the target's link to it is made ahead.
    int placeTargetConfig(const ContainerFiles& source, const ContainerFiles& target, ShellConfig config)
    {
        if (target.layout != 4)
            return writeConfig(m_host, target, config, false);
        config.set("VE_ROOT", m_settings.veRoot);
        config.set("VE_PRIVATE", m_settings.vePrivate);
        if (config.save(source.privateArea + "/ve.conf") != 0)
            return -1;
        std::string inside = target.privateArea + "/ve.conf";
        if (::symlink(inside.c_str(), target.configPath.c_str()) != 0) {
            KQC::setErrorMessage("link '%s': %m", target.configPath.c_str());
            return -1;
        }
        return 0;
    }

    int prepare(const Pair& pair, const char* word, ContainerFiles& source, ContainerFiles& target,
                ShellConfig& config, TransitionLock& lock)
    {
        if (findContainer(m_host, m_settings, pair.source, source, &config) != 0)
            return complain(1, KQC::getErrorMessage());
        if (pair.target == pair.source || entryExists(m_host.containerConfig(pair.target)))
            return complain(1, "Container " + std::to_string(pair.target) + " already exists");
        target.veid = pair.target;
        target.layout = source.layout;
        target.configPath = m_host.containerConfig(pair.target);
        target.rootDir = expandVeid(m_settings.veRoot, pair.target);
        target.privateArea = expandVeid(m_settings.vePrivate, pair.target);
        if (entryExists(target.privateArea))
            return complain(1, "Private area already exists in " + target.privateArea);
        int taken = lock.acquire(m_settings.lockDir, pair.source, word);
        if (taken == 1)
            return complain(9, "Container already locked");
        return taken == 0 ? 0 : complain(1, KQC::getErrorMessage());
    }

    SimHost m_host;
    HostSettings m_settings;
};

} // namespace

int runKqmlocal(const SimHost& host, const ToolArguments& args)
{
    if (args.size() < 3 || (args[1] != "-s" && args[1] != "-C") || (args[1] == "-s" && args.size() != 3))
        return complain(2, "usage: kqmlocal -s SRC:DST:A:B | kqmlocal -C SRC:DST:A:B...");
    std::vector<Pair> pairs;
    for (size_t i = 2; i < args.size(); ++i) {
        Pair pair;
        if (!parsePair(args[i], pair))
            return complain(2, "bad argument '" + args[i] + "': SRC:DST:A:B expected");
        pairs.push_back(pair);
    }
    Migration migration(host);
    if (int status = migration.open())
        return status;
    for (const Pair& pair : pairs)
        if (int status = args[1] == "-s" ? migration.move(pair) : migration.clone(pair))
            return status;
    return 0;
}

} // namespace KQSim
