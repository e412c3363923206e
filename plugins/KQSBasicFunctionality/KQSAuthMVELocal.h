#pragma once
// Authentication of container users ("root" and the control panel's
// administrator) through the platform's authentication tool.
#include "KQC/Auth.h"

namespace KQS {

class KQSAuthMVELocal : public KQC::KQCAuthMBase {
public:
    // The realm type this module is registered under.
    static const int realmType = 1000;

    explicit KQSAuthMVELocal(const KQC::KQCAccessProvider& access);
    // The module's one realm, "Corvantis Container", made once per process.
    static const KQC::KQCRealmList& getWellKnownRealms();

    int authenticate(KQC::KQCToken* token, const KQC::KQCAuthName& name, const std::string& password) override;
    int getAuthName(KQC::KQCAuthName* name, KQC::KQCAuthNameType* type, const KQC::KQCSID& sid,
                    const KQC::KQCGUID* realm) override;
    int createToken(KQC::KQCToken* token, const KQC::KQCSID& sid) override;

private:
    KQC::KQCAccessProvider m_access;
};

} // namespace KQS
