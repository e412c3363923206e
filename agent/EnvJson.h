#pragma once
// An environment as the console prints it (the JSON environment object).
#include "KQC/Env.h"

#include <boost/json.hpp>

namespace kqagent {

boost::json::object envToJson(const KQC::KQCEnv& env);

} // namespace kqagent
