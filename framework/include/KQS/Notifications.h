#pragma once
// Notifications to the agent's clients about environments.
//
// A notification goes to the client of the request it is made for (its
// access provider's notify()), as an event name and a text; an empty
// provider (the plug-in's own work) notifies nobody.
#include "KQC/Access.h"
#include "KQC/GUID.h"

namespace KQS {

class KQSNotifications {
public:
    KQSNotifications(const KQC::KQCEID& eid, const KQC::KQCAccessProvider& request);
    // "the configuration of container VEID was updated": event
    // "conf-update", text "ctid VEID" (or "ctid unknown" for a null
    // pointer). 0.
    int sendCommandConfUpdate(const int* veid);

private:
    KQC::KQCEID m_eid;
    KQC::KQCAccessProvider m_request;
};

} // namespace KQS
