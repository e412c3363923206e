#include "KQSEnvConfigLock.h"

#include "KQSEnvMLocal.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace KQS {

KQSEnvConfigLock::KQSEnvConfigLock() = default;

KQSEnvConfigLock::~KQSEnvConfigLock() { unlock(); }

int KQSEnvConfigLock::lock(const KQC::KQCEID& eid)
{
    m_path = KQSEnvMLocal::getVPSAgentConfigPathByEid(eid) + ".lck";
    int fd;
    do {
        fd = ::open(m_path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    m_handle.reset(new KQC::KQCHandle(fd));
    if (m_handle->isValid() && m_handle->lock(true) == 0)
        return 0;
    // The file may be somebody else's: forget its path so that unlock()
    // leaves it alone.
    m_handle.reset();
    m_path.clear();
    return -1;
}

void KQSEnvConfigLock::unlock()
{
    // Closing the descriptor releases its lock; no separate unlock to fail.
    m_handle.reset();
    if (!m_path.empty()) {
        ::unlink(m_path.c_str());
        m_path.clear();
    }
}

} // namespace KQS
