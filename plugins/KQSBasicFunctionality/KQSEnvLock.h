#pragma once
// The per-container transition lock, shared with the container tools: the
// file "VEID.lck" in the host's lock folder, holding the holder's pid, a
// newline and the name of the transition in progress (no newline after).
//
// A lock whose holder has died, or whose pid is not a positive number, is
// stale and is taken over silently. The
// liveness test (read the pid, kill(pid, 0), rewrite) is not atomic: two
// agents starting at the same moment could both take it, which is
// accepted. No mutex: an instance belongs to one thread at a time.
// Locking a locked instance or unlocking an unlocked one is a programming
// error and aborts.
#include "KQC/GUID.h"

#include <map>
#include <string>

namespace KQS {

// Transition state -> the word written into lock files ("creating", ...).
extern const std::map<int, std::string> VPSTransitionsReverseMapLinux;

class KQSEnvLock {
public:
    // veid 0: resolve it from `eid` (set the field before locking).
    KQSEnvLock(int veid, int state);
    ~KQSEnvLock();  // unlocks if locked

    // 0, or 1 with the message set when neither the VEID nor the EID leads
    // to a container, or the lock folder is unknown. Does nothing once the
    // path is known.
    int setPathLazy();
    // 0, or -1 with "Environment locked (in '%s' transition)" when a live
    // process holds it, or "Can't create lock" when writing failed (the
    // object then still counts as locked, so the file is removed later).
    int lock();
    void unlock();

    KQC::KQCEID eid;

    const std::string& path() const { return m_path; }
    bool locked() const { return m_locked; }

private:
    int m_veid;
    int m_state;
    std::string m_path;
    bool m_locked = false;
};

} // namespace KQS
