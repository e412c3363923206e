#pragma once
// The template cache of the management library. Only its existence matters
// to the plug-in frame: createInstance makes the process-wide instance if
// it is not there yet and hands out a counted reference to it.
#include "KQC/RefCounted.h"

#include <boost/intrusive_ptr.hpp>

namespace KQS {

class KQSTemplateCachePrototype : public KQC::KQCRefCounted {
public:
    static boost::intrusive_ptr<KQSTemplateCachePrototype> createInstance();
    // Whether createInstance has made the instance.
    static bool exists();
};

} // namespace KQS
