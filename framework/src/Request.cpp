#include "KQC/Request.h"

#include "KQC/Exec.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

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

void KQCRequestContextLocal::reportProgress(const std::string& line) const
{
    if (m_access)
        m_access->progress(line);
}

void KQCRequestContextLocal::freportProgress(const char* format, ...) const
{
    if (!m_access)
        return;
    std::vector<char> line(kMaxProgressLine + 1);
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line.data(), line.size(), format, args);
    va_end(args);
    if (length < 0)
        return;
    m_access->progress(line.data());
}

} // namespace KQC
