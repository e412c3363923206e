#pragma once
// A host on the network, named by a host name or by a numeric address, and
// what the system's resolver knows of it: its name and its addresses.
//
// A numeric address ("10.0.0.5", "fe80::1", a "/PREFIX" after it is
// ignored) is looked up backwards: the resource has a name when the
// resolver has one for the address. A host name is looked up forwards: the
// resource has its canonical name and addresses when the name resolves.
// Text that is neither (empty, spaces, a name over 253 characters or with
// characters no host name has) is never handed to the resolver.
//
// The lookup happens once, in the constructor, and may block as long as the
// system's resolver does. Value type; thread safety as for any value.
#include "KQC/IPAddress.h"

#include <string>
#include <vector>

namespace KQC {

class KQCNetworkResource {
public:
    explicit KQCNetworkResource(const std::string& text);

    const std::string& getText() const { return m_text; }
    bool hasName() const { return !m_name.empty(); }
    const std::string& getName() const { return m_name; }
    // For a numeric text, that address; for a host name, what it resolved
    // to, without repeats, in the resolver's order.
    const std::vector<KQCIPAddress>& getAddresses() const { return m_addresses; }

    // Whether the text could name a host: letters, digits, '-' and '.',
    // at most 253 characters, no label empty or over 63 characters.
    static bool isHostName(const std::string& text);

private:
    void resolveAddress(const std::string& bare);
    void resolveName();

    std::string m_text;
    std::string m_name;
    std::vector<KQCIPAddress> m_addresses;
};

} // namespace KQC
