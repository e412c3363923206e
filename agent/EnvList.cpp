#include "EnvList.h"

#include "EnvJson.h"
#include "JsonWriter.h"
#include "TextTable.h"

#include "KQS/EnvConfig.h"

#include <algorithm>
#include <array>
#include <climits>

namespace kqagent {
namespace {

enum Column { kVeid, kState, kTransition, kName, kHostname, kAddress, kEid, kColumns };
typedef std::array<std::string, kColumns> Row;

const Row kHeader = {"VEID", "STATE", "TRANSITION", "NAME", "HOSTNAME", "ADDRESS", "EID"};

std::string optionalText(const KQC::KQCOptionalProperty<std::string>& property)
{
    return property.isSpecified() ? printable(property.get()) : "";
}

struct Entry {
    long long veid;  // LLONG_MAX when unknown, so those rows come last
    Row row;
};

Entry entryOf(const KQC::KQCEnv& env)
{
    Entry entry{LLONG_MAX, Row()};
    entry.row[kState] = stateWord(env.getStatus().state());
    entry.row[kTransition] = transitionWord(env.getStatus().transition());
    entry.row[kEid] = env.getEID().toString();
    if (!env.getConfig()) {
        entry.row[kVeid] = "-";
        return entry;
    }
    KQS::KQSEnvConfig config(*env.getConfig());
    int veid = 0;
    if (config.getVeid(veid) == 0) {
        entry.veid = veid;
        entry.row[kVeid] = std::to_string(veid);
    } else {
        entry.row[kVeid] = "-";
    }
    KQC::KQCOptionalProperty<std::string> text;
    config.getName(text);
    entry.row[kName] = optionalText(text);
    config.getHostname(text);
    entry.row[kHostname] = optionalText(text);
    KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
    config.getAddresses(addresses);
    if (addresses.isSpecified() && !addresses.get().empty()) {
        const KQC::KQCIPAddress& first = addresses.get().front();
        entry.row[kAddress] = first.address() + "/" + std::to_string(first.prefixLength());
    }
    return entry;
}

} // namespace

std::string stateWord(int state)
{
    switch (state) {
    case 3: return "stopped";
    case 4: return "mounted";
    case 5: return "suspended";
    case 6: return "running";
    case 7: return "in repair";
    default: return std::to_string(state);
    }
}

std::string transitionWord(int transition)
{
    // The words the container tools write into their lock files.
    static const std::pair<int, const char*> kNames[] = {
        {1, "unknown"},        {2, "creating"},         {3, "mounting"},        {4, "starting"},
        {5, "stopping"},       {6, "unmounting"},       {7, "destroying"},      {8, "moving"},
        {9, "cloning"},        {10, "migrating"},       {11, "starting-repair"}, {12, "stopping-repair"},
        {13, "setting"},       {14, "updating"},        {15, "backing-up"},     {16, "restoring"},
        {17, "reinstalling"},  {18, "suspending"},      {19, "resuming"},       {20, "restarting"},
        {101, "check-updating"},
    };
    if (transition == 0)
        return "";
    for (const auto& name : kNames)
        if (name.first == transition)
            return name.second;
    return std::to_string(transition);
}

void printEnvTable(std::ostream& out, const KQC::KQCEnvVector& envs)
{
    std::vector<Entry> entries;
    entries.reserve(envs.size());
    for (const auto& env : envs)
        if (env)
            entries.push_back(entryOf(*env));
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.veid < b.veid; });
    std::vector<TextRow> rows;
    rows.reserve(entries.size());
    for (const auto& entry : entries)
        rows.emplace_back(entry.row.begin(), entry.row.end());
    printTable(out, TextRow(kHeader.begin(), kHeader.end()), rows);
}

void streamEnvs(Outcome& outcome, const KQC::KQCEnvVector& envs)
{
    outcome.streamKey = "envs";
    // Each environment object is written as it is read: the document is
    // never held, not even one environment's part of it.
    outcome.writeJson = [envs](JsonWriter& writer) {
        writer.beginArray();
        for (const auto& env : envs)
            writeEnvJson(writer, *env);
        writer.endArray();
    };
    outcome.writeText = [envs](std::ostream& out) { printEnvTable(out, envs); };
}

} // namespace kqagent
