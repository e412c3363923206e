#include "Operators.h"

namespace kqagent {

HostOrCt parseHostOrCT(const std::string& text)
{
    HostOrCt target;
    if (text == "host")
        target.host = true;
    else
        target.ct = parseCT(text);
    return target;
}

int resolveHostOrCt(Session& session, const HostOrCt& target, KQC::KQCEID& eid, Outcome& outcome)
{
    if (target.host)
        return 0;
    return session.resolve(target.ct, eid, outcome);
}

} // namespace kqagent
