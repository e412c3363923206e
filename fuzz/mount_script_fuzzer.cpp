// A container's mount and umount scripts as the agent rewrites them: any
// text in, a script out that keeps the lines before its first "exit 0",
// ends with exactly one "exit 0", and holds the added line once.
#include "FuzzHost.h"

#include "MountsM.h"

#include <cstdint>
#include <sstream>
#include <string>

namespace {

size_t count(const std::string& text, const std::string& part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const int mode = data[0] & 1;
    const int remove = (data[0] >> 1) & 1;
    const std::string script(reinterpret_cast<const char*>(data) + 1, size - 1);

    // Every line is also a candidate script line of either mode.
    std::istringstream lines(script);
    std::string line;
    while (std::getline(lines, line)) {
        KQC::KQCDevMountInfo parsed;
        if (KQS::MountsM::readMountStr(line.c_str(), mode, parsed) == 0)
            kqfuzz::require(parsed.isPersistent(), "a parsed line is persistent");
    }

    KQC::KQCDevMountInfo info("/dev/sdb1", "/fuzz/point", "ext4", true, false);
    std::istringstream in(script);
    std::ostringstream out;
    int rc = KQS::MountsM::processMountInFile(in, out, info, mode, remove);
    if (rc != 0) {
        kqfuzz::require(!remove && rc == -4, "only an add is refused");
        return 0;
    }
    const std::string result = out.str();
    kqfuzz::require(result.size() >= 7 && result.compare(result.size() - 7, 7, "exit 0\n") == 0,
                    "the script ends with exit 0");
    const std::string added = KQS::MountsM::setMountStr(mode, info) + "\n";
    kqfuzz::require(count("\n" + result, "\n" + added) == (remove ? 0u : 1u), "the mount's line is there once");
    return 0;
}
