#include "KQSEnvLock.h"
#include "KQSResult.h"

#include "KQSEnvMLocal.h"

#include "KQC/EnvCache.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQS/EnvConfig.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace KQS {
namespace {

const std::pair<int, const char*> kTransitionNames[] = {
    {2, "creating"},         {3, "mounting"},         {4, "starting"},  {5, "stopping"},    {6, "unmounting"},
    {7, "destroying"},       {8, "moving"},           {9, "cloning"},   {10, "migrating"},  {11, "starting-repair"},
    {12, "stopping-repair"}, {13, "setting"},         {14, "updating"}, {15, "backing-up"}, {16, "restoring"},
    {17, "reinstalling"},    {18, "suspending"},      {19, "resuming"}, {20, "restarting"},
};

std::map<int, std::string> buildReverseMap()
{
    std::map<int, std::string> names;
    for (const auto& entry : kTransitionNames)
        names[entry.first] = entry.second;
    return names;
}

std::string transitionName(int state)
{
    auto it = VPSTransitionsReverseMapLinux.find(state);
    return it == VPSTransitionsReverseMapLinux.end() ? "unknown" : it->second;
}

// A violated precondition is a programming error of the caller.
void require(bool condition, const char* text)
{
    if (!condition) {
        std::fprintf(stderr, "KQSEnvLock: Assertion `%s' failed.\n", text);
        std::abort();
    }
}

// The VEID of a cached environment: 0, or 1 with the message set.
int veidFromCache(const KQC::KQCEID& eid, int& veid)
{
    if (!eid.isValid()) {
        KQC::setErrorMessage("Both VE's id and eid are invalid");
        return 1;
    }
    boost::shared_ptr<KQC::KQCEnv> env = KQC::envCache()->getEnvCopy(eid);
    if (!env) {
        KQC::setErrorMessage("Cannot find VE by eid '%s'", eid.toString().c_str());
        return 1;
    }
    if (env->getConfig())
        KQSEnvConfig(*env->getConfig()).getVeid(veid);
    return 0;
}

// Whether the process that wrote a lock file still runs. Only a positive
// pid names one process: given 0 or a negative number, kill() signals our
// own process group, some other group or every process we may signal, and
// mostly succeeds, so a file holding such a number would lock its
// container for good. A process of another user is alive even though we
// may not signal it.
bool holderIsAlive(int pid)
{
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
}

} // namespace

const std::map<int, std::string> VPSTransitionsReverseMapLinux = buildReverseMap();

KQSEnvLock::KQSEnvLock(int veid, int state) : m_veid(veid), m_state(state) {}

KQSEnvLock::~KQSEnvLock()
{
    if (m_locked)
        unlock();
}

int KQSEnvLock::setPathLazy()
{
    if (!m_path.empty())
        return 0;
    if (m_veid == 0 && veidFromCache(eid, m_veid) != 0)
        return 1;
    KQSVtSettings settings;
    KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    if (envm.getVtSettings(settings) != 0)
        return 1;
    KQC::KQCOptionalProperty<std::string> lockDir;
    settings.getLockDir(lockDir);
    if (!lockDir.isSpecified()) {
        // Without it the lock would land in "/", where the tools never look.
        KQC::setErrorMessage("the host settings give no LOCKDIR");
        return 1;
    }
    m_path = lockDir.get() + "/" + std::to_string(m_veid) + ".lck";
    return 0;
}

int KQSEnvLock::lock()
{
    require(!m_locked, "!m_locked");
    if (setPathLazy() != 0)
        return KQS_ERR_GENERIC;
    // Files are read and written through close-on-exec descriptors, so that
    // a tool started meanwhile by another thread never inherits one.
    std::string text;
    if (KQC::file2str(m_path, text) == 0) {
        std::istringstream holder(text);
        int pid = 0;
        std::string word;
        bool havePid = static_cast<bool>(holder >> pid);
        if (havePid && !(holder >> word))
            word = "unknown";
        if (havePid && holderIsAlive(pid)) {
            KQC::setErrorMessage("Environment locked (in '%s' transition)", word.c_str());
            return KQS_ERR_GENERIC;
        }
    }
    // No file, garbage in it, or a holder that is gone: the lock is ours.
    // Locked from here on, even if the write fails, so that the file is
    // removed when this object goes.
    m_locked = true;
    std::string content = std::to_string(::getpid()) + "\n" + transitionName(m_state);
    if (KQC::str2file(m_path, content) != 0) {
        KQC::setErrorMessage("Can't create lock");
        return KQS_ERR_GENERIC;
    }
    return 0;
}

void KQSEnvLock::unlock()
{
    require(m_locked, "m_locked");
    m_locked = false;
    ::unlink(m_path.c_str());
}

} // namespace KQS
