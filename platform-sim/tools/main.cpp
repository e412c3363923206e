// One program for every simulated host tool; argv[0]'s bare name says which.
#include "Tools.h"

#include "KQSim/Prologue.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Tool {
    const char* name;
    int (*run)(const KQSim::SimHost&, const KQSim::ToolArguments&);
};

const Tool kTools[] = {
    {"kqctl", KQSim::runKqctl},         {"kqpkgls", KQSim::runKqpkgls},     {"kqpkgadd", KQSim::runKqpkgadd},
    {"kqpkgrm", KQSim::runKqpkgrm},     {"kqpkginfo", KQSim::runKqpkginfo}, {"kqquota", KQSim::runKqquota},
    {"kqnetstat", KQSim::runKqnetstat}, {"kqps", KQSim::runKqps},           {"kqauth", KQSim::runKqauth},
    {"kqmlocal", KQSim::runKqmlocal},   {"kqsplit", KQSim::runUnimplemented},
    {"kqsvpsagent", KQSim::runKqsvpsagent}, {"mount", KQSim::runMount}, {"umount", KQSim::runUmount},
};

// The per-container agent is started with a bare PATH as its whole
// environment, from ROOT/usr/lib/kqagent/: its own path tells the host.
void findHostOfContainerAgent(const std::string& name, const char* argv0)
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    if (name != "kqsvpsagent" || (root && *root) || !argv0)
        return;
    std::string path = argv0;
    const std::string folder = "/usr/lib/kqagent/kqsvpsagent";
    if (path.size() > folder.size() && path.compare(path.size() - folder.size(), folder.size(), folder) == 0)
        ::setenv("KQ_HOST_ROOT", path.substr(0, path.size() - folder.size()).c_str(), 1);
}

} // namespace

int main(int argc, char** argv)
{
    std::string name = KQSim::toolName(argc > 0 ? argv[0] : "");
    for (const Tool& tool : kTools) {
        if (name != tool.name)
            continue;
        findHostOfContainerAgent(name, argc > 0 ? argv[0] : nullptr);
        KQSim::SimHost host;
        int exitCode = 0;
        if (KQSim::runToolPrologue(argc, argv, host, &exitCode) != 0)
            return exitCode;
        KQSim::ToolArguments args(argv, argv + argc);
        args[0] = name;
        int status = tool.run(host, args);
        std::fflush(stdout);
        return status;
    }
    std::fprintf(stderr, "kqsim-tool: call me by the name of a simulated tool (kqctl, kqps, ...), not '%s'\n",
                 name.c_str());
    return 127;
}
