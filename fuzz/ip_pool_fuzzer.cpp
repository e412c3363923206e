// The host's address pool as its settings file gives it: a pool that reads
// hands out only addresses inside its ranges, of the family asked for, never
// one twice, and stops with "exhausted" rather than running on.
#include "FuzzHost.h"

#include "KQC/Error.h"
#include "KQC/IPPool.h"

#include <cstdint>
#include <set>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    KQC::KQCIPPool pool;
    if (pool.parse(text) != 0) {
        kqfuzz::require(pool.empty(), "a pool that does not read holds nothing");
        return 0;
    }
    for (KQC::KQCIPAddress::Family family : {KQC::KQCIPAddress::IPV4, KQC::KQCIPAddress::IPV6}) {
        std::set<std::string> used;
        // A few rounds: enough to walk off the end of small ranges.
        for (int round = 0; round < 16; ++round) {
            KQC::KQCIPAddress chosen;
            const int rc = pool.pick(family, used, chosen);
            if (rc != 0) {
                kqfuzz::require(rc == KQC::KQC_ERR_IP_POOL_EXHAUSTED, "a pool that reads fails only by running out");
                break;
            }
            kqfuzz::require(chosen.family() == family, "the address is of the family asked for");
            kqfuzz::require(used.insert(chosen.address()).second, "no address is handed out twice");
            kqfuzz::require(chosen.hasPrefix(), "the address carries its range's prefix");
        }
    }
    return 0;
}
