// One program for every simulated host tool; argv[0]'s bare name says which.
#include "Tools.h"

#include "KQSim/Prologue.h"

#include <cstdio>
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
    {"kqmlocal", KQSim::runKqmlocal},   {"kqsplit", KQSim::runUnimplemented}, {"mount", KQSim::runMount},
    {"umount", KQSim::runUmount},
};

} // namespace

int main(int argc, char** argv)
{
    std::string name = KQSim::toolName(argc > 0 ? argv[0] : "");
    for (const Tool& tool : kTools) {
        if (name != tool.name)
            continue;
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
