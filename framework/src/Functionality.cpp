#include "KQC/Functionality.h"

#include "KQS/Functionality.h"

namespace KQC {

template <>
KQCLibFunctionality& KQCFunctionality<KQCLibFunctionality>::kit()
{
    static KQCLibFunctionality instance;
    return instance;
}

template <>
KQS::KQSLibFunctionality& KQCFunctionality<KQS::KQSLibFunctionality>::kit()
{
    static KQS::KQSLibFunctionality instance;
    return instance;
}

} // namespace KQC
