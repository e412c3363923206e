// Adapter lists in the configuration file's form (NETIF), as the console's
// --netif and container files give them: whatever the text, reading does
// not crash, and adapters that were read are written and read back alike.
#include "FuzzHost.h"

#include "KQS/BashParsers.h"

#include <cstdint>
#include <set>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kqfuzz::FuzzHost::instance();
    std::string value(reinterpret_cast<const char*>(data), size);
    std::string quoted = "NETIF=\"";
    for (char c : value) {
        if (c == '"' || c == '\\' || c == '$' || c == '`')
            quoted += '\\';
        quoted += c;
    }
    quoted += "\"\n";
    auto parser = KQS::KQSEnvConfigBashParser::getInstance(KQC::KQCVocMap());
    KQS::KQSEnvConfig config;
    std::istringstream input(quoted);
    if (parser->getConfig(input, config) != 0)
        return 0;
    // A name is an adapter's key: of two adapters of one name the file
    // keeps one, and the console refuses such a list before anything runs.
    KQC::KQCOptionalProperty<KQS::KQSNetVEthList> read;
    config.getNetVEths(read);
    std::set<std::string> names;
    for (const KQS::KQSNetVEth& veth : read.get())
        if (!names.insert(veth.getName()).second)
            return 0;
    std::ostringstream written;
    kqfuzz::require(parser->putConfig(config, written, nullptr, false) == 0, "read adapters can be written");
    KQS::KQSEnvConfig again;
    std::istringstream back(written.str());
    kqfuzz::require(parser->getConfig(back, again) == 0, "written adapters read back");
    KQC::KQCOptionalProperty<KQS::KQSNetVEthList> first, second;
    config.getNetVEths(first);
    again.getNetVEths(second);
    // The default host-routed adapter takes only addresses, merged with the
    // container's own list: the other adapters must come back as they were.
    auto ordinary = [](const KQS::KQSNetVEthList& list) {
        KQS::KQSNetVEthList out;
        for (const KQS::KQSNetVEth& veth : list)
            if (veth.getName() != "venet0")
                out.push_back(veth);
        return out;
    };
    kqfuzz::require(ordinary(first.get()) == ordinary(second.get()), "adapters survive a round");
    return 0;
}
