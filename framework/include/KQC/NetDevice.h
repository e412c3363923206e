#pragma once
// A network device of an environment, as configurations carry it: name, MAC
// address, static addresses, DHCP use, gateways and nameservers.
// Value type; thread safety as for any value.
#include "KQC/IPAddress.h"

#include <string>
#include <vector>

namespace KQC {

class KQCMessageIterator;

class KQCNetDevice {
public:
    virtual ~KQCNetDevice() = default;

    const std::string& getName() const { return m_name; }
    void setName(const std::string& name) { m_name = name; }
    // Empty: let the container tool pick one.
    const std::string& getMac() const { return m_mac; }
    void setMac(const std::string& mac) { m_mac = mac; }
    const std::vector<KQCIPAddress>& getAddresses() const { return m_addresses; }
    std::vector<KQCIPAddress>& getAddresses() { return m_addresses; }
    void setAddresses(const std::vector<KQCIPAddress>& addresses) { m_addresses = addresses; }
    bool isDhcp() const { return m_dhcp; }
    void setDhcp(bool on) { m_dhcp = on; }
    bool isDhcp6() const { return m_dhcp6; }
    void setDhcp6(bool on) { m_dhcp6 = on; }
    // Whether either address family is configured through DHCP.
    bool isAnyDhcp() const { return m_dhcp || m_dhcp6; }
    const std::string& getGateway() const { return m_gateway; }
    void setGateway(const std::string& gateway) { m_gateway = gateway; }
    const std::string& getGateway6() const { return m_gateway6; }
    void setGateway6(const std::string& gateway) { m_gateway6 = gateway; }
    const std::vector<std::string>& getNameservers() const { return m_nameservers; }
    void setNameservers(const std::vector<std::string>& nameservers) { m_nameservers = nameservers; }

    bool operator==(const KQCNetDevice& other) const;
    int readFrom(KQCMessageIterator& it);
    int writeTo(KQCMessageIterator& it) const;

private:
    std::string m_name;
    std::string m_mac;
    std::vector<KQCIPAddress> m_addresses;
    bool m_dhcp = false;
    bool m_dhcp6 = false;
    std::string m_gateway;
    std::string m_gateway6;
    std::vector<std::string> m_nameservers;
};

} // namespace KQC
