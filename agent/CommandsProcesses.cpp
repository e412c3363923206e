// Commands on processes: ps CT|host and kill CT PID... [--signal N].
#include "Commands.h"
#include "Operators.h"

#include <climits>

namespace kqagent {
namespace {

boost::json::array processesToJson(const KQC::KQCProcessList& processes)
{
    boost::json::array array;
    for (const auto& process : processes) {
        boost::json::object object;
        for (const auto& attribute : process.attributes())
            object[attribute.first] = attribute.second;
        array.push_back(object);
    }
    return array;
}

void addPs(CommandLine& cli)
{
    cli.add(cli.root(), "ps", "ps CT|host", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText] {
            HostOrCt target = parseHostOrCT(ctText);
            return Runner([target](Session& session) {
                Outcome outcome;
                // The host is listed under an empty identifier.
                KQC::KQCEID eid;
                if (resolveHostOrCt(session, target, eid, outcome) != 0)
                    return outcome;
                KQC::KQCProcessList processes;
                outcome = resultOf(processMonitor(session)->get(&processes, eid, "", 0, false));
                outcome.payload["processes"] = processesToJson(processes);
                return outcome;
            });
        };
    });
}

int parsePid(const std::string& text)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        throw UsageError("PID '" + text + "' is not a number");
    long long value = parseNumber(text, "PID");
    if (value > INT_MAX)
        throw UsageError("PID '" + text + "' is too large");
    return static_cast<int>(value);
}

void addKill(CommandLine& cli)
{
    cli.add(cli.root(), "kill", "kill CT PID... [--signal N]", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& pidTexts = cli.value<std::vector<std::string>>();
        auto& signalText = cli.value<std::string>("15");
        command.add_option("PID", pidTexts, "process ids inside the container")->required();
        command.add_option("--signal", signalText, "signal number (default 15)");
        return [&ctText, &pidTexts, &signalText] {
            CtRef ct = parseCT(ctText);
            std::vector<int> pids;
            for (const std::string& text : pidTexts)
                pids.push_back(parsePid(text));
            long long number = parseNumber(signalText, "signal");
            if (number < 0 || number > INT_MAX)
                throw UsageError("signal '" + signalText + "' is out of range");
            int signal = static_cast<int>(number);
            return onEnvironment(ct, [pids, signal](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                return resultOf(processM(session)->kill(eid, pids, signal));
            });
        };
    });
}

} // namespace

void addProcessCommands(CommandLine& cli)
{
    addPs(cli);
    addKill(cli);
}

} // namespace kqagent
