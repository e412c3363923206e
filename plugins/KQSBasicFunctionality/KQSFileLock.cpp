#include "KQSFileLock.h"

#include "KQC/Error.h"

#include <cerrno>
#include <fcntl.h>

namespace KQS {

KQSFileLock::KQSFileLock(const std::string& path) : m_path(path) {}

int KQSFileLock::createFileIfNeeded()
{
    if (!m_handle || !m_handle->isValid()) {
        int fd;
        do {
            fd = ::open(m_path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
        } while (fd < 0 && errno == EINTR);
        m_handle.reset(new KQC::KQCHandle(fd));
    }
    if (!m_handle->isValid()) {
        KQC::setErrorMessage("can't create lock file \"%s\"", m_path.c_str());
        return -1;
    }
    return 0;
}

int KQSFileLock::lock(bool wait)
{
    if (createFileIfNeeded() != 0)
        return -1;
    return m_handle->lock(wait);
}

int KQSFileLock::unlock()
{
    if (!m_handle || !m_handle->isValid())
        return -1;
    return m_handle->unlock();
}

} // namespace KQS
