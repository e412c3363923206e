#pragma once
// Tells whether a directory changed since the last question, so that a
// cached view of it can be kept until it does.
//
// The kernel's directory notification (F_NOTIFY) sends the real-time signal
// SIGRTMIN+7 for every creation, deletion, rename or modification of an
// entry of a registered directory; the handler only marks the directory.
// The signal belongs to this class: nobody else may use it.
//
// One instance per process (getInstance). A directory is registered once and
// then asked about with checkDir before its cached view is trusted; the
// first check after registering always reports a change.
// Thread safety: register and unregister from one thread (the list is not
// protected against concurrent changes or the handler); checkDir may be
// called from that thread at any time. checkDir blocks the signal in the
// calling thread while it reads a mark.
// Failure: registerDir returns -1 with the thread's error message set and
// leaves nothing registered and no descriptor open.
#include <csignal>
#include <string>
#include <vector>

namespace KQS {

class KQSDirectoryModificationLinux {
public:
    static KQSDirectoryModificationLinux& getInstance();

    // 0 (also when it is registered already), or -1.
    int registerDir(const char* path);
    // 0 when it was registered, 1 when it was not.
    int unregisterDir(const char* path);
    // 1 when the directory changed since the last check or is not
    // registered, 0 when it did not change.
    //
    // After reporting a change the signal stays blocked in the calling
    // thread, so further notifications wait, pending, until the next check
    // that finds no change unblocks it and lets them in. That check answers
    // 0 and the one after it reports the change.
    int checkDir(const char* path);

    static void handler(int signal, siginfo_t* info, void* context);

    // The notification signal: SIGRTMIN + 7.
    static int notificationSignal();

private:
    struct ModDirDescription {
        std::string path;
        int fd = -1;
        volatile sig_atomic_t modified = 1;
    };

    KQSDirectoryModificationLinux() = default;
    ~KQSDirectoryModificationLinux();
    KQSDirectoryModificationLinux(const KQSDirectoryModificationLinux&) = delete;
    KQSDirectoryModificationLinux& operator=(const KQSDirectoryModificationLinux&) = delete;

    ModDirDescription* findByPath(const std::string& path);

    std::vector<ModDirDescription> m_dirs;
};

} // namespace KQS
