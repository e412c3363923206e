#include "KQSAuthMVELocal.h"

#include "KQC/Error.h"

namespace KQS {
namespace {

// The realm's id: a fixed GUID of this plug-in.
const char* const kRealmId = "{6b1d3f0e-52c4-4a8e-9d27-c0a5e3b17f41}";

int notAvailable()
{
    KQC::setErrorMessage("container user authentication is not available on this host yet");
    return -7;
}

} // namespace

KQSAuthMVELocal::KQSAuthMVELocal(const KQC::KQCAccessProvider& access) : m_access(access) {}

const KQC::KQCRealmList& KQSAuthMVELocal::getWellKnownRealms()
{
    static const KQC::KQCRealmList realms = [] {
        KQC::KQCRealm realm;
        realm.id.fromString(kRealmId);
        realm.type = realmType;
        realm.name = "Corvantis Container";
        realm.flag = true;
        return KQC::KQCRealmList{realm};
    }();
    return realms;
}

int KQSAuthMVELocal::authenticate(KQC::KQCToken*, const KQC::KQCAuthName&, const std::string&) { return notAvailable(); }

int KQSAuthMVELocal::getAuthName(KQC::KQCAuthName*, KQC::KQCAuthNameType*, const KQC::KQCSID&, const KQC::KQCGUID*)
{
    return notAvailable();
}

int KQSAuthMVELocal::createToken(KQC::KQCToken*, const KQC::KQCSID&) { return notAvailable(); }

} // namespace KQS
