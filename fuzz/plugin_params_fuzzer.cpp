// Parameter records of external operators, from any bytes: the message
// text is parsed, then the record is read through the parser registry the
// way the agent reads a plug-in class's parameters. A record that reads
// names a program, and once its container is put back (the writer leaves
// it out) it reads again as the same record.
#include "FuzzHost.h"

// Linking the plug-in's unit registers its record type with the registry.
#include "KQSExternProgramExecuter.h"

#include "KQC/Message.h"
#include "KQC/Plugin.h"
#include "KQC/Tags.h"

#include <cstddef>
#include <cstdint>
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
    kqfuzz::require(base && !base->args.empty() && !base->args[0].empty(), "a read record names a program");

    KQC::KQCMessage written;
    KQC::KQCMessageIterator it = written.getIterator();
    kqfuzz::require(params->writeTo(it) == 0, "a read record can be written");
    const auto* own = dynamic_cast<const KQS::KQSPluginParamsExtern*>(params.get());
    if (own)
        it.putInt(KQC::TAG_VEID, own->veid);
    boost::shared_ptr<KQC::KQCPluginParams> again;
    kqfuzz::require(KQC::parserRegistry<KQC::KQCPluginParams>().parse(written.getIterator(), again) == 0,
                    "a written record reads again");
    const auto* back = dynamic_cast<const KQC::KQCPluginParamsExtern*>(again.get());
    kqfuzz::require(back && back->args == base->args, "the arguments survive");
    const auto* ownBack = dynamic_cast<const KQS::KQSPluginParamsExtern*>(again.get());
    kqfuzz::require((own == nullptr) == (ownBack == nullptr) && (!own || own->veid == ownBack->veid),
                    "the container survives");
    return 0;
}
