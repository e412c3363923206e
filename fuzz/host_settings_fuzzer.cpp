// The host settings file, read as the plug-in reads it (from the file under
// the host root) and written back by the same parser: what is written reads
// back as the same settings, with and without the old text kept.
#include "FuzzHost.h"

#include "KQSEnvMLocal.h"

#include "KQS/BashParsers.h"

#include <cstdint>
#include <sstream>
#include <string>

namespace {

KQS::KQSVtSettings reread(const std::string& text)
{
    KQS::KQSVtSettings settings;
    std::istringstream input(text);
    kqfuzz::require(KQS::KQSKQConfigBashParser::getInstance()->getConfig(input, settings) == 0,
                    "written settings read back");
    return settings;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    kqfuzz::FuzzHost::instance().write("/etc/sysconfig/kq", text);

    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    KQS::KQSVtSettings settings;
    if (envm.getVtSettings(settings) != 0)
        return 0;
    KQC::KQCOptionalProperty<std::string> lockDir;
    settings.getLockDir(lockDir);

    const KQS::KQSKQConfigBashParser& parser = *KQS::KQSKQConfigBashParser::getInstance();
    std::ostringstream fresh;
    kqfuzz::require(parser.putConfig(settings, fresh, nullptr, false) == 0, "read settings can be written");
    kqfuzz::require(reread(fresh.str()) == settings, "written settings read back unchanged");

    std::istringstream old(text);
    std::ostringstream merged;
    kqfuzz::require(parser.putConfig(settings, merged, &old, true) == 0, "settings merge into their own file");
    kqfuzz::require(reread(merged.str()) == settings, "merged settings read back unchanged");
    return 0;
}
