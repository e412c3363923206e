// What the statistics collector reads from outside: the traffic and quota
// tools' output, the process status tool's output and the kernel's SLM
// and beancounter replies. The first byte chooses the reader.
#include "FuzzHost.h"

#include "KQSKqStatLocal.h"

#include "KQC/ProcessParser.h"
#include "KQS/KqStat.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

class ColumnParser : public KQC::KQCProcessParser {
public:
    std::string getStrParameters(const ParserOptions&) override { return "vpid,stat,args"; }
};

void slm(const std::string& reply)
{
    KQS::KQSSLMGroup group;
    std::memcpy(group.buffer.data(), reply.data(), std::min<size_t>(reply.size(), group.buffer.size()));
    if (group.parse() != 0)
        return;
    for (const auto& byB : group.params)
        for (const auto& byA : byB.second) {
            const char* value = nullptr;
            byA.second.getValue(value);
            kqfuzz::require(value > reinterpret_cast<const char*>(group.buffer.data()) &&
                                value + byA.second.size() <=
                                    reinterpret_cast<const char*>(group.buffer.data()) + group.buffer.size(),
                            "every value lies inside the reply");
            (void)byA.second.number();
        }
}

void ubc(const std::string& reply)
{
    // Records for the indexes the reply's first bytes name, within the
    // kernel's most parameters.
    std::string buffer = reply;
    buffer.resize(sizeof(kq_ubstat_header) + KQ_UB_RESOURCES * sizeof(kq_ubstat_record));
    std::vector<std::string> names;
    std::vector<int> indexes;
    for (size_t i = 0; i < std::min<size_t>(reply.size(), 8); ++i) {
        names.push_back("r" + std::to_string(i));
        indexes.push_back(static_cast<unsigned char>(reply[i]) % KQ_UB_RESOURCES);
    }
    KQS::KQSUbcList out;
    KQS::KQSKqStatLocal::ubcFromKernel(buffer.data(), names, indexes, out);
    kqfuzz::require(out.size() == names.size(), "one record per name");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0] % 5) {
    case 0: {
        KQS::KQSNetClassList classes;
        KQS::KQSKqStatLocal::netClassesFromTool(text, classes);
        break;
    }
    case 1: {
        KQS::KQSQuotaStats quota;
        KQS::KQSKqStatLocal::quotaFromTool(text, quota);
        break;
    }
    case 2: {
        ColumnParser parser;
        KQC::KQCProcessList processes;
        KQC::KQCProcessParser::ParserOptions options("a", 3, true);
        parser.fillProcessList(text, processes, options);
        for (const auto& process : processes)
            kqfuzz::require(process.attributes().size() == 3, "a record has every column");
        KQC::KQCProcessParser::optimizeProcesses(processes, options);
        kqfuzz::require(processes.size() <= 3, "the limit holds");
        break;
    }
    case 3:
        slm(text);
        break;
    default:
        ubc(text);
        break;
    }
    return 0;
}
