// A container's configuration text, turned into a configuration and back
// by the plug-in's manager with the framework's parsers: a text the reader
// accepts is written into one the reader accepts again, and a second round
// changes nothing.
#include "FuzzHost.h"

#include "KQSEnvMLocal.h"

#include "KQS/EnvConfig.h"

#include <boost/make_shared.hpp>

#include <cstdint>
#include <cstdio>
#include <string>

namespace {

// The native text of `text` after one round, false when it is not read.
bool roundTrip(KQS::KQSEnvMLocal& envm, const std::string& text, std::string& written)
{
    boost::shared_ptr<KQC::KQCVEnvConfig> config;
    if (envm.getVirtualConfig(config, boost::make_shared<KQS::KQSNativeConfig>(text)) != 0)
        return false;
    boost::shared_ptr<KQC::KQCNativeConfig> native;
    kqfuzz::require(envm.getNativeConfig(native, config) == 0, "a read configuration can be written");
    auto nativeText = boost::dynamic_pointer_cast<KQS::KQSNativeConfig>(native);
    kqfuzz::require(nativeText != nullptr, "the native form is text");
    written = nativeText->getText();
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Vocabularies come from the framework's own data: the fuzz host has
    // no agent folder of its own.
    kqfuzz::FuzzHost::instance();
    const std::string text(reinterpret_cast<const char*>(data), size);

    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    std::string first;
    if (!roundTrip(envm, text, first))
        return 0;
    std::string second;
    kqfuzz::require(roundTrip(envm, first, second), "a written configuration reads back");
    if (first != second)
        std::fprintf(stderr, "first round:\n%s\nsecond round:\n%s\n", first.c_str(), second.c_str());
    kqfuzz::require(first == second, "a second round changes nothing");
    return 0;
}
