// The shell-style reader under every configuration file, and its writer:
// whatever the reader accepts, each value written back by the writer reads
// back byte for byte, and a word split never crashes.
#include "FuzzHost.h"

#include "KQS/ShellSyntax.h"

#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    KQS::KQSShellFile file;
    if (file.parse(text) == 0) {
        for (const KQS::KQSShellLine& line : file.lines()) {
            if (!line.isAssignment)
                continue;
            std::string written;
            kqfuzz::require(KQS::shellAssignment(line.key, line.value, written) == 0, "a read value can be written");
            std::string key, value;
            kqfuzz::require(KQC::parseBashStr(written, key, value) == 0, "a written line reads back");
            kqfuzz::require(key == line.key && value == line.value, "a written value reads back unchanged");
        }
    }

    std::vector<std::string> words;
    (void)KQS::splitShellWords(text, words);
    return 0;
}
