#pragma once
// The management library's side of automatic addresses: the adapters of a
// container being made, with each automatic address (KQC/IPAutoAllocation.h)
// replaced by one the director hands out.
// Value-like; one builder belongs to one request's thread.
#include "KQC/IPAutoAllocation.h"
#include "KQS/NetVEth.h"

namespace KQS {
namespace IPAutoAllocation {

class Builder : public KQC::IPAutoAllocation::BuilderBase {
public:
    explicit Builder(const KQSNetVEthList& adapters) : m_adapters(adapters) {}

    size_t adapterCount() const override { return m_adapters.size(); }
    int buildAdapter(size_t index, KQC::IPAutoAllocation::Director& director) override;

    // Whether any adapter asks for an automatic address.
    bool wantsAddresses() const;
    // The adapters with the addresses filled in so far.
    const KQSNetVEthList& getResult() const { return m_adapters; }

private:
    KQSNetVEthList m_adapters;
};

} // namespace IPAutoAllocation
} // namespace KQS
