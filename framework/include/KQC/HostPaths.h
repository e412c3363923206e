#pragma once
// Where the host is: the host root and the agent's instance folders.
//
// Every fixed absolute host path ("/etc/fstab", "/dev/kqctl", ...) is
// resolved through hostPath() against the host root, taken from the
// environment variable KQ_HOST_ROOT (default "/"). With the variable unset
// the paths are exactly the ones given. Paths read from configuration files
// are used as they stand and never go through here.
//
// The agent's instance folders under the host root:
//   etc    = ROOT/etc/kqagent      (configuration: "configs", "repair", ...)
//   base   = ROOT/var/lib/kqagent  (state: "current_veid", ...)
//   binary = ROOT/usr/lib/kqagent
// Thread safety: all functions read the environment at each call and may be
// used from any thread as long as nobody changes KQ_HOST_ROOT meanwhile.
#include <string>

namespace KQC {

// The host root without a trailing slash ("" for "/").
std::string hostRoot();

// An absolute host path put under the host root: "/etc/fstab" becomes
// "ROOT/etc/fstab".
std::string hostPath(const std::string& absolutePath);

class KQCInstanceFolder {
public:
    explicit KQCInstanceFolder(std::string path) : m_path(std::move(path)) {}
    // The folder joined with one name.
    KQCInstanceFolder leaf(const std::string& name) const { return KQCInstanceFolder(m_path + "/" + name); }
    const std::string& string() const { return m_path; }
    operator std::string() const { return m_path; }

private:
    std::string m_path;
};

struct KQCInstanceFolders {
    static KQCInstanceFolder etc();
    static KQCInstanceFolder base();
    static KQCInstanceFolder binary();
};

} // namespace KQC
