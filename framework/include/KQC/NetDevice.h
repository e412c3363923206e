#pragma once
// A network device of an environment, as configurations carry it: name, MAC
// address, static addresses, DHCP use, gateways and nameservers.
// Value type; thread safety as for any value.
#include "KQC/IPAddress.h"
#include "KQC/OptionalProperty.h"

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
    const std::string& getMac() const { return details().mac; }
    void setMac(const std::string& mac) { change([&](Details& d) { d.mac = mac; }); }
    const std::vector<KQCIPAddress>& getAddresses() const { return m_addresses; }
    std::vector<KQCIPAddress>& getAddresses() { return m_addresses; }
    void setAddresses(const std::vector<KQCIPAddress>& addresses) { m_addresses = addresses; }
    bool isDhcp() const { return m_dhcp; }
    void setDhcp(bool on) { m_dhcp = on; }
    bool isDhcp6() const { return m_dhcp6; }
    void setDhcp6(bool on) { m_dhcp6 = on; }
    // Whether either address family is configured through DHCP.
    bool isAnyDhcp() const { return m_dhcp || m_dhcp6; }
    const std::string& getGateway() const { return details().gateway; }
    void setGateway(const std::string& gateway) { change([&](Details& d) { d.gateway = gateway; }); }
    const std::string& getGateway6() const { return details().gateway6; }
    void setGateway6(const std::string& gateway) { change([&](Details& d) { d.gateway6 = gateway; }); }
    const std::vector<std::string>& getNameservers() const { return details().nameservers; }
    void setNameservers(const std::vector<std::string>& nameservers)
    {
        change([&](Details& d) { d.nameservers = nameservers; });
    }

    bool operator==(const KQCNetDevice& other) const;
    int readFrom(KQCMessageIterator& it);
    int writeTo(KQCMessageIterator& it) const;

private:
    // What an adapter bridged to a network may carry and a host-routed one
    // never does. Held apart while all of it is empty, so that the usual
    // adapter of a host's thousands of containers costs one pointer for it.
    struct Details {
        std::string mac;
        std::string gateway;
        std::string gateway6;
        std::vector<std::string> nameservers;

        bool operator==(const Details& other) const
        {
            return mac == other.mac && gateway == other.gateway && gateway6 == other.gateway6 &&
                   nameservers == other.nameservers;
        }
        bool empty() const { return *this == Details(); }
    };

    const Details& details() const { return m_details.get(); }
    template <class Change>
    void change(Change apply)
    {
        Details changed = details();
        apply(changed);
        if (changed.empty())
            m_details.unset();
        else
            m_details.set(changed);
    }

    std::string m_name;
    std::vector<KQCIPAddress> m_addresses;
    bool m_dhcp = false;
    bool m_dhcp6 = false;
    KQCSparseProperty<Details> m_details;
};

} // namespace KQC
