// Any bytes as a template configuration file: the parser never crashes, and
// when what it accepted is written out and accepted again, the packages and
// the kind of version section come back unchanged. (Other fields need not:
// a basedir line may itself carry the agent's prefix, which each reading
// peels off once; and a package or compatible set whose name begins with
// "%", read from an indented line, is written in column 1 and reads back as
// a header.)
#include "KQSTEMConfig.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

bool samePackages(const KQS::KQSTEMConfig& a, const KQS::KQSTEMConfig& b)
{
    if (a.packages.size() != b.packages.size() || a.baseVersion != b.baseVersion)
        return false;
    for (auto i = a.packages.begin(), j = b.packages.begin(); i != a.packages.end(); ++i, ++j)
        if (i->first != j->first || i->second.listed != j->second.listed || i->second.words != j->second.words)
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KQS::KQSTEMConfig config;
    if (config.readFromStr(std::string(reinterpret_cast<const char*>(data), size)) != 0)
        return 0;
    std::ostringstream written;
    config.construct(written);
    for (const KQS::KQSTemplate& set : config.compatibleSets)
        if (!set.name.empty() && set.name[0] == '%')
            return 0;
    for (const auto& entry : config.packages)
        if (entry.first[0] == '%')
            return 0;
    KQS::KQSTEMConfig reread;
    if (reread.readFromStr(written.str()) == 0 && !samePackages(config, reread))
        std::abort();
    return 0;
}
