#include "KQC/Auth.h"

#include "KQC/Error.h"
#include "TextHelpers.h"

#include <cstdio>
#include <cstdlib>

namespace KQC {
namespace {

std::string eidBody(const KQCEID& eid)
{
    std::string text = eid.toString();
    return text.substr(1, text.size() - 2);
}

bool parseInt(const std::string& text, int& out)
{
    if (!isShortDecimal(text))
        return false;
    out = std::atoi(text.c_str());
    return true;
}

} // namespace

KQCSID KQCSID::createWellKnownSID(int number)
{
    KQCSID sid;
    sid.m_kind = WELL_KNOWN;
    sid.m_number = number;
    return sid;
}

KQCLocalSID::KQCLocalSID(int authority, int type, const KQCEID& eid)
{
    m_kind = LOCAL;
    m_authority = authority;
    m_number = type;
    m_eid = eid;
}

std::string KQCSID::toString() const
{
    switch (m_kind) {
    case WELL_KNOWN:
        return "S-1-5-" + std::to_string(m_number);
    case LOCAL:
        return "S-1-" + std::to_string(m_authority) + "-" + std::to_string(m_number) + "-" + eidBody(m_eid);
    default:
        return "";
    }
}

int KQCSID::fromString(const std::string& text)
{
    if (text.compare(0, 4, "S-1-") != 0)
        return -1;
    std::string rest = text.substr(4);
    size_t dash = rest.find('-');
    if (dash == std::string::npos)
        return -1;
    int first = 0, second = 0;
    if (!parseInt(rest.substr(0, dash), first))
        return -1;
    std::string tail = rest.substr(dash + 1);
    size_t dash2 = tail.find('-');
    if (dash2 == std::string::npos) {
        if (first != 5 || !parseInt(tail, second))
            return -1;
        *this = createWellKnownSID(second);
        return 0;
    }
    KQCEID eid;
    if (!parseInt(tail.substr(0, dash2), second) || eid.fromString(tail.substr(dash2 + 1)) != 0)
        return -1;
    *this = KQCLocalSID(first, second, eid);
    return 0;
}

bool KQCSID::operator==(const KQCSID& o) const
{
    return m_kind == o.m_kind && m_number == o.m_number && m_authority == o.m_authority && m_eid == o.m_eid;
}

KQCAuthMBaseLocalFactory* KQCAuthMBaseLocalFactory::getInstance()
{
    static KQCAuthMBaseLocalFactory* instance = new KQCAuthMBaseLocalFactory;
    return instance;
}

int KQCAuthMBaseLocalFactory::registerFactory(int realmType,
                                              const boost::shared_ptr<AuthMBaseLocalFactoryBase>& factory)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!factory) {
        setErrorMessage("no authentication factory given for realm type %d", realmType);
        return -1;
    }
    if (m_factories.count(realmType)) {
        setErrorMessage("realm type %d is registered already", realmType);
        return -1;
    }
    const KQCRealmList& realms = factory->getWellKnownRealms();
    for (const KQCRealm& realm : realms) {
        if (m_realmsByName.count(realm.name)) {
            setErrorMessage("realm '%s' is registered already", realm.name.c_str());
            return -1;
        }
    }
    for (const KQCRealm& realm : realms)
        m_realmsByName[realm.name] = realm;
    m_factories[realmType] = factory;
    return 0;
}

int KQCAuthMBaseLocalFactory::unregisterFactory(int realmType)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_factories.find(realmType);
    if (it == m_factories.end()) {
        setErrorMessage("realm type %d is not registered", realmType);
        return -1;
    }
    for (const KQCRealm& realm : it->second->getWellKnownRealms())
        m_realmsByName.erase(realm.name);
    m_factories.erase(it);
    return 0;
}

bool KQCAuthMBaseLocalFactory::isRegistered(int realmType) const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_factories.count(realmType) != 0;
}

boost::shared_ptr<KQCAuthMBase> KQCAuthMBaseLocalFactory::create(int realmType,
                                                                 const KQCAccessProvider& access) const
{
    boost::shared_ptr<AuthMBaseLocalFactoryBase> factory;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        auto it = m_factories.find(realmType);
        if (it != m_factories.end())
            factory = it->second;
    }
    if (!factory) {
        setErrorMessage("no authentication module for realm type %d", realmType);
        return boost::shared_ptr<KQCAuthMBase>();
    }
    return factory->create(access);
}

int KQCAuthMBaseLocalFactory::findRealm(const std::string& name, KQCRealm& out) const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    auto it = m_realmsByName.find(name);
    if (it == m_realmsByName.end()) {
        setErrorMessage("unknown realm '%s'", name.c_str());
        return -1;
    }
    out = it->second;
    return 0;
}

} // namespace KQC
