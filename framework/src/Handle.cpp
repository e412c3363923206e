#include "KQC/Handle.h"

#include "KQC/Error.h"

#include <cerrno>
#include <sys/file.h>
#include <unistd.h>

namespace KQC {
namespace {

void closeKeepingErrno(int fd)
{
    // close() is not retried on EINTR: on Linux the descriptor is gone
    // either way, and a retry could close a descriptor another thread just
    // opened under the same number.
    int saved = errno;
    ::close(fd);
    errno = saved;
}

int flockRetrying(int fd, int operation)
{
    int rc;
    do {
        rc = ::flock(fd, operation);
    } while (rc != 0 && errno == EINTR);
    return rc;
}

} // namespace

KQCHandle::KQCHandle(int fd) : m_fd(fd) {}

KQCHandle::~KQCHandle() { reset(); }

KQCHandle::KQCHandle(KQCHandle&& other) noexcept : m_fd(other.release()) {}

KQCHandle& KQCHandle::operator=(KQCHandle&& other) noexcept
{
    if (this != &other)
        reset(other.release());
    return *this;
}

bool KQCHandle::isValid() const { return m_fd >= 0; }

int KQCHandle::get() const { return m_fd; }

int KQCHandle::release()
{
    int fd = m_fd;
    m_fd = -1;
    return fd;
}

void KQCHandle::reset(int fd)
{
    if (m_fd >= 0 && m_fd != fd)
        closeKeepingErrno(m_fd);
    m_fd = fd;
}

int KQCHandle::lock(bool wait)
{
    if (m_fd < 0) {
        errno = EBADF;
        setErrorMessage("can't lock: no open descriptor");
        return -1;
    }
    if (flockRetrying(m_fd, wait ? LOCK_EX : (LOCK_EX | LOCK_NB)) != 0) {
        setErrorMessage("can't lock descriptor %d: %m", m_fd);
        return -1;
    }
    return 0;
}

int KQCHandle::unlock()
{
    if (m_fd < 0) {
        errno = EBADF;
        setErrorMessage("can't unlock: no open descriptor");
        return -1;
    }
    if (flockRetrying(m_fd, LOCK_UN) != 0) {
        setErrorMessage("can't unlock descriptor %d: %m", m_fd);
        return -1;
    }
    return 0;
}

} // namespace KQC
