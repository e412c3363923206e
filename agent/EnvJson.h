#pragma once
// An environment as the console prints it (the JSON environment object).
#include "KQC/Env.h"
#include "KQS/EnvConfig.h"

#include <boost/json.hpp>

namespace kqagent {

class JsonWriter;

boost::json::object envToJson(const KQC::KQCEnv& env);
// The same object written piece by piece, none of it kept: the bytes are
// those of writer.value(envToJson(env)).
void writeEnvJson(JsonWriter& writer, const KQC::KQCEnv& env);

// The configuration fields of the environment object; a property that is
// not specified is left out.
boost::json::object configToJson(const KQS::KQSEnvConfig& config);

} // namespace kqagent
