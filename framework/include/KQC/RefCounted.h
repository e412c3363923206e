#pragma once
// The base of objects held by boost::intrusive_ptr: an atomic count, and
// deletion through the virtual destructor when the last reference goes.
#include <atomic>

namespace KQC {

class KQCRefCounted {
public:
    KQCRefCounted() = default;
    KQCRefCounted(const KQCRefCounted&) = delete;
    KQCRefCounted& operator=(const KQCRefCounted&) = delete;

protected:
    virtual ~KQCRefCounted() = default;

private:
    friend void intrusive_ptr_add_ref(KQCRefCounted* p) { p->m_refs.fetch_add(1, std::memory_order_relaxed); }
    friend void intrusive_ptr_release(KQCRefCounted* p)
    {
        if (p->m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete p;
    }
    std::atomic<long> m_refs{0};
};

} // namespace KQC
