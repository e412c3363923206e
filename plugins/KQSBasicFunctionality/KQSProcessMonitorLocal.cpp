#include "KQSProcessMonitorLocal.h"

#include "KQSEnvMLocal.h"
#include "KQSProcessParser.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"

namespace KQS {

KQSProcessMonitorLocal::KQSProcessMonitorLocal(const KQC::KQCAccessProvider& access)
    : KQCRequestModificatorLocal(access)
{
}

int KQSProcessMonitorLocal::get(KQC::KQCProcessList* out, const KQC::KQCEID& eid, const std::string& text,
                                int number, bool flag)
{
    return KQC::guardedCall("get", [&] {
        auto context = KQC::KQCAccessChecker::getClientContext(access());
        if (int rc = KQC::KQCAccessChecker::accessCheck(context, eid, KQC::RIGHT_PROCESS_LIST))
            return rc;
        int veid = 0;
        if (eid.isValid()) {
            KQSEnvMLocal envM(access());
            if (envM.findByEid(eid, &veid) != 0)
                return static_cast<int>(KQC_ERR_PROCESS_LIST);
        }
        KQSProcessParser* parser = KQSProcessParser::instance();
        if (!parser || !parser->isValid())
            return static_cast<int>(KQC_ERR_PROCESS_LIST);
        KQSProcessParser::KQParserOptions options(veid, text, number, flag);
        if (parser->getProcesses(*out, options) != 0)
            return static_cast<int>(KQC_ERR_PROCESS_LIST);
        return KQC::KQCProcessParser::optimizeProcesses(*out, options);
    });
}

} // namespace KQS
