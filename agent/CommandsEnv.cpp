// Commands on environments: listing, information and the actions.
#include "Commands.h"
#include "EnvJson.h"

namespace kqagent {
namespace {

boost::json::array envsToJson(const KQC::KQCEnvVector& envs)
{
    boost::json::array array;
    for (const auto& env : envs)
        array.push_back(envToJson(*env));
    return array;
}

Runner list(Args& args)
{
    KQC::KQCEnvMListOptions options;
    std::string value;
    while (args.takeValue("--state", value))
        options.states.insert(static_cast<int>(parseNumber(value, "state")));
    args.expectEnd();
    return [options](Session& session) {
        KQC::KQCEIDSet eids;
        Outcome outcome = resultOf(session.envM().getList(eids, options));
        KQC::KQCEnvVector envs;
        if (outcome.rc == 0 && !eids.empty())
            outcome = resultOf(session.envM().getInfo(eids, envs, 0xffffffff));
        outcome.payload["envs"] = envsToJson(envs);
        return outcome;
    };
}

Runner info(Args& args)
{
    CtRef ct = parseCT(args.next("CT"));
    unsigned int mask = 0xffffffff;
    std::string value;
    if (args.takeValue("--mask", value))
        mask = static_cast<unsigned int>(parseNumber(value, "mask"));
    args.expectEnd();
    return [ct, mask](Session& session) {
        Outcome outcome;
        KQC::KQCEID eid;
        if (session.resolve(ct, eid, outcome) != 0)
            return outcome;
        KQC::KQCEnvVector envs;
        outcome = resultOf(session.envM().getInfo(KQC::KQCEIDSet{eid}, envs, mask));
        if (!envs.empty())
            outcome.payload["env"] = envToJson(*envs.front());
        return outcome;
    };
}

typedef int (*ActionCall)(KQS::KQSEnvM&, const KQC::KQCEID&, bool);

// One action on one environment; `takesFast` allows the option --fast.
CommandHandler action(ActionCall call, bool takesFast)
{
    return [call, takesFast](Args& args) -> Runner {
        CtRef ct = parseCT(args.next("CT"));
        bool fast = takesFast && args.take("--fast");
        args.expectEnd();
        return [call, ct, fast](Session& session) {
            Outcome outcome;
            KQC::KQCEID eid;
            if (session.resolve(ct, eid, outcome) != 0)
                return outcome;
            return resultOf(call(session.kqsEnvM(), eid, fast));
        };
    };
}

CommandHandler mountCommand()
{
    CommandHandler mountAction =
        action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.mount(e); }, false);
    return [mountAction](Args& args) -> Runner {
        const std::string& first = args.peek();
        if (first == "list" || first == "add" || first == "rm")
            throw UsageError("mount " + first + " is not available yet");
        return mountAction(args);
    };
}

} // namespace

void addEnvCommands(CommandMap& commands)
{
    commands["list"] = list;
    commands["info"] = info;
    commands["start"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.start(e); }, false);
    commands["stop"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool fast) { return m.stop(e, fast); }, true);
    commands["restart"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.restart(e); }, false);
    commands["mount"] = mountCommand();
    commands["umount"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.umount(e); }, false);
    commands["destroy"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.destroy(e); }, false);
    commands["suspend"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.suspend(e); }, false);
    commands["resume"] = action([](KQS::KQSEnvM& m, const KQC::KQCEID& e, bool) { return m.resume(e); }, false);
}

} // namespace kqagent
