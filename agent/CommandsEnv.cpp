// Commands on environments: listing, information and the actions.
#include "Commands.h"
#include "EnvJson.h"
#include "EnvList.h"

#include <set>

namespace kqagent {
namespace {

// The environments whose state is in `states`, in their order; all of them
// when `states` is empty.
KQC::KQCEnvVector withStates(const KQC::KQCEnvVector& envs, const std::set<int>& states)
{
    if (states.empty())
        return envs;
    KQC::KQCEnvVector kept;
    for (const auto& env : envs)
        if (env && states.count(env->getStatus().state()))
            kept.push_back(env);
    return kept;
}

void addList(CommandLine& cli)
{
    cli.add(cli.root(), "list", "list [--state N]...", [&cli](CLI::App& command) -> Build {
        auto& states = cli.value<std::vector<std::string>>();
        command.add_option("--state", states, "only environments in state N")->allow_extra_args(false);
        return [&states] {
            KQC::KQCEnvMListOptions options;
            for (const auto& state : states)
                options.states.insert(static_cast<int>(parseNumber(state, "state")));
            return Runner([options](Session& session) {
                // One join of the registry with the host: all environments
                // with their information, filtered here by state. Asking for
                // the identifiers first and then their information would
                // join twice for the same answer.
                KQC::KQCEnvVector all;
                Outcome outcome = resultOf(session.envM().getInfo(KQC::KQCEIDSet(), all, 0xffffffff));
                KQC::KQCEnvVector envs;
                if (outcome.rc == 0)
                    envs = withStates(all, options.states);
                streamEnvs(outcome, envs);
                return outcome;
            });
        };
    });
}

void addInfo(CommandLine& cli)
{
    cli.add(cli.root(), "info", "info CT [--mask M]", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& maskText = cli.value<std::string>("0xffffffff");
        command.add_option("--mask", maskText, "which parts of the information");
        return [&ctText, &maskText] {
            CtRef ct = parseCT(ctText);
            unsigned int mask = static_cast<unsigned int>(parseNumber(maskText, "mask"));
            return onEnvironment(ct, [mask](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                KQC::KQCEnvVector envs;
                outcome = resultOf(session.envM().getInfo(KQC::KQCEIDSet{eid}, envs, mask));
                if (!envs.empty())
                    outcome.payload["env"] = envToJson(*envs.front());
                return outcome;
            });
        };
    });
}

typedef int (*ActionCall)(KQS::KQSEnvM&, const KQC::KQCEID&, bool);

// One action on one environment; `takesFast` allows the option --fast.
void addAction(CommandLine& cli, const std::string& name, ActionCall call, bool takesFast = false)
{
    std::string synopsis = name + " CT" + (takesFast ? " [--fast]" : "");
    cli.add(cli.root(), name, synopsis, [&cli, call, takesFast, name](CLI::App& command) -> Build {
        // "mount" is also the group of the device commands (mount list,
        // ...): a required CT would swallow their word.
        std::string& ctText = addCT(cli, command, name != "mount");
        bool& fast = cli.value<bool>(false);
        if (takesFast)
            command.add_flag("--fast", fast, "without waiting for a clean shutdown");
        return [&ctText, &fast, call] {
            CtRef ct = parseCT(ctText);
            bool isFast = fast;
            return onEnvironment(ct, [call, isFast](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                return resultOf(call(session.kqsEnvM(), eid, isFast));
            });
        };
    });
}

} // namespace

void addEnvCommands(CommandLine& cli)
{
    addList(cli);
    addInfo(cli);
    addAction(cli, "start", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.start(e); });
    addAction(
        cli, "stop", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool fast) { return m.stop(e, fast); }, true);
    addAction(cli, "restart", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.restart(e); });
    addAction(cli, "mount", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.mount(e); });
    addAction(cli, "umount", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.umount(e); });
    addAction(cli, "destroy", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.destroy(e); });
    addAction(cli, "suspend", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.suspend(e); });
    addAction(cli, "resume", [](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.resume(e); });
}

} // namespace kqagent
