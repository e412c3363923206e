#include "KQC/Auth.h"

namespace KQC {
namespace {

// The agent's user is a well-known principal of its own; no client
// authenticates as it.
constexpr int kAgentUserNumber = 1;

thread_local const KQCToken* heldToken = nullptr;

} // namespace

KQCToken KQCToken::getAgentToken()
{
    KQCToken token;
    token.user = KQCSID::createWellKnownSID(kAgentUserNumber);
    return token;
}

KQCTokenHolder::KQCTokenHolder(const KQCToken& token) : m_token(token), m_previous(heldToken)
{
    heldToken = &m_token;
}

KQCTokenHolder::~KQCTokenHolder() { heldToken = m_previous; }

const KQCToken* KQCTokenHolder::current() { return heldToken; }

} // namespace KQC
