// Addresses and identifiers as configuration files and records give them:
// an IP address that reads is written in a form that reads back as the
// same address, and so is an environment identifier.
#include "FuzzHost.h"

#include "KQC/GUID.h"
#include "KQC/IPAddress.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    KQC::KQCIPAddress address;
    if (address.fromString(text) == 0) {
        KQC::KQCIPAddress again;
        kqfuzz::require(again.fromString(address.toString()) == 0, "a written address reads back");
        kqfuzz::require(again == address, "a written address reads back unchanged");
        KQC::KQCIPAddress withNetwork;
        kqfuzz::require(withNetwork.fromString(address.toStringWithNetwork()) == 0, "the form with the prefix reads");
        (void)address.network();
    }

    KQC::KQCEID eid;
    if (eid.fromString(text) == 0) {
        KQC::KQCEID again;
        kqfuzz::require(again.fromString(eid.toString()) == 0 && again == eid, "an identifier reads back unchanged");
    }
    return 0;
}
