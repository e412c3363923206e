#include "EnvJson.h"

namespace kqagent {

boost::json::object envToJson(const KQC::KQCEnv& env)
{
    boost::json::object object;
    object["eid"] = env.getEID().toString();
    object["state"] = env.getStatus().state();
    object["transition"] = env.getStatus().transition();
    object["type"] = env.getType();
    return object;
}

} // namespace kqagent
