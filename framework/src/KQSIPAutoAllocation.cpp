#include "KQS/IPAutoAllocation.h"

#include "KQC/Error.h"

namespace KQS {
namespace IPAutoAllocation {

int Builder::buildAdapter(size_t index, KQC::IPAutoAllocation::Director& director)
{
    if (index >= m_adapters.size()) {
        KQC::setErrorMessage("no adapter number %zu", index);
        return KQC::KQC_ERR_IP_POOL_STATE;
    }
    KQSNetVEth& adapter = m_adapters[index];
    for (KQC::KQCIPAddress& address : adapter.getAddresses()) {
        if (!KQC::IPAutoAllocation::isAutomatic(address))
            continue;
        KQC::KQCIPAddress chosen;
        if (int rc = director.allocate(address.family(), adapter.getName(), chosen))
            return rc;
        address = chosen;
    }
    return KQC::KQC_OK;
}

bool Builder::wantsAddresses() const
{
    for (const KQSNetVEth& adapter : m_adapters)
        for (const KQC::KQCIPAddress& address : adapter.getAddresses())
            if (KQC::IPAutoAllocation::isAutomatic(address))
                return true;
    return false;
}

} // namespace IPAutoAllocation
} // namespace KQS
