#pragma once
// The subcommands of kqsim. Each gets the arguments after its own word and
// returns the process exit status: 0 done, 1 failed (message on standard
// error), 2 usage error.
#include <string>
#include <vector>

namespace KQSim {

using Arguments = std::vector<std::string>;

int commandInit(const Arguments& args);
int commandAdd(const Arguments& args);
int commandFault(const Arguments& args);
int commandCalls(const Arguments& args);
int commandEnv(const Arguments& args);
int commandSet(const Arguments& args);
int commandProc(const Arguments& args);

// Prints "kqsim: TEXT" on standard error and gives back status.
int fail(int status, const std::string& text);
// The same with the framework's current error message as TEXT.
int failWithErrorMessage(int status = 1);
// 0 when root is a simulated host; otherwise says so and gives back 1.
int requireSimulatedHost(const std::string& root);

} // namespace KQSim
