#include "KQC/Auth.h"

#include <gtest/gtest.h>

namespace {

template <int Type, const char* Name>
struct Module : KQC::KQCAuthMBase {
    explicit Module(const KQC::KQCAccessProvider&) {}
    static const KQC::KQCRealmList& getWellKnownRealms()
    {
        static KQC::KQCRealmList realms = [] {
            KQC::KQCRealm realm;
            realm.type = Type;
            realm.name = Name;
            return KQC::KQCRealmList{realm};
        }();
        return realms;
    }
    int authenticate(KQC::KQCToken*, const KQC::KQCAuthName&, const std::string&) override { return Type; }
    int getAuthName(KQC::KQCAuthName*, KQC::KQCAuthNameType*, const KQC::KQCSID&, const KQC::KQCGUID*) override
    {
        return 0;
    }
    int createToken(KQC::KQCToken*, const KQC::KQCSID&) override { return 0; }
};

char alpha[] = "Alpha";
char beta[] = "Beta";

template <class M>
boost::shared_ptr<KQC::KQCAuthMBaseLocalFactory::AuthMBaseLocalFactoryBase> factory()
{
    return boost::shared_ptr<KQC::KQCAuthMBaseLocalFactory::AuthMBaseLocalFactoryBase>(
        new KQC::KQCAuthMBaseLocalFactory::AuthMBaseLocalFactoryImpl<M>);
}

} // namespace

TEST(AuthTest, RegistersModulesWithTheirRealmsAndUndoesAClash)
{
    KQC::KQCAuthMBaseLocalFactory registry;
    ASSERT_EQ(0, registry.registerFactory(7001, factory<Module<7001, alpha>>()));
    EXPECT_EQ(-1, registry.registerFactory(7001, factory<Module<7001, beta>>()));
    // A second type whose realm name is taken leaves nothing behind.
    EXPECT_EQ(-1, registry.registerFactory(7002, factory<Module<7002, alpha>>()));
    EXPECT_FALSE(registry.isRegistered(7002));

    KQC::KQCRealm realm;
    ASSERT_EQ(0, registry.findRealm("Alpha", realm));
    EXPECT_EQ(7001, realm.type);
    auto module = registry.create(7001, KQC::KQCAccessProvider());
    ASSERT_TRUE(module);
    KQC::KQCToken token;
    EXPECT_EQ(7001, module->authenticate(&token, KQC::KQCAuthName(), ""));

    EXPECT_EQ(0, registry.unregisterFactory(7001));
    EXPECT_EQ(-1, registry.findRealm("Alpha", realm));
    EXPECT_EQ(-1, registry.unregisterFactory(7001));
    EXPECT_FALSE(registry.create(7001, KQC::KQCAccessProvider()));
}

TEST(AuthTest, SidsRoundTripThroughText)
{
    KQC::KQCEID eid = KQC::KQCGUIDBase::generateNew();
    KQC::KQCSID local = KQC::KQCLocalSID(0, 3, eid);
    KQC::KQCSID wellKnown = KQC::KQCSID::createWellKnownSID(9);
    for (const KQC::KQCSID& sid : {local, wellKnown}) {
        KQC::KQCSID back;
        ASSERT_EQ(0, back.fromString(sid.toString())) << sid.toString();
        EXPECT_EQ(sid, back);
    }
    EXPECT_EQ("S-1-5-9", wellKnown.toString());
    KQC::KQCSID bad;
    EXPECT_EQ(-1, bad.fromString("S-1-0-3-nonsense"));
    EXPECT_EQ(-1, bad.fromString("X-1-5-9"));
    EXPECT_FALSE(bad.isValid());
}
