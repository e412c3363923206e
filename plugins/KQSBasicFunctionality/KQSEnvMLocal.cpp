#include "KQSEnvMLocal.h"

#include "KQC/Error.h"
#include "KQC/HostPaths.h"

#include <fstream>

namespace KQS {
namespace {

// What is not there yet answers like an operation the platform does not
// offer, so that clients get a clear refusal rather than a wrong answer.
int notAvailable(const char* operation)
{
    KQC::setErrorMessage("%s is not available on this host yet", operation);
    return KQC::KQC_ERR_NOT_SUPPORTED;
}

// The value of KEY in a shell-variable file: the last assignment wins, as
// when the file is sourced. Quotes around the value are removed.
bool readShellValue(const std::string& path, const std::string& key, std::string& value)
{
    std::ifstream in(path);
    if (!in)
        return false;
    bool found = false;
    std::string line;
    while (std::getline(in, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, key.size() + 1, key + "=") != 0)
            continue;
        std::string text = line.substr(start + key.size() + 1);
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
            text.pop_back();
        if (text.size() >= 2 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0])
            text = text.substr(1, text.size() - 2);
        value = text;
        found = true;
    }
    return found;
}

} // namespace

KQSEnvMLocal::KQSEnvMLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

KQSEnvMLocal::~KQSEnvMLocal() = default;

int KQSEnvMLocal::create(boost::shared_ptr<KQC::KQCEnv>*, const KQC::KQCEnvConfig&, const KQC::KQCStringSet&, bool,
                         const KQC::KQCEID&)
{
    return notAvailable("create");
}

int KQSEnvMLocal::start(const KQC::KQCEID&) { return notAvailable("start"); }
int KQSEnvMLocal::stop(const KQC::KQCEID&, bool) { return notAvailable("stop"); }
int KQSEnvMLocal::restart(const KQC::KQCEID&) { return notAvailable("restart"); }
int KQSEnvMLocal::destroy(const KQC::KQCEID&) { return notAvailable("destroy"); }
int KQSEnvMLocal::repair(const KQC::KQCEID&) { return notAvailable("repair"); }
int KQSEnvMLocal::stop_repair(const KQC::KQCEID&) { return notAvailable("stop_repair"); }
int KQSEnvMLocal::mount(const KQC::KQCEID&) { return notAvailable("mount"); }
int KQSEnvMLocal::umount(const KQC::KQCEID&) { return notAvailable("umount"); }
int KQSEnvMLocal::upgrade(const KQC::KQCEID&) { return notAvailable("upgrade"); }
int KQSEnvMLocal::suspend(const KQC::KQCEID&) { return notAvailable("suspend"); }
int KQSEnvMLocal::pause(const KQC::KQCEID&) { return notAvailable("pause"); }
int KQSEnvMLocal::resume(const KQC::KQCEID&) { return notAvailable("resume"); }

int KQSEnvMLocal::getInfo(const KQC::KQCEIDSet& eids, KQC::KQCEnvVector& out, unsigned int mask)
{
    return getInfoEx(eids, out, mask, false);
}

int KQSEnvMLocal::getList(KQC::KQCEIDSet& out, const KQC::KQCEnvMListOptions& options)
{
    KQC::KQCEnvVector envs;
    int rc = getInfo(KQC::KQCEIDSet(), envs, 0xffffffff);
    if (rc)
        return rc;
    for (const auto& env : envs)
        if (options.states.empty() || options.states.count(env->getStatus().state()))
            out.insert(env->getEID());
    return 0;
}

int KQSEnvMLocal::set(const KQC::KQCEID&, const KQC::KQCEnvConfig&, boost::shared_ptr<KQC::KQCEnvConfig>*,
                      const KQC::KQCStringSet&, bool, const char*)
{
    return notAvailable("set");
}

int KQSEnvMLocal::set(const KQC::KQCEID&, const KQC::KQCGUID&, const char*, const KQC::KQCStringSet&,
                      const KQC::KQCStringSet&)
{
    return notAvailable("set from a sample");
}

int KQSEnvMLocal::getVirtualConfig(boost::shared_ptr<KQC::KQCVEnvConfig>&, const boost::shared_ptr<KQC::KQCNativeConfig>&)
{
    return notAvailable("getVirtualConfig");
}

int KQSEnvMLocal::getNativeConfig(boost::shared_ptr<KQC::KQCNativeConfig>&, const boost::shared_ptr<KQC::KQCVEnvConfig>&)
{
    return notAvailable("getNativeConfig");
}

int KQSEnvMLocal::findByVeid(int veid, KQC::KQCEID&)
{
    KQC::setErrorMessage("eid for ctid#%d not found", veid);
    return KQC::KQC_ERR_NO_ENV_FOR_VEID;
}

int KQSEnvMLocal::allocateVeid(int&) { return notAvailable("allocateVeid"); }

int KQSEnvMLocal::setUserPassword(const KQC::KQCEID&, const std::string&, const std::string&)
{
    return notAvailable("setUserPassword");
}

int KQSEnvMLocal::putPrivate(const KQC::KQCEID&, const std::string&, const std::string&)
{
    return notAvailable("putPrivate");
}

int KQSEnvMLocal::getPrivate(const KQC::KQCEID&, const std::string&, std::string&)
{
    return notAvailable("getPrivate");
}

int KQSEnvMLocal::move(const KQC::KQCEID&, int, const std::string&, const std::string&) { return notAvailable("move"); }

int KQSEnvMLocal::clone(const KQC::KQCEID&, const std::set<int>&, const std::string&, const std::string&)
{
    return notAvailable("clone");
}

int KQSEnvMLocal::getInfoEx(const KQC::KQCEIDSet&, KQC::KQCEnvVector&, unsigned int, bool)
{
    // The registry and the container listing are not joined yet: no
    // environment is known.
    return 0;
}

int KQSEnvMLocal::getLockDir(std::string& dir)
{
    std::string path = KQC::hostPath("/etc/sysconfig/kq");
    if (!readShellValue(path, "LOCKDIR", dir)) {
        KQC::setErrorMessage("can't read LOCKDIR from '%s'", path.c_str());
        return -1;
    }
    return 0;
}

std::string KQSEnvMLocal::getVPSAgentConfigPathByEid(const KQC::KQCEID& eid)
{
    return KQC::KQCInstanceFolders::etc().leaf("configs").leaf(eid.toString()).string();
}

} // namespace KQS
