#include "KQC/Request.h"

namespace KQC {

void KQCRequestLocal::reportProgress(const std::string& line) const
{
    if (m_access)
        m_access->progress(line);
}

} // namespace KQC
