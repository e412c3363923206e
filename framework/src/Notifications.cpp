#include "KQS/Notifications.h"

#include <string>

namespace KQS {

KQSNotifications::KQSNotifications(const KQC::KQCEID& eid, const KQC::KQCAccessProvider& request)
    : m_eid(eid), m_request(request)
{
}

int KQSNotifications::sendCommandConfUpdate(const int* veid)
{
    if (!m_request)
        return 0;
    std::string text = veid ? "ctid " + std::to_string(*veid) : std::string("ctid unknown");
    if (m_eid.isValid())
        text += " env " + m_eid.toString();
    m_request->notify("conf-update", text);
    return 0;
}

} // namespace KQS
