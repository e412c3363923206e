#include "KQS/NetVEth.h"

#include "KQC/Message.h"
#include "RecordMessageIO.h"

namespace KQC {

bool KQCNetDevice::operator==(const KQCNetDevice& other) const
{
    return m_name == other.m_name && m_addresses == other.m_addresses && m_dhcp == other.m_dhcp &&
           m_dhcp6 == other.m_dhcp6 && details() == other.details();
}

int KQCNetDevice::readFrom(KQCMessageIterator& it)
{
    int dhcp = 0;
    int dhcp6 = 0;
    KQCMessageIterator list;
    m_addresses.clear();
    // Only the name is required; the rest defaults as a new device would.
    if (it.getString(TAG_NAME, m_name) != 0)
        return -1;
    it.getInt(TAG_DHCP, dhcp);
    it.getInt(TAG_DHCP6, dhcp6);
    m_dhcp = dhcp != 0;
    m_dhcp6 = dhcp6 != 0;
    change([&](Details& d) {
        d.nameservers.clear();
        it.getString(TAG_MAC, d.mac);
        it.getString(TAG_GATEWAY, d.gateway);
        it.getString(TAG_GATEWAY6, d.gateway6);
        if (it.childAt(tagKey(TAG_NAMESERVERS), 0, list) == 0)
            list.getStrings(TAG_ITEM, d.nameservers);
    });
    return RecordMessageIO::readAddressItems(it, TAG_ADDRESSES, m_addresses);
}

int KQCNetDevice::writeTo(KQCMessageIterator& it) const
{
    it.putString(TAG_NAME, m_name);
    it.putString(TAG_MAC, getMac());
    RecordMessageIO::writeAddressItems(it, TAG_ADDRESSES, m_addresses);
    it.putInt(TAG_DHCP, m_dhcp ? 1 : 0);
    it.putInt(TAG_DHCP6, m_dhcp6 ? 1 : 0);
    it.putString(TAG_GATEWAY, getGateway());
    it.putString(TAG_GATEWAY6, getGateway6());
    RecordMessageIO::writeStrings(it, TAG_NAMESERVERS, KQCOptionalProperty<KQCStringList>(getNameservers()));
    return 0;
}

} // namespace KQC

namespace KQS {

const char kDefaultHostRoutedName[] = "venet0";

bool KQSNetVEth::isDefaultHostRouted() const { return m_hostRouted && getName() == kDefaultHostRoutedName; }

bool KQSNetVEth::operator==(const KQSNetVEth& other) const
{
    return KQC::KQCNetDevice::operator==(other) && getNetworkId() == other.getNetworkId() &&
           m_hostRouted == other.m_hostRouted && m_status == other.m_status;
}

int KQSNetVEth::readFrom(KQC::KQCMessageIterator& it)
{
    int hostRouted = 0;
    m_status = STATUS_UNKNOWN;
    if (KQC::KQCNetDevice::readFrom(it) != 0)
        return -1;
    std::string network = getNetworkId();
    it.getString(KQC::TAG_NETWORK_ID, network);
    setNetworkId(network);
    it.getInt(KQC::TAG_HOST_ROUTED, hostRouted);
    it.getInt(KQC::TAG_STATUS, m_status);
    m_hostRouted = hostRouted != 0;
    return 0;
}

int KQSNetVEth::writeTo(KQC::KQCMessageIterator& it) const
{
    KQC::KQCNetDevice::writeTo(it);
    it.putString(KQC::TAG_NETWORK_ID, getNetworkId());
    it.putInt(KQC::TAG_HOST_ROUTED, m_hostRouted ? 1 : 0);
    it.putInt(KQC::TAG_STATUS, m_status);
    return 0;
}

} // namespace KQS
