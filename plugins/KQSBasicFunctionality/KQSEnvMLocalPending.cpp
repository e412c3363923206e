// Weak stand-ins for two operations of the container enumeration, which
// lives in its own unit. Whenever that unit is linked in, its definitions
// replace these; until then the registry still links and answers: no
// container is enumerated, and a container's private area is read from its
// configuration file. Delete this file once the enumeration unit is merged.
#include "KQSEnvMLocal.h"
#include "KQSVEActionSystemLinux.h"

#include "KQSBashConfig.h"

#include "KQC/Error.h"
#include "KQC/HostPaths.h"

namespace KQS {

__attribute__((weak)) int KQSVEActionSystemLinux::getVPSList(KQSVPSList&, bool, bool) { return 0; }

__attribute__((weak)) int KQSVEActionSystemLinux::getPrivateDir(int veid, std::string* dir)
{
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("failed to read local vocabulary");
        return -1;
    }
    const std::string path = KQC::hostPath("/etc/sysconfig/kq-scripts/" + std::to_string(veid) + ".conf");
    KQSEnvConfig config;
    if (getBashConfig(path.c_str(), *parser, config) != 0)
        return -1;
    config.setVeid(veid);
    return config.getVEPrivate(*dir);
}

} // namespace KQS
