// kqsim fault / calls / env: the host's fault rules, calls log and the
// environment a shell needs to use the host.
#include "Commands.h"

#include "KQSim/Fs.h"
#include "KQSim/Host.h"
#include "KQSim/Prologue.h"

#include "KQC/Error.h"

#include <cstdio>
#include <map>
#include <sstream>

namespace KQSim {
namespace {

int openHost(const std::string& rootArgument, SimHost& host)
{
    host.root = absolutePath(rootArgument);
    return requireSimulatedHost(host.root);
}

int printFile(const std::string& path)
{
    std::string text;
    if (readFile(path, text) != 0)
        return failWithErrorMessage();
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}

} // namespace

int commandFault(const Arguments& args)
{
    if (args.size() == 2 && args[1] == "--clear") {
        SimHost host;
        if (int status = openHost(args[0], host))
            return status;
        return writeFileAtomic(host.faultsFile(), "") == 0 ? 0 : failWithErrorMessage();
    }
    if (args.size() < 4 || args.size() > 5)
        return fail(2, "fault: ROOT TOOL WORD EXIT [TEXT] or ROOT --clear expected");
    FaultRule rule;
    rule.tool = args[1];
    rule.word = args[2];
    if (rule.tool.empty() || rule.word.empty()
        || rule.tool.find_first_of(" \t\n") != std::string::npos
        || rule.word.find_first_of(" \t\n") != std::string::npos)
        return fail(2, "fault: TOOL and WORD must be single words");
    if (parseFaultExit(args[3], rule) != 0)
        return fail(2, std::string("fault: ") + KQC::getErrorMessage());
    rule.text = args.size() == 5 ? args[4] : "";
    SimHost host;
    if (int status = openHost(args[0], host))
        return status;
    return appendOnce(host.faultsFile(), formatFaultRule(rule) + "\n") == 0 ? 0 : failWithErrorMessage();
}

int commandCalls(const Arguments& args)
{
    if (args.size() != 1)
        return fail(2, "calls: ROOT expected");
    SimHost host;
    if (int status = openHost(args[0], host))
        return status;
    return printFile(host.callsLog());
}

int commandEnv(const Arguments& args)
{
    if (args.size() != 1)
        return fail(2, "env: ROOT expected");
    SimHost host;
    if (int status = openHost(args[0], host))
        return status;
    std::string text;
    if (readFile(host.envFile(), text) != 0)
        return failWithErrorMessage();
    std::map<std::string, std::string> values;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        size_t equals = line.find('=');
        if (equals != std::string::npos)
            values[line.substr(0, equals)] = line.substr(equals + 1);
    }
    std::printf("export KQ_HOST_ROOT=%s\n", values["KQ_HOST_ROOT"].c_str());
    std::printf("export PATH=%s:$PATH\n", values["KQSIM_BIN"].c_str());
    std::printf("export LD_PRELOAD=%s\n", values["KQSIM_PRELOAD"].c_str());
#ifdef KQSIM_SANITIZED
    // The tools of this build are sanitized and get the kernel preload
    // ahead of the sanitizer runtime, which the runtime refuses by default.
    std::printf("export ASAN_OPTIONS=verify_asan_link_order=0\n");
#endif
    return 0;
}

} // namespace KQSim
