#pragma once
// Process listings of containers and of the host through the platform's
// container-aware process status tool "/bin/kqps" (under the host root).
//
// KQSProcessParser is the framework's parser with this platform's command
// and column names: for a container the process id is asked as "vpid" (as
// seen inside the container) and the listing is scoped with "-E VEID"; the
// host (VEID 0) is listed whole, with "pid".
// Thread safety: one parser serves the whole process (instance()); it is
// initialised once under a lock, and its queries keep no state in it.
#include "KQC/GUID.h"
#include "KQC/ProcessParser.h"

#include <string>

namespace KQS {

// True for the host itself.
inline bool isSuperVPS(int veid)
{
    return veid == 0;
}

class KQSProcessParser : public KQC::KQCProcessParser {
public:
    struct KQParserOptions : ParserOptions {
        KQParserOptions(int veid, const std::string& text, int number, bool flag)
            : ParserOptions(text, number, flag), veid(veid)
        {
        }
        int veid;
    };

    // The process-wide parser, made on first use and never freed; null
    // (message set) when it cannot be initialised.
    static KQSProcessParser* instance();

    std::string getCommand() override;
    std::string getStrParameters(const ParserOptions& options) override;
    // Lists the processes of options.veid into out. 0, or -1 (message set)
    // when the tool fails, or fillProcessList's result.
    int getProcesses(KQC::KQCProcessList& out, const ParserOptions& options);
};

// Runs "/bin/kqps OPTIONS -E VEID -eo FORMAT" for the environment and hands
// every output line (without its newline) to callback(ctx, line). Returns
// -1 when the environment or its VEID is unknown, -1 (message set) when the
// tool cannot start, else the tool's wait status.
int runKQPsProg(const KQC::KQCEID& eid, const char* options, const char* format,
                void (*callback)(void* ctx, const char* line), void* ctx);

} // namespace KQS
