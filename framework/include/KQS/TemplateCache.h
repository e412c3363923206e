#pragma once
// The template cache of the management library. Only its existence matters
// to the plug-in frame: createInstance makes the process-wide instance if
// it is not there yet and hands out a counted reference to it.
#include <atomic>
#include <boost/intrusive_ptr.hpp>

namespace KQS {

class KQSTemplateCachePrototype {
public:
    static boost::intrusive_ptr<KQSTemplateCachePrototype> createInstance();
    // Whether createInstance has made the instance.
    static bool exists();

private:
    friend void intrusive_ptr_add_ref(KQSTemplateCachePrototype* p) { p->m_refs.fetch_add(1); }
    friend void intrusive_ptr_release(KQSTemplateCachePrototype* p)
    {
        if (p->m_refs.fetch_sub(1) == 1)
            delete p;
    }
    std::atomic<long> m_refs{0};
};

} // namespace KQS
