#include "KQSProcessParser.h"

#include "KQC/EnvCache.h"
#include "KQC/EnvConfig.h"
#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "KQC/HostPaths.h"
#include "KQC/Lock.h"
#include "KQS/EnvConfig.h"

#include <atomic>
#include <sstream>

namespace KQS {
namespace {

const char* const kParserName = "kq_ps";

KQSProcessParser* makeParser()
{
    static KQSProcessParser* parser = nullptr;
    static KQC::KQCLock* lock = new KQC::KQCLock;
    KQC::KQCGuard guard(*lock);
    if (parser)
        return parser;
    // Never freed: it outlives every request of the process.
    KQSProcessParser* fresh = new KQSProcessParser;
    if (fresh->initialize(kParserName) != 0) {
        delete fresh;
        return nullptr;
    }
    parser = fresh;
    return parser;
}

int veidOfOptions(const KQC::KQCProcessParser::ParserOptions& options)
{
    const auto* ours = dynamic_cast<const KQSProcessParser::KQParserOptions*>(&options);
    return ours ? ours->veid : 0;
}

} // namespace

KQSProcessParser* KQSProcessParser::instance()
{
    // The common case takes no lock: once made, the parser never changes.
    static std::atomic<KQSProcessParser*> made{nullptr};
    KQSProcessParser* parser = made.load();
    if (!parser) {
        parser = makeParser();
        made.store(parser);
    }
    return parser;
}

std::string KQSProcessParser::getCommand()
{
    // Resolved at each call: the host root is the caller's environment.
    return KQC::hostPath("/bin/kqps");
}

std::string KQSProcessParser::getStrParameters(const ParserOptions& options)
{
    const bool container = !isSuperVPS(veidOfOptions(options));
    std::string list;
    for (const std::string& column : getColumns()) {
        list += list.empty() ? "" : ",";
        // Inside a container a process is known by the id the container
        // gives it.
        list += container && column == "pid" ? "vpid" : column;
    }
    return list;
}

int KQSProcessParser::getProcesses(KQC::KQCProcessList& out, const ParserOptions& options)
{
    const int veid = veidOfOptions(options);
    KQC::ExecutionArgs args;
    args.push_back(getCommand());
    args.push_back("xawh");
    if (!isSuperVPS(veid)) {
        args.push_back("-E");
        args.push_back(std::to_string(veid));
    }
    args.push_back("-eo");
    args.push_back(getStrParameters(options));
    std::string output;
    if (runPsProg(args, output) != 0)
        return -1;
    if (int rc = fillProcessList(output, out, options))
        return rc;
    // Every process of one container has the same VEID: it tells nothing.
    if (!isSuperVPS(veid))
        for (KQC::KQCProcessInfo& process : out)
            process.remove("veid");
    return 0;
}

int runKQPsProg(const KQC::KQCEID& eid, const char* options, const char* format,
                void (*callback)(void* ctx, const char* line), void* ctx)
{
    boost::shared_ptr<KQC::KQCEnv> env = KQC::envCache()->getEnvCopy(eid);
    int veid = 0;
    if (!env || !env->getConfig() || KQSEnvConfig(*env->getConfig()).getVeid(veid) != 0) {
        KQC::setErrorMessage("can't find the container of environment '%s'", eid.toString().c_str());
        return -1;
    }
    KQC::ExecutionArgs args;
    args.push_back(KQC::hostPath("/bin/kqps"));
    args.push_back(options);
    args.push_back("-E");
    args.push_back(std::to_string(veid));
    args.push_back("-eo");
    args.push_back(format);
    KQC::HWExec exec;
    int status = exec.exec(0, args.toArgs());
    if (status < 0)
        return status;
    std::istringstream lines(exec.getOutput(KQC::GenExec::OUT));
    std::string line;
    while (std::getline(lines, line))
        callback(ctx, line.c_str());
    return status;
}

} // namespace KQS
