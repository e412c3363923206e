#include "KQC/IPAddress.h"

#include "KQC/Error.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

namespace KQC {
namespace {

int parsePrefix(const std::string& text, int maxPrefix, int& prefix)
{
    if (text.empty() || text.size() > 3)
        return -1;
    for (char c : text)
        if (c < '0' || c > '9')
            return -1;
    prefix = std::atoi(text.c_str());
    return prefix <= maxPrefix ? 0 : -1;
}

int byteCount(KQCIPAddress::Family family) { return family == KQCIPAddress::IPV4 ? 4 : 16; }

} // namespace

KQCIPAddress::KQCIPAddress() : m_family(NONE), m_bytes(), m_prefix(0), m_prefixGiven(false) {}

int KQCIPAddress::fromString(const std::string& text)
{
    std::string::size_type slash = text.find('/');
    std::string addressText = text.substr(0, slash);
    KQCIPAddress parsed;
    if (inet_pton(AF_INET, addressText.c_str(), parsed.m_bytes) == 1) {
        parsed.m_family = IPV4;
        parsed.m_prefix = 32;
    } else if (inet_pton(AF_INET6, addressText.c_str(), parsed.m_bytes) == 1) {
        parsed.m_family = IPV6;
        parsed.m_prefix = 128;
    } else {
        setErrorMessage("invalid IP address '%s'", text.c_str());
        return -1;
    }
    if (slash != std::string::npos) {
        if (parsePrefix(text.substr(slash + 1), parsed.m_prefix, parsed.m_prefix) != 0) {
            setErrorMessage("invalid IP address '%s'", text.c_str());
            return -1;
        }
        parsed.m_prefixGiven = true;
    }
    *this = parsed;
    return 0;
}

int KQCIPAddress::parse(const std::string& text, KQCIPAddress& address)
{
    return address.fromString(text);
}

void KQCIPAddress::setPrefixLength(int prefix)
{
    int maxPrefix = m_family == IPV4 ? 32 : 128;
    m_prefix = prefix < 0 ? 0 : (prefix > maxPrefix ? maxPrefix : prefix);
    m_prefixGiven = true;
}

std::string KQCIPAddress::address() const
{
    if (m_family == NONE)
        return "";
    if (m_family == IPV4) {
        // Four numbers by hand: the library's formatting goes through
        // printf, and every listing names thousands of addresses.
        std::string text;
        text.reserve(15);
        for (int i = 0; i < 4; ++i) {
            if (i > 0)
                text += '.';
            unsigned value = m_bytes[i];
            if (value >= 100)
                text += static_cast<char>('0' + value / 100);
            if (value >= 10)
                text += static_cast<char>('0' + value / 10 % 10);
            text += static_cast<char>('0' + value % 10);
        }
        return text;
    }
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(AF_INET6, m_bytes, text, sizeof text);
    return text;
}

std::string KQCIPAddress::toString() const
{
    return m_prefixGiven ? toStringWithNetwork() : address();
}

std::string KQCIPAddress::toStringWithNetwork() const
{
    if (m_family == NONE)
        return "";
    return address() + "/" + std::to_string(m_prefix);
}

KQCIPAddress KQCIPAddress::network() const
{
    KQCIPAddress result = *this;
    int bits = m_prefix;
    for (int i = 0; i < byteCount(m_family); ++i) {
        if (bits >= 8)
            bits -= 8;
        else {
            result.m_bytes[i] &= static_cast<uint8_t>(0xff << (8 - bits));
            bits = 0;
        }
    }
    return result;
}

bool KQCIPAddress::contains(const KQCIPAddress& other) const
{
    if (other.m_family != m_family || m_family == NONE)
        return false;
    KQCIPAddress widened = other;
    widened.m_prefix = m_prefix;
    return std::memcmp(widened.network().m_bytes, network().m_bytes, 16) == 0;
}

bool KQCIPAddress::operator==(const KQCIPAddress& other) const
{
    return m_family == other.m_family && m_prefix == other.m_prefix &&
           std::memcmp(m_bytes, other.m_bytes, sizeof m_bytes) == 0;
}

bool KQCIPAddress::operator<(const KQCIPAddress& other) const
{
    if (m_family != other.m_family)
        return m_family < other.m_family;
    int order = std::memcmp(m_bytes, other.m_bytes, sizeof m_bytes);
    if (order != 0)
        return order < 0;
    return m_prefix < other.m_prefix;
}

bool KQCIPv6::isResembling(const std::string& text)
{
    KQCIPAddress address;
    return address.fromString(text) == 0 && address.isV6();
}

} // namespace KQC
