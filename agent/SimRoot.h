#pragma once
// Making a host root usable: KQ_HOST_ROOT for this process and, when the
// root is a simulated host, the simulator's environment (its tools first on
// PATH, its kernel preload), re-executing the console once so that the
// preload is in force from the first instruction.
#include <string>

namespace kqagent {

// 0 when the process may go on (the root is set), -1 with `error` set.
// Does not return when it re-executes.
int arrangeHostRoot(const std::string& root, char** argv, std::string& error);

} // namespace kqagent
