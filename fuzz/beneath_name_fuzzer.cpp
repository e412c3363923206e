// A private-file name as a client sends it: whatever it is, the file is
// read, written and removed beneath the agent's folder or not at all.
#include "FuzzHost.h"

#include "KQC/Beneath.h"

#include <cstdint>
#include <string>

namespace {

// Whether the name only names something inside its folder.
bool staysInside(const std::string& name)
{
    if (name.empty() || name[0] == '/' || name.find('\0') != std::string::npos)
        return false;
    size_t begin = 0;
    for (;;) {
        size_t slash = name.find('/', begin);
        std::string part = name.substr(begin, slash == std::string::npos ? std::string::npos : slash - begin);
        if (part.empty() || part == "." || part == "..")
            return false;
        if (slash == std::string::npos)
            return true;
        begin = slash + 1;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const kqfuzz::FuzzHost& host = kqfuzz::FuzzHost::instance();
    const std::string base = host.root() + "/private/kqagent";
    static const bool prepared = (host.write("/private/kqagent/.keep", ""), true);
    (void)prepared;
    const std::string name(reinterpret_cast<const char*>(data), size);

    bool accepted = KQC::checkBeneathName(name) == 0;
    kqfuzz::require(accepted == staysInside(name), "a name is accepted exactly when it stays inside");
    if (!accepted || name.size() > 200)
        return 0;
    if (KQC::writeFileBeneath(base, name, "x") == 0) {
        std::string back;
        kqfuzz::require(KQC::readFileBeneath(base, name, back) == 0 && back == "x", "what was written reads back");
        kqfuzz::require(KQC::removeFileBeneath(base, name) == 0, "what was written can be removed");
    }
    return 0;
}
