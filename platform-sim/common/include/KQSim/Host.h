#pragma once
// Where a simulated host keeps its files, and its shared state.
//
// All paths are under the host root ROOT (absolute, no trailing slash).
// Fixed layout, shared with the simulated kernel:
//   ROOT/var/lib/kqsim/running          one VEID per line (running list)
//   ROOT/var/lib/kqsim/kernel/<VEID>/K  kernel values set by "kqsim set"
//   ROOT/var/lib/kqsim/kernel/host/K    host-wide kernel values
//   ROOT/var/lib/kqsim/proc/<VEID>      "VPID HOSTPID COMMAND" lines
//   ROOT/proc/mounts                    mounted container roots
// Failure: int operations return 0 or -1 with the framework's error message.
// Thread safety: no shared state; StateLock serialises processes.
#include "KQSim/Fs.h"

#include <set>
#include <string>
#include <vector>

namespace KQSim {

struct SimHost {
    std::string root;

    // An absolute host path under the root: "/etc/fstab" -> ROOT/etc/fstab.
    std::string path(const std::string& absolute) const { return root + absolute; }
    std::string callsLog() const { return path("/var/log/kqsim/calls.log"); }
    std::string faultsFile() const { return path("/etc/kqsim/faults"); }
    std::string envFile() const { return path("/etc/kqsim/env"); }
    std::string hostSettings() const { return path("/etc/sysconfig/kq"); }
    std::string scriptsDir() const { return path("/etc/sysconfig/kq-scripts"); }
    std::string containerConfig(int veid) const;
    std::string stateDir() const { return path("/var/lib/kqsim"); }
    std::string runningList() const { return stateDir() + "/running"; }
    std::string procMounts() const { return path("/proc/mounts"); }
    std::string kernelDir(const std::string& owner) const { return stateDir() + "/kernel/" + owner; }
    std::string processList(int veid) const;
};

// The host root from KQ_HOST_ROOT. Unset or empty is refused: the simulated
// tools must never touch the real host's files.
int hostFromEnvironment(SimHost& host);

// Whether root holds a simulated host (made by "kqsim init").
bool isSimulatedHost(const std::string& root);

// The host-wide settings the tools need from ROOT/etc/sysconfig/kq.
struct HostSettings {
    std::string veRoot;     // with "$VEID" still in it
    std::string vePrivate;  // likewise
    std::string lockDir;
    std::string dumpDir;
    std::string templateDir;
};
int readHostSettings(const SimHost& host, HostSettings& settings);

// Puts the VEID into a "$VEID" / "${VEID}" path template.
std::string expandVeid(const std::string& pathTemplate, int veid);

// Holds an exclusive flock on ROOT/var/lib/kqsim/state.lock while alive, so
// that read-modify-write of the running list and the mount table by
// concurrent tools never loses an update.
class StateLock {
public:
    explicit StateLock(const SimHost& host);
    bool locked() const { return m_fd.valid(); }

private:
    FileDescriptor m_fd;
};

// The running list and the mount table. Callers hold a StateLock around a
// read and the write that follows it.
int readRunning(const SimHost& host, std::set<int>& veids);
int writeRunning(const SimHost& host, const std::set<int>& veids);
int setRunning(const SimHost& host, int veid, bool running);
bool isRunning(const SimHost& host, int veid);

bool isMounted(const SimHost& host, const std::string& rootDir);
int setMounted(const SimHost& host, const std::string& rootDir, bool mounted);

// Parses a decimal int (the whole text); false when it is not one.
bool parseInt(const std::string& text, int& value);

// The words of a text separated by white space, as a list value holds them.
std::vector<std::string> splitWords(const std::string& text);
// The words joined with single spaces, the form list values are written in.
std::string joinWords(const std::vector<std::string>& words);

// The entries of a folder named by a number (per-container state folders),
// in ascending order; none when the folder cannot be read.
std::set<int> numberedEntries(const std::string& folder);

} // namespace KQSim
