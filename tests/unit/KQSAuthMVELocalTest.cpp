// Mapping container users' SIDs to names and tokens. Authentication itself
// runs the platform's tool and is tested end to end (AuthE2ETest).
#include "KQSAuthMVELocal.h"

#include "AgentRecord.h"
#include "TempHost.h"

#include "KQC/Error.h"
#include "KQC/Message.h"
#include "KQS/EnvConfig.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class KQSAuthMVELocalTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        eid.generate();
        stranger.generate();
        // The registry knows the container 101 under `eid`.
        host.write("etc/kqagent/configs/" + eid.toString(), kqtest::agentRecord(101));
    }

    kqtest::TempHost host;
    KQS::KQSAuthMVELocal module{KQC::KQCAccessProvider()};
    KQC::KQCEID eid;
    KQC::KQCEID stranger;
};

TEST_F(KQSAuthMVELocalTest, TokensForRootAndTheAdministratorOnlyOfAKnownContainer)
{
    struct Case {
        KQC::KQCSID sid;
        int rc;
        const char* error;
        std::vector<KQC::KQCSID> groups;
    };
    const KQC::KQCSID users = KQC::KQCLocalSID(0, 2, eid);
    const Case cases[] = {
        {KQC::KQCLocalSID(0, 1, eid), 0, "", {users, KQC::KQCSID::createWellKnownSID(9)}},
        {KQC::KQCLocalSID(0, 3, eid), 0, "", {users, KQC::KQCSID::createWellKnownSID(10)}},
        {users, -2, "invalid sid", {}},
        {KQC::KQCLocalSID(0, 1, stranger), -2, "invalid domain", {}},
        {KQC::KQCLocalSID(0, 1, KQC::KQCEID::EID_LOCAL), -2, "invalid domain", {}},
        {KQC::KQCSID::createWellKnownSID(9), -2, "invalid domain", {}},
    };
    for (const Case& c : cases) {
        KQC::KQCToken token;
        EXPECT_EQ(c.rc, module.createToken(&token, c.sid)) << c.sid.toString();
        if (c.rc != 0) {
            EXPECT_STREQ(c.error, KQC::getErrorMessage()) << c.sid.toString();
            continue;
        }
        EXPECT_EQ(c.sid, token.user);
        EXPECT_EQ(c.groups, token.groups) << c.sid.toString();
    }
}

TEST_F(KQSAuthMVELocalTest, NamesComeFromTheSidOrTheVocabulary)
{
    struct Case {
        KQC::KQCSID sid;
        int rc;
        const char* name;
        const char* domainOrType;
    };
    const Case cases[] = {
        {KQC::KQCLocalSID(0, 1, eid), 0, "root", "root"},
        {KQC::KQCLocalSID(0, 3, eid), 0, "morvoadmin", "morvoadmin"},
        {KQC::KQCLocalSID(0, 2, eid), -2, "", "invalid sid"},
        {KQC::KQCLocalSID(0, 3, stranger), -2, "", "invalid domain"},
    };
    for (const Case& c : cases) {
        KQC::KQCAuthName name;
        KQC::KQCAuthNameType type;
        EXPECT_EQ(c.rc, module.getAuthName(&name, &type, c.sid, nullptr)) << c.sid.toString();
        if (c.rc != 0) {
            EXPECT_STREQ(c.domainOrType, KQC::getErrorMessage());
            continue;
        }
        EXPECT_EQ(c.name, name.name);
        EXPECT_EQ(c.domainOrType, c.sid.number() == 1 ? name.domain : type);
    }
}

TEST_F(KQSAuthMVELocalTest, AnAdministratorNameNeedsTheVocabulary)
{
    // An existing but empty vocabulary folder: the host has no vocabulary.
    ASSERT_EQ(0, kqtest::run("rm -f '" + host.path("etc/kqagent/vocabulary") + "'/*"));
    KQC::KQCAuthName name;
    KQC::KQCAuthNameType type;
    EXPECT_EQ(-7, module.getAuthName(&name, &type, KQC::KQCLocalSID(0, 3, eid), nullptr));
    EXPECT_EQ(0, module.getAuthName(&name, &type, KQC::KQCLocalSID(0, 1, eid), nullptr));
}

TEST_F(KQSAuthMVELocalTest, TheRealmIsMadeOnce)
{
    const KQC::KQCRealmList& realms = KQS::KQSAuthMVELocal::getWellKnownRealms();
    ASSERT_EQ(1u, realms.size());
    EXPECT_EQ("Corvantis Container", realms[0].name);
    EXPECT_EQ(1000, realms[0].type);
    EXPECT_TRUE(realms[0].flag);
    EXPECT_TRUE(realms[0].id.isValid());
    EXPECT_EQ(&realms, &KQS::KQSAuthMVELocal::getWellKnownRealms());
}

} // namespace
