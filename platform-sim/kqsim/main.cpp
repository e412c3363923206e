// kqsim: the admin tool of the simulated container platform.
#include "Commands.h"

#include "KQSim/Host.h"

#include "KQC/Error.h"

#include <cstdio>
#include <cstring>

namespace KQSim {

int fail(int status, const std::string& text)
{
    std::fprintf(stderr, "kqsim: %s\n", text.c_str());
    return status;
}

int failWithErrorMessage(int status)
{
    return fail(status, KQC::getErrorMessage());
}

int requireSimulatedHost(const std::string& root)
{
    if (!isSimulatedHost(root))
        return fail(1, root + ": not a simulated host (run kqsim init first)");
    return 0;
}

} // namespace KQSim

namespace {

struct Subcommand {
    const char* word;
    int (*run)(const KQSim::Arguments&);
};

const Subcommand kSubcommands[] = {
    {"init", KQSim::commandInit},   {"add", KQSim::commandAdd}, {"fault", KQSim::commandFault},
    {"calls", KQSim::commandCalls}, {"env", KQSim::commandEnv}, {"set", KQSim::commandSet},
    {"proc", KQSim::commandProc},
};

const char kUsage[] =
    "usage: kqsim init ROOT [--ipv6] [--ip-pool RANGE]...\n"
    "       kqsim add ROOT VEID [--state stopped|mounted|suspended|running] [--name N]\n"
    "                 [--hostname H] [--ip ADDR]... [--ostemplate T] [--type N]\n"
    "                 [--netif SPEC]... [--offline-management yes|no] [--layout 3|4]\n"
    "       kqsim fault ROOT TOOL WORD EXIT [TEXT] | kqsim fault ROOT --clear\n"
    "       kqsim calls ROOT\n"
    "       kqsim env ROOT\n"
    "       kqsim set ROOT VEID KEY VALUE\n"
    "       kqsim proc ROOT VEID VPID HOSTPID [COMMAND]\n";

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    for (const Subcommand& subcommand : kSubcommands)
        if (std::strcmp(argv[1], subcommand.word) == 0)
            return subcommand.run(KQSim::Arguments(argv + 2, argv + argc));
    if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    std::fprintf(stderr, "kqsim: unknown command '%s'\n%s", argv[1], kUsage);
    return 2;
}
