// Commands on statistics: stat net|quota|ubc|cpu|loadavg|slm CT.
#include "Commands.h"
#include "Operators.h"

namespace kqagent {
namespace {

typedef std::function<Outcome(KQS::KQSKqStat&, const KQC::KQCEID&)> StatQuery;

void addStat(CommandLine& cli, CLI::App& stat, const std::string& name, StatQuery query)
{
    cli.add(stat, name, "stat " + name + " CT", [&cli, query](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText, query] {
            CtRef ct = parseCT(ctText);
            return onEnvironment(ct, [query](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                return query(*kqStat(session), eid);
            });
        };
    });
}

boost::json::array numbers(const uint64_t* values, size_t count)
{
    boost::json::array array;
    for (size_t i = 0; i < count; ++i)
        array.push_back(values[i]);
    return array;
}

Outcome net(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQS::KQSNetClassList classes;
    Outcome outcome = resultOf(stat.getNetInfo(eid, &classes));
    boost::json::array array;
    for (const auto& netClass : classes)
        array.push_back(boost::json::object{{"class", netClass.classId}, {"counters", numbers(netClass.counters, 4)}});
    outcome.payload["classes"] = array;
    return outcome;
}

Outcome quota(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQS::KQSQuotaStats q;
    Outcome outcome = resultOf(stat.getQuota(eid, &q));
    if (outcome.rc == 0)
        outcome.payload["quota"] = boost::json::object{
            {"block_usage", q.blockUsage}, {"block_soft", q.blockSoft},   {"block_hard", q.blockHard},
            {"block_grace", q.blockGrace}, {"block_expiry", q.blockExpiry}, {"inode_usage", q.inodeUsage},
            {"inode_soft", q.inodeSoft},   {"inode_hard", q.inodeHard},   {"inode_grace", q.inodeGrace},
            {"inode_expiry", q.inodeExpiry}, {"ugid_a", q.ugidA},        {"ugid_b", q.ugidB}};
    return outcome;
}

Outcome ubc(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQS::KQSUbcList list;
    Outcome outcome = resultOf(stat.getUbc(eid, &list));
    boost::json::array array;
    for (const auto& u : list)
        array.push_back(boost::json::object{
            {"name", u.name}, {"average", u.average}, {"limit", u.limit}, {"barrier", u.barrier}});
    outcome.payload["ubc"] = array;
    return outcome;
}

Outcome cpu(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQS::KQSVeCPULoad load;
    Outcome outcome = resultOf(stat.getCPUInfo(eid, &load));
    if (outcome.rc == 0)
        outcome.payload["cpu"] = numbers(load.values, 5);
    return outcome;
}

Outcome loadavg(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQC::KQCLoadAvg load;
    Outcome outcome = resultOf(stat.getLoadAvg(eid, &load));
    if (outcome.rc == 0)
        outcome.payload["loadavg"] = boost::json::array{load.avg[0], load.avg[1], load.avg[2]};
    return outcome;
}

Outcome slm(KQS::KQSKqStat& stat, const KQC::KQCEID& eid)
{
    KQS::KQSSLMGroup group;
    Outcome outcome = resultOf(stat.getSLM(eid, &group));
    boost::json::array array;
    if (outcome.rc == 0)
        for (const auto& byB : group.params)
            for (const auto& byA : byB.second)
                array.push_back(boost::json::object{{"b", byB.first}, {"a", byA.first}, {"value", byA.second.number()}});
    outcome.payload["slm"] = array;
    return outcome;
}

} // namespace

void addStatCommands(CommandLine& cli)
{
    CLI::App& stat = cli.group(cli.root(), "stat", "statistics of a container");
    addStat(cli, stat, "net", net);
    addStat(cli, stat, "quota", quota);
    addStat(cli, stat, "ubc", ubc);
    addStat(cli, stat, "cpu", cpu);
    addStat(cli, stat, "loadavg", loadavg);
    addStat(cli, stat, "slm", slm);
}

} // namespace kqagent
