#pragma once
// An owned file descriptor, with an exclusive advisory lock on it.
//
// Ownership: a KQCHandle closes its descriptor when destroyed or reset;
// release() hands the descriptor over to the caller. Handles move, they do
// not copy. Thread safety: one handle is used by one thread at a time.
// Failure: lock() and unlock() return 0, or -1 with the framework's error
// message set and errno left as the system call left it.

namespace KQC {

class KQCHandle {
public:
    explicit KQCHandle(int fd = -1);
    ~KQCHandle();
    KQCHandle(KQCHandle&& other) noexcept;
    KQCHandle& operator=(KQCHandle&& other) noexcept;
    KQCHandle(const KQCHandle&) = delete;
    KQCHandle& operator=(const KQCHandle&) = delete;

    bool isValid() const;
    int get() const;
    // Gives the descriptor up without closing it; the handle becomes empty.
    int release();
    // Closes the current descriptor (if any) and takes over fd.
    void reset(int fd = -1);

    // Exclusive flock(2) on the descriptor. wait=true blocks until the lock
    // is ours (interrupted waits are resumed); wait=false fails at once with
    // errno EWOULDBLOCK when another open file description holds it. The
    // lock belongs to the open file description, so it lasts until unlock()
    // or until the last copy of the descriptor is closed.
    [[nodiscard]] int lock(bool wait);
    [[nodiscard]] int unlock();

private:
    int m_fd;
};

} // namespace KQC
