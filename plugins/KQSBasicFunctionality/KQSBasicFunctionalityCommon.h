#pragma once
// What every unit of the plug-in shares: the keys its factories are
// registered under and the way it writes log lines.
#include "KQC/Log.h"

#include <string>

namespace KQS {

// The keys of the plug-in's local factories: the empty key (the default
// manager) and the environment type this host serves.
static const std::string kEmptyKey = "";
static const std::string kCorvantisKey = "corvantis";

} // namespace KQS

// One log line of the plug-in: KQS_LOG().put(level, "[%s] ...", __func__, ...).
#define KQS_LOG() \
    KQC::Log2("KQSBasicFunctionalityLocal", __FILE__, __LINE__, __func__, __PRETTY_FUNCTION__)
