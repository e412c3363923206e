#include "Commands.h"

namespace kqagent {

void addAllCommands(CommandLine& cli)
{
    addEnvCommands(cli);
    addRegistryCommands(cli);
    addConfigCommands(cli);
    addAuthCommands(cli);
    addSampleCommands(cli);
    addCreateCommands(cli);
    addTemplateCommands(cli);
    addStatCommands(cli);
    addProcessCommands(cli);
    addMountCommands(cli);
    addRepairCommands(cli);
}

std::string& addCT(CommandLine& cli, CLI::App& command, bool required)
{
    std::string& ct = cli.value<std::string>();
    command.add_option("CT", ct, "environment identifier or VEID")->required(required);
    return ct;
}

Runner onEnvironment(const CtRef& ct, std::function<Outcome(Session&, const KQC::KQCEID&)> body)
{
    return [ct, body](Session& session) {
        Outcome outcome;
        KQC::KQCEID eid;
        if (session.resolve(ct, eid, outcome) != 0)
            return outcome;
        return body(session, eid);
    };
}

} // namespace kqagent
