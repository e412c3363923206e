// Picking VEIDs: bounds, the free test, random allocation, allocation that
// keeps clear of existing areas, and the first-gap search.
#include "KQSEnvMLocal.h"

#include "TempHost.h"

#include "KQC/EnvCache.h"
#include "KQC/Error.h"

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

namespace {

class VeidTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (const KQC::KQCEID& eid : m_cached)
            KQC::envCache()->remove(eid);
    }

    // A container the environment cache knows.
    void cached(int veid)
    {
        KQC::KQCEID eid;
        eid.generate();
        KQC::KQCEnv env(eid, "corvantis");
        auto config = boost::make_shared<KQS::KQSEnvConfig>();
        config->setVeid(veid);
        env.setConfig(config);
        KQC::envCache()->insert(env);
        m_cached.push_back(eid);
    }
    void bounds(const std::string& values)
    {
        host.write("etc/kqagent/KQSVpsAgent.conf",
                   "<message name=\"configuration\"><node key=\"data\"><node key=\"kqsenvm\">"
                   "<node key=\"configuration\">" +
                       values + "</node></node></node></message>\n");
    }
    void hostSettings()
    {
        host.write("etc/sysconfig/kq", "VE_ROOT=\"" + host.path("root/$VEID") + "\"\nVE_PRIVATE=\"" +
                                           host.path("private/$VEID") + "\"\n");
    }
    void makeDir(const std::string& relative) { ASSERT_EQ(0, kqtest::run("mkdir -p '" + host.path(relative) + "'")); }

    kqtest::TempHost host;
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};

private:
    std::vector<KQC::KQCEID> m_cached;
};

// Without the configuration node the defaults hold and the call says so.
TEST_F(VeidTest, BoundsComeFromTheAgentConfiguration)
{
    struct Case {
        const char* values;  // nullptr: a configuration without the node
        int result, min, max;
    } cases[] = {
        {nullptr, -1, 100, 134217727},
        {"<int key=\"minVeid\">200</int><int key=\"maxVeid\">300</int>", 0, 200, 300},
        {"<int key=\"minVeid\">500</int>", 0, 500, 134217727},
    };
    int min = 0, max = 0;
    EXPECT_EQ(-1, envm.getVeidBounds(&min, &max)) << "no configuration file";
    EXPECT_EQ(100, min);
    EXPECT_EQ(134217727, max);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.values ? c.values : "no node");
        if (c.values)
            bounds(c.values);
        else
            host.write("etc/kqagent/KQSVpsAgent.conf", "<message name=\"configuration\"></message>\n");
        min = max = 0;
        EXPECT_EQ(c.result, envm.getVeidBounds(&min, &max));
        EXPECT_EQ(c.min, min);
        EXPECT_EQ(c.max, max);
    }
}

TEST_F(VeidTest, DrawsFromTheDefaultRange)
{
    std::srand(7);
    int expected = std::rand() % (134217727 - 100) + 100;
    std::srand(7);
    int veid = 0;
    ASSERT_EQ(0, envm.allocateVeid(veid));
    EXPECT_EQ(expected, veid);
}

// A taken candidate moves up, past the maximum rather than wrapping.
TEST_F(VeidTest, ATakenCandidateMovesUp)
{
    // Only cached environments make a VEID busy.
    cached(101);
    EXPECT_EQ(-1, envm.checkVeid(101));
    EXPECT_EQ(0, envm.checkVeid(102));

    bounds("<int key=\"minVeid\">500</int><int key=\"maxVeid\">500</int>");
    int veid = 0;
    ASSERT_EQ(0, envm.allocateVeid(veid));
    EXPECT_EQ(500, veid);

    cached(500);
    ASSERT_EQ(0, envm.allocateVeid(veid));
    EXPECT_EQ(501, veid);

    cached(501);
    EXPECT_EQ(-1, envm.allocateVeid(veid));
    EXPECT_STREQ("can't allocate veid - no free veid", KQC::getErrorMessage());

    bounds("<int key=\"minVeid\">500</int><int key=\"maxVeid\">502</int>");
    cached(502);
    for (unsigned seed = 1; seed < 5; ++seed) {
        std::srand(seed);
        ASSERT_EQ(0, envm.allocateVeid(veid));
        EXPECT_EQ(503, veid);
    }
}

// With no area in the way the first random candidate is taken, also when
// the private template names one folder for every container.
TEST_F(VeidTest, FromMasterTakesTheFirstCandidateWhenNoAreaIsInTheWay)
{
    hostSettings();
    bounds("<int key=\"minVeid\">700</int><int key=\"maxVeid\">710</int>");
    makeDir("shared");
    KQS::KQSEnvConfig shared;
    shared.setVEPrivateVar(host.path("shared"));
    for (KQS::KQSEnvConfig* config : {static_cast<KQS::KQSEnvConfig*>(nullptr), &shared}) {
        std::srand(3);
        int expected = 0;
        ASSERT_EQ(0, envm.allocateVeid(expected));
        std::srand(3);
        int veid = 0;
        ASSERT_EQ(0, envm.allocateVeidFromMaster(veid, config)) << KQC::getErrorMessage();
        EXPECT_EQ(expected, veid) << (config ? "shared private folder" : "host templates");
    }
}

TEST_F(VeidTest, FromMasterNeedsTheHostSettingsAndGivesUpWhenEveryHostAreaIsTaken)
{
    int veid = 0;
    EXPECT_EQ(-1, envm.allocateVeidFromMaster(veid, nullptr));
    EXPECT_EQ("open '" + host.path("etc/sysconfig/kq") + "' : No such file or directory",
              std::string(KQC::getErrorMessage()));

    hostSettings();
    bounds("<int key=\"minVeid\">700</int><int key=\"maxVeid\">703</int>");
    for (int veid = 700; veid <= 703; ++veid)
        makeDir("private/" + std::to_string(veid));
    EXPECT_EQ(-1, envm.allocateVeidFromMaster(veid, nullptr));
    EXPECT_STREQ("can't allocate ctid - no free resources.", KQC::getErrorMessage());

    // The configuration's own templates come before the host's.
    KQS::KQSEnvConfig config;
    config.setVEPrivateVar(host.path("mine/$VEID"));
    ASSERT_EQ(0, envm.allocateVeidFromMaster(veid, &config)) << KQC::getErrorMessage();
    EXPECT_GE(veid, 700);
    EXPECT_LE(veid, 703);

    // A taken root area refuses the candidate as well.
    ASSERT_EQ(0, kqtest::run("rm -rf '" + host.path("private") + "'"));
    for (int veid = 700; veid <= 703; ++veid)
        makeDir("root/" + std::to_string(veid));
    EXPECT_EQ(-1, envm.allocateVeidFromMaster(veid, nullptr));
}

TEST_F(VeidTest, InitVeidFindsTheFirstGap)
{
    int veid = 100;
    ASSERT_EQ(0, envm.initVeid(veid, 100));
    EXPECT_EQ(100, veid);

    cached(100);
    cached(101);
    cached(103);
    cached(50);  // below the minimum: not looked at
    veid = 100;
    ASSERT_EQ(0, envm.initVeid(veid, 100));
    EXPECT_EQ(102, veid);
    veid = 103;
    ASSERT_EQ(0, envm.initVeid(veid, 100));
    EXPECT_EQ(104, veid);
    // Past every used VEID the search starts over from the bottom.
    veid = 500;
    ASSERT_EQ(0, envm.initVeid(veid, 100));
    EXPECT_EQ(102, veid);
}

} // namespace
