#pragma once
// Process-local locks.
//
// KQCLock is a plain mutual-exclusion lock (not recursive); KQCGuardT holds
// one for the extent of a scope. They serialise threads of one process;
// between processes the file locks (KQCHandle::lock) are used.
#include <mutex>

namespace KQC {

class noncopyable {
protected:
    noncopyable() = default;
    ~noncopyable() = default;
    noncopyable(const noncopyable&) = delete;
    noncopyable& operator=(const noncopyable&) = delete;
};

class KQCLock : noncopyable {
public:
    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }
    bool tryLock() { return m_mutex.try_lock(); }

private:
    std::mutex m_mutex;
};

template <class L>
class KQCGuardT : noncopyable {
public:
    explicit KQCGuardT(L& lock) : m_lock(lock) { m_lock.lock(); }
    ~KQCGuardT() { m_lock.unlock(); }

private:
    L& m_lock;
};

typedef KQCGuardT<KQCLock> KQCGuard;

} // namespace KQC
