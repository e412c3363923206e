// kqnetstat [-v] [VEID]: traffic counters per class from the simulated
// kernel (kernel/VEID/net.CLASS, four numbers each).
// Output: a header, then "VEID CLASS IN_BYTES OUT_BYTES IN_PACKETS OUT_PACKETS"
// lines, containers and classes in numeric order.
#include "Tools.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"

#include <cstdio>
#include <map>
#include <sstream>

namespace KQSim {
namespace {

void printContainer(const SimHost& host, int veid)
{
    std::string folder = host.kernelDir(std::to_string(veid));
    std::vector<std::string> names;
    if (listDirectory(folder, names) != 0)
        return;
    std::map<int, std::string> classes;
    for (const std::string& name : names) {
        int id = 0;
        std::string value;
        if (name.compare(0, 4, "net.") != 0 || !parseInt(name.substr(4), id) || readFile(folder + "/" + name, value) != 0)
            continue;
        std::istringstream numbers(value);
        std::string counters, number;
        while (numbers >> number)
            counters += " " + number;
        classes[id] = counters;
    }
    for (const auto& entry : classes)
        std::printf("%d %d%s\n", veid, entry.first, entry.second.c_str());
}

} // namespace

int runKqnetstat(const SimHost& host, const ToolArguments& args)
{
    std::vector<int> veids;
    for (size_t i = 1; i < args.size(); ++i) {
        int veid = 0;
        if (args[i] == "-v" || args[i] == "-a")
            continue;
        if (!parseInt(args[i], veid)) {
            std::fprintf(stderr, "kqnetstat: invalid argument '%s'\n", args[i].c_str());
            return 2;
        }
        veids.push_back(veid);
    }
    if (veids.empty())
        for (int veid : numberedEntries(host.stateDir() + "/kernel"))
            veids.push_back(veid);
    std::printf("VEID CLASS IN_BYTES OUT_BYTES IN_PACKETS OUT_PACKETS\n");
    for (int veid : veids)
        printContainer(host, veid);
    return 0;
}

} // namespace KQSim
