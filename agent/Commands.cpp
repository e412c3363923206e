#include "Commands.h"

namespace kqagent {

const std::map<std::string, CommandHandler>& commandTable()
{
    static const CommandMap table = [] {
        CommandMap commands;
        addEnvCommands(commands);
        addRegistryCommands(commands);
        addConfigCommands(commands);
        addTemplateCommands(commands);
        return commands;
    }();
    return table;
}

} // namespace kqagent
