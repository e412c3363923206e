// Commands on the registry: synchronising it with the host, VEIDs and the
// agent's private files inside containers.
#include "Commands.h"
#include "EnvList.h"

#include <iostream>
#include <iterator>

namespace kqagent {
namespace {

void addSync(CommandLine& cli)
{
    cli.add(cli.root(), "sync", "sync", [](CLI::App&) -> Build {
        return [] {
            return Runner([](Session& session) {
                KQC::KQCEnvVector envs;
                Outcome outcome =
                    resultOf(session.kqsEnvM().getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true));
                streamEnvs(outcome, envs);
                return outcome;
            });
        };
    });
}

void addVeid(CommandLine& cli)
{
    CLI::App& veid = cli.group(cli.root(), "veid", "VEIDs");
    cli.add(veid, "allocate", "veid allocate", [](CLI::App&) -> Build {
        return [] {
            return Runner([](Session& session) {
                int value = 0;
                Outcome outcome = resultOf(session.kqsEnvM().allocateVeid(value));
                if (outcome.rc == 0)
                    outcome.payload["veid"] = value;
                return outcome;
            });
        };
    });
}

// private get|put CT NAME: the agent's own files inside a container.
void addPrivate(CommandLine& cli, CLI::App& group, bool put)
{
    std::string synopsis = std::string("private ") + (put ? "put" : "get") + " CT NAME";
    cli.add(group, put ? "put" : "get", synopsis, [&cli, put](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& name = cli.value<std::string>();
        command.add_option("NAME", name, "file name")->required();
        return [&ctText, &name, put] {
            CtRef ct = parseCT(ctText);
            std::string file = name;
            return onEnvironment(ct, [file, put](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                if (put) {
                    std::string data((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
                    return resultOf(session.kqsEnvM().putPrivate(eid, file, data));
                }
                std::string data;
                outcome = resultOf(session.kqsEnvM().getPrivate(eid, file, data));
                if (outcome.rc == 0)
                    outcome.payload["data"] = data;
                return outcome;
            });
        };
    });
}

} // namespace

void addRegistryCommands(CommandLine& cli)
{
    addSync(cli);
    addVeid(cli);
    CLI::App& privateGroup = cli.group(cli.root(), "private", "the agent's files inside a container");
    addPrivate(cli, privateGroup, false);
    addPrivate(cli, privateGroup, true);
}

} // namespace kqagent
