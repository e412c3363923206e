#include "KQC/Request.h"

#include "KQC/Exec.h"

namespace KQC {

void KQCRequestLocal::setProgressOutputHandler(GenExec& exec) const
{
    // The handler keeps the provider alive for as long as the executor may
    // report, even if this manager is gone by then.
    KQCAccessProvider access = m_access;
    exec.setOutputHandler([access](const std::string& line) {
        if (access)
            access->progress(line);
    });
}

void KQCRequestLocal::reportProgress(const std::string& line) const
{
    if (m_access)
        m_access->progress(line);
}

} // namespace KQC
