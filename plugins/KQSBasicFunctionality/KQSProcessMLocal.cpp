#include "KQSProcessMLocal.h"

#include "KQC/Error.h"

namespace KQS {

KQSProcessMLocal::KQSProcessMLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

int KQSProcessMLocal::kill(const KQC::KQCEID&, const std::vector<int>&, int)
{
    KQC::setErrorMessage("kill is not available on this host yet");
    return KQC::KQC_ERR_NOT_SUPPORTED;
}

} // namespace KQS
