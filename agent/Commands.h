#pragma once
// The command groups of the console. Each group adds its handlers to the
// table; Commands.cpp puts the table together.
#include "Console.h"

namespace kqagent {

typedef std::map<std::string, CommandHandler> CommandMap;

void addEnvCommands(CommandMap& commands);
void addRegistryCommands(CommandMap& commands);
void addConfigCommands(CommandMap& commands);
void addTemplateCommands(CommandMap& commands);

} // namespace kqagent
