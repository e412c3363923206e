#pragma once
// The simulated host tools. Each entry point gets the full argument
// vector (argv[0] its bare name) after the prologue has run, and returns
// the process exit status.
#include "KQSim/Host.h"

#include <string>
#include <vector>

namespace KQSim {

using ToolArguments = std::vector<std::string>;

int runKqctl(const SimHost& host, const ToolArguments& args);
int runKqpkgls(const SimHost& host, const ToolArguments& args);
int runKqpkgadd(const SimHost& host, const ToolArguments& args);
int runKqpkgrm(const SimHost& host, const ToolArguments& args);
int runKqpkginfo(const SimHost& host, const ToolArguments& args);
int runKqquota(const SimHost& host, const ToolArguments& args);
int runKqnetstat(const SimHost& host, const ToolArguments& args);
int runKqps(const SimHost& host, const ToolArguments& args);
int runKqauth(const SimHost& host, const ToolArguments& args);
int runKqmlocal(const SimHost& host, const ToolArguments& args);
int runKqsvpsagent(const SimHost& host, const ToolArguments& args);
// The host's mount and umount: they only change the kernel's mount table.
int runMount(const SimHost& host, const ToolArguments& args);
int runUmount(const SimHost& host, const ToolArguments& args);
// Tools the simulator does not model yet: exit 1 with
// "TOOL: not implemented in the simulator".
int runUnimplemented(const SimHost& host, const ToolArguments& args);

} // namespace KQSim
