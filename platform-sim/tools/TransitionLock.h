#pragma once
// The per-container transition lock that the plug-in honours too:
// LOCKDIR/VEID.lck holding the holder's pid, "\n" and the transition word,
// with no trailing newline.
//
// The file appears complete or not at all: it is written under a private
// name and hard-linked into place, so a reader never sees half of it and
// two tools never both take it. A lock whose pid is gone (or whose content
// is unreadable) is stale and is taken over.
// Thread safety: one object per holder; the destructor removes the file.
#include <string>

namespace KQSim {

class TransitionLock {
public:
    TransitionLock() = default;
    ~TransitionLock();
    TransitionLock(const TransitionLock&) = delete;
    TransitionLock& operator=(const TransitionLock&) = delete;

    // 0 taken; 1 held by a live process (its word in holderWord()); -1 on
    // a system error with the framework's message set.
    int acquire(const std::string& lockDir, int veid, const std::string& word);
    const std::string& holderWord() const { return m_holderWord; }

private:
    int tryLink(const std::string& privateName);

    std::string m_path;
    std::string m_holderWord;
    bool m_held = false;
};

} // namespace KQSim
