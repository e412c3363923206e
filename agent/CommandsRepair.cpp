// Commands on more than one container: repair, stop-repair, move, clone.
#include "Commands.h"

#include <climits>
#include <set>

namespace kqagent {
namespace {

// A VEID given on the command line: a number that fits the int the
// platform uses (a usage error otherwise, nothing run).
int parseVeid(const std::string& text)
{
    long long value = parseNumber(text, "VEID");
    if (value < INT_MIN || value > INT_MAX)
        throw UsageError("VEID out of range: " + text);
    return static_cast<int>(value);
}

void addRepair(CommandLine& cli, const std::string& name, bool stop)
{
    cli.add(cli.root(), name, name + " CT", [&cli, stop](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText, stop] {
            return onEnvironment(parseCT(ctText), [stop](Session& session, const KQC::KQCEID& eid) {
                return resultOf(stop ? session.envM().stop_repair(eid) : session.envM().repair(eid));
            });
        };
    });
}

// The texts A and B of the migration tool, passed on unchanged.
struct MigrationTexts {
    std::string* a;
    std::string* b;
};

MigrationTexts addMigrationTexts(CommandLine& cli, CLI::App& command)
{
    MigrationTexts texts{&cli.value<std::string>(), &cli.value<std::string>()};
    command.add_option("--a", *texts.a, "first text for the migration tool (default empty)");
    command.add_option("--b", *texts.b, "second text for the migration tool (default empty)");
    return texts;
}

void addMove(CommandLine& cli)
{
    cli.add(cli.root(), "move", "move CT NEWVEID [--a TEXT] [--b TEXT]", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& target = cli.value<std::string>();
        command.add_option("NEWVEID", target, "the container's new VEID")->required();
        MigrationTexts texts = addMigrationTexts(cli, command);
        return [&ctText, &target, texts] {
            CtRef ct = parseCT(ctText);
            const int newVeid = parseVeid(target);
            const std::string a = *texts.a, b = *texts.b;
            return onEnvironment(ct, [newVeid, a, b](Session& session, const KQC::KQCEID& eid) {
                return resultOf(session.kqsEnvM().move(eid, newVeid, a, b));
            });
        };
    });
}

void addClone(CommandLine& cli)
{
    cli.add(cli.root(), "clone", "clone CT VEID... [--a TEXT] [--b TEXT]", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& targets = cli.value<std::vector<std::string>>();
        command.add_option("VEID", targets, "the VEIDs of the copies")->required();
        MigrationTexts texts = addMigrationTexts(cli, command);
        return [&ctText, &targets, texts] {
            CtRef ct = parseCT(ctText);
            std::set<int> veids;
            for (const std::string& text : targets)
                veids.insert(parseVeid(text));
            const std::string a = *texts.a, b = *texts.b;
            return onEnvironment(ct, [veids, a, b](Session& session, const KQC::KQCEID& eid) {
                return resultOf(session.kqsEnvM().clone(eid, veids, a, b));
            });
        };
    });
}

} // namespace

void addRepairCommands(CommandLine& cli)
{
    addRepair(cli, "repair", false);
    addRepair(cli, "stop-repair", true);
    addMove(cli);
    addClone(cli);
}

} // namespace kqagent
