#include "KQC/Access.h"

#include "KQC/Error.h"

namespace KQC {
namespace {

int refuse(int right, const std::string& where)
{
    setErrorMessage("access denied: right %d on %s", right, where.c_str());
    return KQC_ERR_ACCESS_DENIED;
}

} // namespace

boost::shared_ptr<KQCClientContext> KQCAccessChecker::getClientContext(const KQCAccessProvider& access)
{
    boost::shared_ptr<KQCClientContext> context;
    if (access)
        context = access->clientContext();
    if (!context)
        context.reset(new KQCClientContext());
    return context;
}

int KQCAccessChecker::accessCheck(const boost::shared_ptr<KQCClientContext>& context, const KQCEID& eid, int right)
{
    if (context && !context->holds(right))
        return refuse(right, eid.toString());
    return 0;
}

int KQCAccessChecker::accessCheck(const boost::shared_ptr<KQCClientContext>& context, int right)
{
    if (context && !context->holds(right))
        return refuse(right, "the host");
    return 0;
}

int KQCAccessChecker::accessCheck(const boost::shared_ptr<KQCClientContext>& context, const KQCEIDSet& eids,
                                  int right, bool all)
{
    if (!context || context->holds(right))
        return 0;
    if (all || eids.empty())
        return refuse(right, "all environments");
    return refuse(right, eids.begin()->toString());
}

} // namespace KQC
