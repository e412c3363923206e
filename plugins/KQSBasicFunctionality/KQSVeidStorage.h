#pragma once
// The stored VEID: one file holding a VEID as decimal text, nothing else
// ("current_veid" in the agent's base folder).
//
// The store does no locking of its own; whoever needs read-modify-write
// across processes holds the companion file lock ("current_veid.lock").
// An instance may be shared by threads only when they do not write at once.
#include <string>

namespace KQS {

class KQSVeidStorage {
public:
    explicit KQSVeidStorage(const std::string& path) : m_path(path) {}

    // The stored VEID, never below `min`; a missing file gives `min`. 0, or
    // -1 with "can't get ctid from file \"PATH\"" when the file is unreadable.
    int getVeid(int& veid, int min) const;
    // Replaces the file with the decimal text of `veid`. 0, or -1 with
    // "can't save ctid to file \"PATH\"".
    int setVeid(int veid) const;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace KQS
