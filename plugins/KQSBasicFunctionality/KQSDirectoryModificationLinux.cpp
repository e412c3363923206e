#include "KQSDirectoryModificationLinux.h"

#include "KQC/Error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace KQS {
namespace {

// Creation, deletion, renaming and modification of entries, for as long as
// the descriptor is open.
const unsigned long kWatchedEvents = DN_MODIFY | DN_CREATE | DN_DELETE | DN_RENAME | DN_MULTISHOT;

KQSDirectoryModificationLinux* g_instance = nullptr;

void changeMask(int how)
{
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, KQSDirectoryModificationLinux::notificationSignal());
    sigprocmask(how, &only, nullptr);
}

// Keeps the handler of this thread away from the list while it changes
// (it may move in memory), then puts the mask back as it was, so that a
// signal left blocked by checkDir stays blocked.
class ListChange {
public:
    ListChange()
    {
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, KQSDirectoryModificationLinux::notificationSignal());
        sigprocmask(SIG_BLOCK, &only, &m_old);
    }
    ~ListChange() { sigprocmask(SIG_SETMASK, &m_old, nullptr); }
    ListChange(const ListChange&) = delete;
    ListChange& operator=(const ListChange&) = delete;

private:
    sigset_t m_old;
};

} // namespace

KQSDirectoryModificationLinux& KQSDirectoryModificationLinux::getInstance()
{
    static KQSDirectoryModificationLinux instance;
    g_instance = &instance;
    return instance;
}

KQSDirectoryModificationLinux::~KQSDirectoryModificationLinux()
{
    while (!m_dirs.empty()) {
        std::string path = m_dirs.back().path;
        unregisterDir(path.c_str());
    }
    g_instance = nullptr;
}

int KQSDirectoryModificationLinux::notificationSignal() { return SIGRTMIN + 7; }

KQSDirectoryModificationLinux::ModDirDescription* KQSDirectoryModificationLinux::findByPath(const std::string& path)
{
    auto it = std::find_if(m_dirs.begin(), m_dirs.end(),
                           [&](const ModDirDescription& dir) { return dir.path == path; });
    return it == m_dirs.end() ? nullptr : &*it;
}

int KQSDirectoryModificationLinux::registerDir(const char* path)
{
    if (findByPath(path))
        return 0;
    // Non-blocking, so that a named pipe put where a directory should be
    // cannot hang us; the notification request then fails on it.
    int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        KQC::setErrorMessage("open dir %s : %s", path, std::strerror(errno));
        return -1;
    }
    if (::fcntl(fd, F_SETSIG, notificationSignal()) != 0 || ::fcntl(fd, F_NOTIFY, kWatchedEvents) != 0) {
        int saved = errno;
        ::close(fd);
        KQC::setErrorMessage("fcntl on dir %s : %s", path, std::strerror(saved));
        return -1;
    }
    if (m_dirs.empty()) {
        struct sigaction action;
        std::memset(&action, 0, sizeof action);
        action.sa_sigaction = handler;
        // Interrupted system calls resume: the agent's other work must not
        // see EINTR because a watched directory changed.
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(notificationSignal(), &action, nullptr);
    }
    ModDirDescription dir;
    dir.path = path;
    dir.fd = fd;
    ListChange change;
    m_dirs.push_back(dir);
    return 0;
}

int KQSDirectoryModificationLinux::unregisterDir(const char* path)
{
    ModDirDescription* dir = findByPath(path);
    if (!dir)
        return 1;
    ::close(dir->fd);
    {
        ListChange change;
        m_dirs.erase(m_dirs.begin() + (dir - m_dirs.data()));
    }
    if (m_dirs.empty()) {
        // Asks without changing anything: the handler stays installed, so a
        // late notification still finds one.
        sigaction(notificationSignal(), nullptr, nullptr);
    }
    return 0;
}

int KQSDirectoryModificationLinux::checkDir(const char* path)
{
    ModDirDescription* dir = findByPath(path);
    if (!dir)
        return 1;
    changeMask(SIG_BLOCK);
    if (dir->modified) {
        dir->modified = 0;
        return 1;
    }
    changeMask(SIG_UNBLOCK);
    return 0;
}

void KQSDirectoryModificationLinux::handler(int, siginfo_t* info, void*)
{
    // Signal context: find the descriptor and mark it, nothing more.
    if (!g_instance || !info)
        return;
    for (ModDirDescription& dir : g_instance->m_dirs)
        if (dir.fd == info->si_fd) {
            dir.modified = 1;
            return;
        }
}

} // namespace KQS
