// A batch line is text from the console's user: any bytes must end in a
// Runner or a one-line usage error, never in another exception or a crash.
#include "CommandLine.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string line(reinterpret_cast<const char*>(data), size);
    try {
        kqagent::Runner runner = kqagent::parseBatchLine(line);
        if (!runner)
            std::abort();
    } catch (const kqagent::UsageError& e) {
        if (std::string(e.what()).find('\n') != std::string::npos && line.find('\n') == std::string::npos)
            std::abort();
    }
    return 0;
}
