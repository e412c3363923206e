#include "Tools.h"

#include <cstdio>

namespace KQSim {

int runUnimplemented(const SimHost&, const ToolArguments& args)
{
    std::fprintf(stderr, "%s: not implemented in the simulator\n", args[0].c_str());
    return 1;
}

} // namespace KQSim
