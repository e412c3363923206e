#pragma once
// The agent-side record of a registered environment, as the registry
// writes it, for tests that lay out a registry by hand.
#include "KQC/Message.h"
#include "KQC/Tags.h"
#include "KQS/EnvConfig.h"

#include <stdexcept>
#include <string>

namespace kqtest {

inline std::string agentRecord(const KQS::KQSEnvConfig& config)
{
    auto message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    std::string text;
    if (message->getIterator().putObj(KQC::TAG_ENV_CONFIG, config) != 0 || message->saveToString(text) != 0)
        throw std::runtime_error("can't make an agent-side record");
    return text;
}

// The record of an environment of the host's own type on container `veid`.
inline std::string agentRecord(int veid)
{
    KQS::KQSEnvConfig config;
    config.setVeid(veid);
    return agentRecord(config);
}

} // namespace kqtest
