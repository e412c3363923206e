#pragma once
// A lock on a named file that is created on first use (the VEID counter's
// "current_veid.lock"). Advisory and file-based, so it holds between
// processes; it has no mutex of its own and an instance belongs to one
// thread at a time. The file is never removed and, once opened, the
// descriptor stays open for the life of the object.
#include "KQC/Handle.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace KQS {

class KQSFileLock {
public:
    explicit KQSFileLock(const std::string& path);
    // 0, or -1 with "can't create lock file \"PATH\"".
    int createFileIfNeeded();
    // -1 when the file cannot be created; otherwise the handle's lock
    // result (0 = locked). `wait` is passed on: true blocks until the lock
    // is free, false fails at once when it is held.
    int lock(bool wait);
    // -1 when nothing was ever opened; else releases the lock, 0.
    int unlock();

private:
    boost::shared_ptr<KQC::KQCHandle> m_handle;
    std::string m_path;
};

} // namespace KQS
