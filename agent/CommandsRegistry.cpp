// Commands on the registry: synchronising it with the host, VEIDs and the
// agent's private files inside containers.
#include "Commands.h"
#include "EnvJson.h"

#include <iostream>
#include <iterator>

namespace kqagent {
namespace {

Runner sync(Args& args)
{
    args.expectEnd();
    return [](Session& session) {
        KQC::KQCEnvVector envs;
        Outcome outcome = resultOf(session.kqsEnvM().getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true));
        boost::json::array array;
        for (const auto& env : envs)
            array.push_back(envToJson(*env));
        outcome.payload["envs"] = array;
        return outcome;
    };
}

Runner veid(Args& args)
{
    std::string what = args.next("veid subcommand");
    if (what != "allocate")
        throw UsageError("unknown veid subcommand '" + what + "'");
    args.expectEnd();
    return [](Session& session) {
        int value = 0;
        Outcome outcome = resultOf(session.kqsEnvM().allocateVeid(value));
        if (outcome.rc == 0)
            outcome.payload["veid"] = value;
        return outcome;
    };
}

Runner privateFile(Args& args)
{
    std::string what = args.next("private subcommand");
    if (what != "get" && what != "put")
        throw UsageError("unknown private subcommand '" + what + "'");
    CtRef ct = parseCT(args.next("CT"));
    std::string name = args.next("NAME");
    args.expectEnd();
    bool put = what == "put";
    return [ct, name, put](Session& session) {
        Outcome outcome;
        KQC::KQCEID eid;
        if (session.resolve(ct, eid, outcome) != 0)
            return outcome;
        if (put) {
            std::string data((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
            return resultOf(session.kqsEnvM().putPrivate(eid, name, data));
        }
        std::string data;
        outcome = resultOf(session.kqsEnvM().getPrivate(eid, name, data));
        if (outcome.rc == 0)
            outcome.payload["data"] = data;
        return outcome;
    };
}

} // namespace

void addRegistryCommands(CommandMap& commands)
{
    commands["sync"] = sync;
    commands["veid"] = veid;
    commands["private"] = privateFile;
}

} // namespace kqagent
