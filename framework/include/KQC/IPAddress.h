#pragma once
// IP addresses with a prefix length, as configurations carry them.
//
// Text forms: "ADDRESS" or "ADDRESS/PREFIX" for IPv4 ("10.0.0.2/24") and
// IPv6 ("fe80::1/64"). A bare address gets the full prefix (32 or 128) and
// remembers that none was given, so it is written back bare by toString().
// Value type; thread safety as for any value.
#include <cstdint>
#include <string>

namespace KQC {

class KQCIPAddress {
public:
    enum Family { NONE = 0, IPV4 = 4, IPV6 = 6 };

    // An empty address of no family (isValid() is false).
    KQCIPAddress();

    // Parses "ADDRESS[/PREFIX]". 0 on success; -1 with the error message set
    // ("invalid IP address '%s'") and this object unchanged otherwise.
    int fromString(const std::string& text);
    static int parse(const std::string& text, KQCIPAddress& address);

    bool isValid() const { return m_family != NONE; }
    Family family() const { return m_family; }
    bool isV4() const { return m_family == IPV4; }
    bool isV6() const { return m_family == IPV6; }
    int prefixLength() const { return m_prefix; }
    bool hasPrefix() const { return m_prefixGiven; }
    void setPrefixLength(int prefix);

    // The address alone, in canonical form ("10.0.0.2", "fe80::1").
    std::string address() const;
    // The form the address was given in: bare, or with its prefix.
    std::string toString() const;
    // Always "ADDRESS/PREFIX", as the container tools expect it.
    std::string toStringWithNetwork() const;
    // The network part: the host bits cleared, the same prefix.
    KQCIPAddress network() const;
    // Whether `other` lies in this address's network.
    bool contains(const KQCIPAddress& other) const;

    // Family, address bytes and prefix length take part; the "given bare"
    // mark does not.
    bool operator==(const KQCIPAddress& other) const;
    bool operator!=(const KQCIPAddress& other) const { return !(*this == other); }
    bool operator<(const KQCIPAddress& other) const;

private:
    Family m_family;
    uint8_t m_bytes[16];
    int m_prefix;
    bool m_prefixGiven;
};

struct KQCIPv6 {
    // Whether the address (or text) is an IPv6 one.
    static bool isResembling(const KQCIPAddress& address) { return address.isV6(); }
    static bool isResembling(const std::string& text);
};

} // namespace KQC
