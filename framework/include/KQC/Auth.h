#pragma once
// Authentication: security identifiers, tokens, realms and the factory of
// local authentication modules.
//
// A module authenticates the users of one realm type. Modules register a
// factory with the process-wide KQCAuthMBaseLocalFactory under their realm
// type; registering also records the module's well-known realms, so that a
// realm can be found by name or id. Thread safety: the factory registry is
// locked; modules are made per request.
#include "KQC/Access.h"
#include "KQC/GUID.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace KQC {

// A security identifier. Text forms: well-known "S-1-5-<n>"; local
// "S-1-<authority>-<type>-<eid without braces>".
class KQCSID {
public:
    KQCSID() = default;
    static KQCSID createWellKnownSID(int number);
    bool isValid() const { return m_kind != NONE; }
    bool isWellKnown() const { return m_kind == WELL_KNOWN; }
    bool isLocal() const { return m_kind == LOCAL; }
    int number() const { return m_number; }         // well-known number or local principal type
    int authority() const { return m_authority; }   // local SIDs
    const KQCEID& eid() const { return m_eid; }     // local SIDs: the environment
    std::string toString() const;
    int fromString(const std::string& text);        // 0 or -1
    bool operator==(const KQCSID& o) const;
    bool operator!=(const KQCSID& o) const { return !(*this == o); }
    bool operator<(const KQCSID& o) const { return toString() < o.toString(); }

protected:
    enum Kind { NONE, WELL_KNOWN, LOCAL };
    Kind m_kind = NONE;
    int m_number = 0;
    int m_authority = 0;
    KQCEID m_eid;
};

// A principal of one environment: (authority, principal type, environment).
class KQCLocalSID : public KQCSID {
public:
    KQCLocalSID(int authority, int type, const KQCEID& eid);
};

struct KQCToken {
    KQCSID user;
    std::vector<KQCSID> groups;

    // The agent's own identity, for work the agent does on its own behalf
    // rather than a client's (see KQCTokenHolder).
    static KQCToken getAgentToken();
};

// Makes `token` the calling thread's identity while the holder lives, then
// puts back the one before it. Holders nest; one thread's holder never
// changes another thread's identity.
class KQCTokenHolder {
public:
    explicit KQCTokenHolder(const KQCToken& token);
    ~KQCTokenHolder();
    KQCTokenHolder(const KQCTokenHolder&) = delete;
    KQCTokenHolder& operator=(const KQCTokenHolder&) = delete;

    // The innermost held token of this thread; nullptr when none is held.
    static const KQCToken* current();

private:
    KQCToken m_token;
    const KQCToken* m_previous;
};

struct KQCAuthName {
    std::string name;
    std::string domain;  // empty: no domain (the host)
};
typedef std::string KQCAuthNameType;

struct KQCRealm {
    KQCGUID id;
    int type = 0;
    std::string name;
    bool flag = false;
};
typedef std::vector<KQCRealm> KQCRealmList;

class KQCAuthMBase {
public:
    virtual ~KQCAuthMBase() = default;
    virtual int authenticate(KQCToken* token, const KQCAuthName& name, const std::string& password) = 0;
    virtual int getAuthName(KQCAuthName* name, KQCAuthNameType* type, const KQCSID& sid, const KQCGUID* realm) = 0;
    virtual int createToken(KQCToken* token, const KQCSID& sid) = 0;
};

class KQCAuthMBaseLocalFactory {
public:
    class AuthMBaseLocalFactoryBase {
    public:
        virtual ~AuthMBaseLocalFactoryBase() = default;
        virtual boost::shared_ptr<KQCAuthMBase> create(const KQCAccessProvider& access) = 0;
        virtual const KQCRealmList& getWellKnownRealms() const = 0;
    };

    template <class Module>
    class AuthMBaseLocalFactoryImpl : public AuthMBaseLocalFactoryBase {
    public:
        boost::shared_ptr<KQCAuthMBase> create(const KQCAccessProvider& access) override
        {
            return boost::shared_ptr<KQCAuthMBase>(new Module(access));
        }
        const KQCRealmList& getWellKnownRealms() const override { return Module::getWellKnownRealms(); }
    };

    static KQCAuthMBaseLocalFactory* getInstance();

    // 0; -1 when the realm type is taken, the factory is empty or one of its
    // well-known realms clashes with a recorded one (then nothing of this
    // registration stays).
    int registerFactory(int realmType, const boost::shared_ptr<AuthMBaseLocalFactoryBase>& factory);
    // 0, or -1 when nothing is registered under the type.
    int unregisterFactory(int realmType);
    bool isRegistered(int realmType) const;
    // A module of the realm type; empty (message set) when none is registered.
    boost::shared_ptr<KQCAuthMBase> create(int realmType, const KQCAccessProvider& access) const;
    // 0 with the realm, or -1 when no registered module knows the name.
    int findRealm(const std::string& name, KQCRealm& out) const;

private:
    mutable std::mutex m_mutex;
    std::map<int, boost::shared_ptr<AuthMBaseLocalFactoryBase>> m_factories;
    std::map<std::string, KQCRealm> m_realmsByName;
};

} // namespace KQC
