#include "EnvList.h"

#include "EnvJson.h"
#include "JsonWriter.h"

#include "KQS/EnvConfig.h"

#include <algorithm>
#include <array>
#include <climits>

namespace kqagent {
namespace {

enum Column { kVeid, kState, kTransition, kName, kHostname, kAddress, kEid, kColumns };
typedef std::array<std::string, kColumns> Row;

const Row kHeader = {"VEID", "STATE", "TRANSITION", "NAME", "HOSTNAME", "ADDRESS", "EID"};

// Names come from the host: a control character would break the line.
std::string printable(const std::string& text)
{
    std::string shown = text;
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return shown;
}

// Width on a terminal, by code points: UTF-8 continuation bytes take none.
size_t width(const std::string& text)
{
    size_t count = 0;
    for (char c : text)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)
            ++count;
    return count;
}

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

void printRow(std::ostream& out, const Row& row, const std::array<size_t, kColumns>& widths)
{
    std::string line;
    for (size_t column = 0; column < kColumns; ++column) {
        line += row[column];
        // The last column needs no padding; trailing blanks help nobody.
        if (column + 1 < kColumns)
            line.append(widths[column] - width(row[column]) + 2, ' ');
    }
    line += '\n';
    out << line;
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
    std::array<size_t, kColumns> widths;
    for (size_t column = 0; column < kColumns; ++column) {
        widths[column] = width(kHeader[column]);
        for (const auto& entry : entries)
            widths[column] = std::max(widths[column], width(entry.row[column]));
    }
    printRow(out, kHeader, widths);
    for (const auto& entry : entries)
        printRow(out, entry.row, widths);
}

void streamEnvs(Outcome& outcome, const KQC::KQCEnvVector& envs)
{
    outcome.streamKey = "envs";
    // Each environment object is made and written on its own: the whole
    // document is never held at once.
    outcome.writeJson = [envs](JsonWriter& writer) {
        writer.beginArray();
        for (const auto& env : envs)
            writer.value(envToJson(*env));
        writer.endArray();
    };
    outcome.writeText = [envs](std::ostream& out) { printEnvTable(out, envs); };
}

} // namespace kqagent
