#pragma once
// A container's virtual Ethernet adapter: a network device plus the virtual
// network it is attached to, the host-routed flag and its live status.
// The adapter named "venet0" with the host-routed flag is the container's
// default host-routed adapter: every container has it, and its addresses
// are the container's host-routed addresses (IP_ADDRESS of its file).
// Value type; thread safety as for any value.
#include "KQC/NetDevice.h"

#include <string>
#include <vector>

namespace KQS {

extern const char kDefaultHostRoutedName[];  // "venet0"

class KQSNetVEth : public KQC::KQCNetDevice {
public:
    enum Status { STATUS_UNKNOWN = 0, STATUS_DOWN = 1, STATUS_UP = 2 };

    // Empty: attached to no virtual network.
    const std::string& getNetworkId() const { return m_networkId.get(); }
    void setNetworkId(const std::string& id)
    {
        if (id.empty())
            m_networkId.unset();
        else
            m_networkId.set(id);
    }
    bool isHostRouted() const { return m_hostRouted; }
    void setHostRouted(bool on) { m_hostRouted = on; }
    // The host-routed flag with the name "venet0".
    bool isDefaultHostRouted() const;
    // Bit set: 1 down, 2 up, 0 not known.
    int getStatus() const { return m_status; }
    void setStatus(int status) { m_status = status; }

    bool operator==(const KQSNetVEth& other) const;
    bool operator!=(const KQSNetVEth& other) const { return !(*this == other); }
    int readFrom(KQC::KQCMessageIterator& it);
    int writeTo(KQC::KQCMessageIterator& it) const;

private:
    // Sparse: most adapters are on no virtual network.
    KQC::KQCSparseProperty<std::string> m_networkId;
    bool m_hostRouted = false;
    int m_status = STATUS_UNKNOWN;
};

typedef std::vector<KQSNetVEth> KQSNetVEthList;

} // namespace KQS
