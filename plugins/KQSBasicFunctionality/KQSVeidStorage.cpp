#include "KQSVeidStorage.h"
#include "KQSResult.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cstdlib>

namespace KQS {

int KQSVeidStorage::getVeid(int& veid, int min) const
{
    if (!KQC::fentryExists(m_path)) {
        veid = min;
        return 0;
    }
    std::string text;
    if (KQC::file2str(m_path, text) != 0) {
        KQC::setErrorMessage("can't get ctid from file \"%s\"", m_path.c_str());
        return KQS_ERR_GENERIC;
    }
    // Text that is no number reads as 0 and so falls back to the minimum.
    veid = std::atoi(text.c_str());
    if (veid < min)
        veid = min;
    return 0;
}

int KQSVeidStorage::setVeid(int veid) const
{
    if (KQC::str2file(m_path, std::to_string(veid)) != 0) {
        KQC::setErrorMessage("can't save ctid to file \"%s\"", m_path.c_str());
        return KQS_ERR_GENERIC;
    }
    return 0;
}

} // namespace KQS
