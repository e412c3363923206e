#pragma once
// Authentication of container users: the container's "root", the control
// panel's administrator and ordinary users of group 0, checked by the
// platform's authentication tool "kqauth".
//
// The password reaches the tool only through its standard input; it is
// never put on a command line, into a log line or into an error message.
// Users are named by local SIDs (principal type, environment): 1 the
// container's root, 2 the container's users, 3 the control-panel
// administrator.
// Results: 0; -2 (KQS_ERR_AUTH_REFUSED) for a bad domain, an unknown
// principal or wrong credentials; -7 (KQS_ERR_AUTH_UNAVAILABLE) when the
// tool cannot run, the control panel is missing or the vocabulary cannot
// be read. The thread's error message says why.
// Thread safety: a module is made per request; nothing is shared but the
// realm list, which is made once and never changed.
#include "KQC/Auth.h"

namespace KQS {

class KQSAuthMVELocal : public KQC::KQCAuthMBase {
public:
    // The realm type this module is registered under.
    static const int realmType = 1000;

    explicit KQSAuthMVELocal(const KQC::KQCAccessProvider& access);
    // The module's one realm, "Corvantis Container", made once per process.
    static const KQC::KQCRealmList& getWellKnownRealms();

    // The name's domain is the container's EID text; an empty domain is the
    // host, where only the control-panel administrator is looked at.
    int authenticate(KQC::KQCToken* token, const KQC::KQCAuthName& name, const std::string& password) override;
    int getAuthName(KQC::KQCAuthName* name, KQC::KQCAuthNameType* type, const KQC::KQCSID& sid,
                    const KQC::KQCGUID* realm) override;
    int createToken(KQC::KQCToken* token, const KQC::KQCSID& sid) override;

private:
    KQC::KQCAccessProvider m_access;
};

} // namespace KQS
