// Stand-ins for operations that other branches of this plug-in define: the
// container configuration path (the control-tool actions) and the
// registry's configuration helpers. They are weak, so the real definitions
// replace them as soon as both are linked together; this file then goes.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/HostPaths.h"
#include "KQC/Vocabulary.h"

#include <set>
#include <string>

namespace KQS {

__attribute__((weak)) std::string KQSVEActionSystemLinux::getVPSSystemConfigPathByVeid(int veid)
{
    return KQC::hostPath("/etc/sysconfig/kq-scripts/") + std::to_string(veid) + ".conf";
}

__attribute__((weak)) boost::shared_ptr<KQSEnvConfigBashParser> KQSEnvMLocal::getLocalEnvConfigParser()
{
    KQC::KQCVocabularyPtr local = KQC::vocCacheLocal()->getVocabulary();
    if (!local)
        return boost::shared_ptr<KQSEnvConfigBashParser>();
    return KQSEnvConfigBashParser::getInstance(KQC::KQCVocMap(local, std::set<std::string>()));
}

__attribute__((weak)) void KQSEnvMLocal::mergeConfigsKQDefaultToVE(const KQSEnvConfig&, KQSEnvConfig&) {}

__attribute__((weak)) void KQSEnvMLocal::fillSystemInfo(KQSEnvConfig&) {}

} // namespace KQS
