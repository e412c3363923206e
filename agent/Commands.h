#pragma once
// The command groups of the console. Each group, in its own file, adds its
// commands to the command line; Commands.cpp calls every group.
#include "CommandLine.h"

namespace kqagent {

void addEnvCommands(CommandLine& cli);
void addRegistryCommands(CommandLine& cli);
void addConfigCommands(CommandLine& cli);
void addAuthCommands(CommandLine& cli);
void addSampleCommands(CommandLine& cli);
void addCreateCommands(CommandLine& cli);
void addTemplateCommands(CommandLine& cli);
void addStatCommands(CommandLine& cli);
void addProcessCommands(CommandLine& cli);
void addMountCommands(CommandLine& cli);
void addRepairCommands(CommandLine& cli);

// A positional CT on `command` (parseCT reads it when the line is built;
// an optional one left out reads as a missing CT).
std::string& addCT(CommandLine& cli, CLI::App& command, bool required = true);

// The Runner of a command on one environment: resolves `ct` first (an
// unknown VEID is the registry's answer, and `body` does not run), then
// runs `body` with the environment's EID.
Runner onEnvironment(const CtRef& ct, std::function<Outcome(Session&, const KQC::KQCEID&)> body);

} // namespace kqagent
