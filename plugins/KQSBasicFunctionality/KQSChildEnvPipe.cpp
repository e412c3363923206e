#include "KQSChildEnvPipe.h"

#include "KQSVEActionSystemLinux.h"

#include "KQC/Configuration.h"
#include "KQC/Error.h"
#include "KQC/ExternOp.h"
#include "KQC/HostPaths.h"
#include "KQS/EnvConfig.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace KQS {
namespace {

const char* const kAgentProgram = "kqsvpsagent";
const char* const kAgentPath = "PATH=/bin:/sbin:/usr/bin:/usr/sbin:/usr/local/bin";

bool isValidVeid(int veid) { return veid > 0; }

// Registers the class while the plug-in is loaded; removes only what it
// registered (see the external operators' registration).
class PipeClassRegistration {
public:
    PipeClassRegistration()
        : m_registered(KQC::getChildEnvPipeFactory()->registerClass(KQSChildEnvPipePrototype::getClassName(),
                                                                    KQSChildEnvPipePrototype::createInstance,
                                                                    nullptr, 0) == 0)
    {
    }
    ~PipeClassRegistration()
    {
        if (m_registered)
            KQC::getChildEnvPipeFactory()->unregisterClass(KQSChildEnvPipePrototype::getClassName());
    }

private:
    bool m_registered;
};

const PipeClassRegistration registration;

} // namespace

KQSChildEnvPipePrototype::KQSChildEnvPipePrototype(void* data)
{
    const KQC::KQCEnv* env = static_cast<const KQC::KQCEnv*>(data);
    if (!env) {
        std::fprintf(stderr, "KQSChildEnvPipePrototype: Assertion `pEnv' failed.\n");
        std::abort();
    }
    m_eid = env->getEID();
    m_parentEid = env->getParentEID();
    if (!env->getConfig())
        return;
    KQSEnvConfig config(*env->getConfig());
    if (config.getVeid(m_veid) != 0)
        m_veid = 0;
    // Under repair the container runs from the repair root, not its own.
    if (env->getStatus().isRepairing())
        KQSVEActionSystemLinux::getRootDir(m_veid, &m_root);
    else if (config.getVERoot(m_root) != 0)
        m_root.clear();
}

KQC::KQCEventLoopPipePrototype* KQSChildEnvPipePrototype::createInstance(void* env)
{
    return new KQSChildEnvPipePrototype(env);
}

int KQSChildEnvPipePrototype::startAgent()
{
    std::vector<std::string> args = {KQC::KQCInstanceFolders::binary().leaf(kAgentProgram).string(),
                                     std::to_string(m_veid), m_root};
    KQC::KQCExternProgramExecuter executer(args, std::vector<std::string>{kAgentPath});
    boost::shared_ptr<KQC::KQCHandle> input, output;
    int pid = -1;
    const time_t start = std::time(nullptr);
    int startErrno = 0;
    // Tried again only while start + time-out < now, that is almost never:
    // a failed start is in practice tried once, after a one-second pause.
    while (executer.createProcess(input, output, pid) != 0) {
        startErrno = errno;
        ::sleep(1);
        if (!(start + getStartTimeout() < std::time(nullptr)))
            break;
    }
    if (!input || !input->isValid() || !output || !output->isValid()) {
        KQC::setErrorMessage("can't start %s for Container#%d: %s", kAgentProgram, m_veid, std::strerror(startErrno));
        return -1;
    }
    attach(input, output, pid);
    return 0;
}

int KQSChildEnvPipePrototype::sendConfiguration()
{
    const std::string path = KQC::KQCInstanceFolders::etc().leaf("KQSVpsAgent.conf");
    boost::shared_ptr<KQC::KQCConfiguration> config;
    if (KQC::KQCConfiguration::readFromFile(path, config) != 0) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("can't read %s : %s", path.c_str(), why.c_str());
        return -1;
    }
    config->setMaster(m_parentEid.toString());
    config->setMapping(m_parentEid.toString(), "");
    config->setEID(m_eid.toString());
    return writeMessage(*config->getMessage());
}

int KQSChildEnvPipePrototype::connect(const KQC::KQCConnectivityInfo*)
{
    if (!isValidVeid(m_veid)) {
        KQC::setErrorMessage("non valid ctid#%d", m_veid);
        return -1;
    }
    if (m_root.empty()) {
        KQC::setErrorMessage("non valid VE_ROOT for ctid#%d", m_veid);
        return -1;
    }
    if (startAgent() != 0)
        return -1;
    if (sendConfiguration() != 0) {
        close();
        return -1;
    }
    return 0;
}

int KQSChildEnvPipePrototype::getPeerInfo(KQC::KQCConnectivityInfo& info)
{
    int rc = KQC::KQCEventLoopPipePrototype::getPeerInfo(info);
    if (rc != 0)
        return rc;
    info.className = getClassName();
    return 0;
}

} // namespace KQS
