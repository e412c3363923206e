#include "KQC/IPPool.h"

#include "KQC/Error.h"

#include <arpa/inet.h>

#include <cstring>
#include <sstream>

namespace KQC {
namespace {

typedef KQCIPPool::Range Range;

size_t byteCount(KQCIPAddress::Family family) { return family == KQCIPAddress::IPV4 ? 4 : 16; }
int bitCount(KQCIPAddress::Family family) { return family == KQCIPAddress::IPV4 ? 32 : 128; }

// The address alone, no prefix: IPv4 tried first, so that a dotted quad is
// never taken for anything else.
KQCIPAddress::Family parseBytes(const std::string& text, uint8_t bytes[16])
{
    std::memset(bytes, 0, 16);
    if (::inet_pton(AF_INET, text.c_str(), bytes) == 1)
        return KQCIPAddress::IPV4;
    if (::inet_pton(AF_INET6, text.c_str(), bytes) == 1)
        return KQCIPAddress::IPV6;
    return KQCIPAddress::NONE;
}

std::string bytesText(KQCIPAddress::Family family, const uint8_t bytes[16])
{
    char text[INET6_ADDRSTRLEN] = "";
    ::inet_ntop(family == KQCIPAddress::IPV4 ? AF_INET : AF_INET6, bytes, text, sizeof text);
    return text;
}

// Keeps the first `prefix` bits; the rest become `fill` bits.
void setHostBits(uint8_t bytes[16], KQCIPAddress::Family family, int prefix, bool fill)
{
    for (int bit = prefix; bit < bitCount(family); ++bit) {
        const uint8_t mask = static_cast<uint8_t>(0x80u >> (bit % 8));
        if (fill)
            bytes[bit / 8] |= mask;
        else
            bytes[bit / 8] &= static_cast<uint8_t>(~mask);
    }
}

bool sameNetwork(const uint8_t a[16], const uint8_t b[16], KQCIPAddress::Family family, int prefix)
{
    uint8_t x[16], y[16];
    std::memcpy(x, a, 16);
    std::memcpy(y, b, 16);
    setHostBits(x, family, prefix, false);
    setHostBits(y, family, prefix, false);
    return std::memcmp(x, y, 16) == 0;
}

// Adds one; the caller never steps past the range's last address, so the
// all-ones address never wraps.
void increment(uint8_t bytes[16], KQCIPAddress::Family family)
{
    for (size_t i = byteCount(family); i-- > 0;)
        if (++bytes[i] != 0)
            return;
}

void decrement(uint8_t bytes[16], KQCIPAddress::Family family)
{
    for (size_t i = byteCount(family); i-- > 0;)
        if (bytes[i]-- != 0)
            return;
}

std::string trimmed(const std::string& line)
{
    std::string text = line.substr(0, line.find('#'));
    const char* blanks = " \t\r\f\v";
    const size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos)
        return std::string();
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// A decimal prefix length of at most three digits, 1 to the family's width.
bool parsePrefix(const std::string& text, KQCIPAddress::Family family, int& prefix)
{
    if (text.empty() || text.size() > 3 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    prefix = std::stoi(text);
    return prefix >= 1 && prefix <= bitCount(family);
}

// One range line; an empty `why` on success.
Range parseRange(const std::string& line, std::string& why)
{
    Range range;
    const size_t slash = line.find('/');
    if (slash == std::string::npos) {
        why = "'" + line + "' needs /PREFIX";
        return range;
    }
    const std::string addresses = line.substr(0, slash);
    const size_t dash = addresses.find('-');
    const bool network = dash == std::string::npos;
    range.family = parseBytes(addresses.substr(0, dash), range.first);
    KQCIPAddress::Family lastFamily = network ? range.family : parseBytes(addresses.substr(dash + 1), range.last);
    if (range.family == KQCIPAddress::NONE || lastFamily == KQCIPAddress::NONE) {
        why = "'" + addresses + "' is not an address or FIRST-LAST range";
        return range;
    }
    if (range.family != lastFamily) {
        why = "'" + addresses + "' mixes IPv4 and IPv6";
        return range;
    }
    if (!parsePrefix(line.substr(slash + 1), range.family, range.prefix)) {
        why = "'" + line.substr(slash + 1) + "' is not a prefix length for this family";
        return range;
    }
    if (network) {
        std::memcpy(range.last, range.first, 16);
        setHostBits(range.last, range.family, range.prefix, false);
        if (std::memcmp(range.last, range.first, 16) != 0) {
            why = "'" + line + "' has host bits set: give the network, or a FIRST-LAST range";
            return range;
        }
        setHostBits(range.last, range.family, range.prefix, true);
        // The network's own address (and IPv4's broadcast) are no host's.
        const int width = bitCount(range.family);
        if (range.prefix < width - 1) {
            increment(range.first, range.family);
            if (range.family == KQCIPAddress::IPV4)
                decrement(range.last, range.family);
        }
        return range;
    }
    if (!sameNetwork(range.first, range.last, range.family, range.prefix)) {
        why = "'" + addresses + "' does not lie in one /" + std::to_string(range.prefix) + " network";
        return range;
    }
    if (std::memcmp(range.first, range.last, 16) > 0)
        why = "'" + addresses + "' ends before it starts";
    return range;
}

} // namespace

int KQCIPPool::parse(const std::string& text)
{
    m_ranges.clear();
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const std::string content = trimmed(line);
        if (content.empty())
            continue;
        std::string why;
        Range range = parseRange(content, why);
        if (why.empty() && m_ranges.size() == kMaxRanges)
            why = "more than " + std::to_string(kMaxRanges) + " ranges";
        if (!why.empty()) {
            m_ranges.clear();
            setErrorMessage("line %d: %s", number, why.c_str());
            return KQC_ERR_IP_POOL_MALFORMED;
        }
        m_ranges.push_back(range);
    }
    return KQC_OK;
}

bool KQCIPPool::offers(KQCIPAddress::Family family) const
{
    for (const Range& range : m_ranges)
        if (range.family == family)
            return true;
    return false;
}

int KQCIPPool::pick(KQCIPAddress::Family family, const std::set<std::string>& used, KQCIPAddress& out) const
{
    const char* name = family == KQCIPAddress::IPV4 ? "IPv4" : "IPv6";
    if (!offers(family)) {
        setErrorMessage("the address pool has no %s range", name);
        return KQC_ERR_IP_POOL_EXHAUSTED;
    }
    for (const Range& range : m_ranges) {
        if (range.family != family)
            continue;
        uint8_t candidate[16];
        std::memcpy(candidate, range.first, 16);
        for (;;) {
            const std::string text = bytesText(family, candidate);
            if (used.count(text) == 0)
                return out.fromString(text + "/" + std::to_string(range.prefix));
            if (std::memcmp(candidate, range.last, 16) == 0)
                break;
            increment(candidate, family);
        }
    }
    setErrorMessage("the address pool has no free %s address left", name);
    return KQC_ERR_IP_POOL_EXHAUSTED;
}

} // namespace KQC
