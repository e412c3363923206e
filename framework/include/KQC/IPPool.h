#pragma once
// The host's pool of addresses for containers created with an automatic
// address, and the choice of a free one.
//
// Pool text, one range per line; blank lines and text after '#' are ignored:
//   NETWORK/PREFIX         every host address of the network: for IPv4 the
//                          network and broadcast addresses are left out
//                          (below /31), for IPv6 the network's own address
//                          (below /127)
//   FIRST-LAST/PREFIX      the addresses FIRST to LAST, both included; both
//                          lie in one network of that prefix
// Addresses handed out carry the range's prefix. IPv4 and IPv6 ranges may
// be mixed; a request for one family only looks at that family's ranges,
// in the order of the file.
// Value type; thread safety as for any value.
#include "KQC/IPAddress.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace KQC {

class KQCIPPool {
public:
    // At most this many ranges; a longer file is malformed rather than a
    // slow walk over the host's time.
    static const size_t kMaxRanges = 4096;

    // Reads the pool text, replacing what this pool held. 0, or
    // KQC_ERR_IP_POOL_MALFORMED with the message "line N: why" set and the
    // pool left empty.
    [[nodiscard]] int parse(const std::string& text);

    bool empty() const { return m_ranges.empty(); }
    size_t size() const { return m_ranges.size(); }
    // Whether the pool has a range of the family.
    bool offers(KQCIPAddress::Family family) const;

    // The first address of `family`, in pool order, whose canonical text
    // (KQCIPAddress::address()) is not in `used`. 0, or
    // KQC_ERR_IP_POOL_EXHAUSTED with the message set. Looks at no more
    // than used.size() + 1 addresses of a range, however wide it is.
    [[nodiscard]] int pick(KQCIPAddress::Family family, const std::set<std::string>& used,
                           KQCIPAddress& out) const;

    struct Range {
        KQCIPAddress::Family family = KQCIPAddress::NONE;
        uint8_t first[16] = {};
        uint8_t last[16] = {};
        int prefix = 0;
    };
    const std::vector<Range>& ranges() const { return m_ranges; }

private:
    std::vector<Range> m_ranges;
};

} // namespace KQC
