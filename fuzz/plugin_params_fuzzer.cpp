// Parameter records of external operators, from any bytes: the message
// text is parsed, then the record is read through the parser registry the
// way the agent reads a plug-in class's parameters. Nothing may crash, hang
// or read out of bounds; a record that reads must name a program.
// Linking the plug-in's unit registers its record type with the registry.
#include "KQSExternProgramExecuter.h"

#include "KQC/Message.h"
#include "KQC/Plugin.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    KQC::KQCMessage message;
    if (message.loadFromString(std::string(reinterpret_cast<const char*>(data), size)) != 0)
        return 0;
    boost::shared_ptr<KQC::KQCPluginParams> params;
    if (KQC::parserRegistry<KQC::KQCPluginParams>().parse(message.getIterator(), params) != 0)
        return 0;
    const auto* base = dynamic_cast<const KQC::KQCPluginParamsExtern*>(params.get());
    if (!base || base->args.empty() || base->args[0].empty())
        std::abort();
    KQC::KQCMessage written;
    KQC::KQCMessageIterator it = written.getIterator();
    if (params->writeTo(it) != 0)
        std::abort();
    return 0;
}
