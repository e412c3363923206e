// The plug-in frame, on the built shared library loaded with dlopen, as the
// host agent loads it.
#include "KQC/Auth.h"
#include "KQC/EnvCache.h"
#include "KQC/Log.h"
#include "PreloadedRun.h"
#include "TempHost.h"
#include "KQC/Functionality.h"
#include "KQS/Functionality.h"
#include "KQS/TemplateCache.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>

namespace {

class PluginFrameTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_handle = dlopen(KQ_LIB_DIR "/libKQSBasicFunctionalityLocal.so", RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(nullptr, m_handle) << dlerror();
        m_init = reinterpret_cast<int (*)()>(dlsym(m_handle, "initKQSBasicFunctionalityLocal"));
        m_fini = reinterpret_cast<int (*)()>(dlsym(m_handle, "finiKQSBasicFunctionalityLocal"));
        ASSERT_TRUE(m_init && m_fini);
    }

    // How many of the plug-in's registrations are in place.
    static int registrations()
    {
        auto& kqc = KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit();
        auto& kqs = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit();
        return kqc.getEnvMMultiplexer().hasFactory("corvantis") + kqs.getKQSEnvMMultiplexer().hasFactory("") +
               kqs.getKQSEnvMMultiplexer().hasFactory("corvantis") +
               kqs.getKQSProcessMMultiplexer().hasFactory("corvantis") +
               KQC::KQCAuthMBaseLocalFactory::getInstance()->isRegistered(1000);
    }

    kqtest::TempHost m_host;
    void* m_handle = nullptr;
    int (*m_init)() = nullptr;
    int (*m_fini)() = nullptr;
};

} // namespace

TEST_F(PluginFrameTest, OnlyTheFirstInitAndTheLastFiniDoAnythingAndTheManagersAreThePluginsOwn)
{
    ASSERT_EQ(0, registrations());
    EXPECT_EQ(0, m_init());
    EXPECT_EQ(5, registrations());
    EXPECT_EQ(1, KQS::functionalityAgentUsers());
    EXPECT_EQ(1, serverGroupLocalUsers());
    EXPECT_TRUE(KQS::KQSTemplateCachePrototype::exists());
    KQC::KQCRealm realm;
    EXPECT_EQ(0, KQC::KQCAuthMBaseLocalFactory::getInstance()->findRealm("Corvantis Container", realm));
    EXPECT_EQ(1000, realm.type);

    EXPECT_EQ(0, m_init());
    EXPECT_EQ(0, m_fini());
    EXPECT_EQ(5, registrations()) << "one client is still there";
    EXPECT_EQ(1, KQS::functionalityAgentUsers());

    EXPECT_EQ(0, m_fini());
    EXPECT_EQ(0, registrations());
    EXPECT_EQ(0, KQS::functionalityAgentUsers());
    EXPECT_EQ(0, serverGroupLocalUsers());
    EXPECT_EQ(-1, KQC::KQCAuthMBaseLocalFactory::getInstance()->findRealm("Corvantis Container", realm));

    // A later client registers everything again: the plug-in's own managers.
    ASSERT_EQ(0, m_init());
    EXPECT_EQ(5, registrations());
    boost::shared_ptr<KQS::KQSEnvM> envM;
    auto& mux = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSEnvMMultiplexer();
    ASSERT_EQ(0, mux.create("corvantis", KQC::KQCAccessProvider(), envM));
    KQC::KQCEID eid;
    EXPECT_EQ(3804, envM->findByVeid(101, eid));
    envM.reset();
    EXPECT_EQ(0, m_fini());
    EXPECT_EQ(0, registrations());
}

TEST_F(PluginFrameTest, UnbalancedFiniAborts)
{
    EXPECT_DEATH(m_fini(), "clientsNum");
}

namespace {

// The lines a plug-in start wrote to the log.
std::vector<std::string> logLinesOfInit(int (*init)(), const std::string& logPath)
{
    KQC::LogSettings::setFile(logPath);
    KQC::LogSettings::setThreshold(3);
    init();
    KQC::LogSettings::setFile("");
    return kqtest::lines(kqtest::readFile(logPath));
}

} // namespace

TEST_F(PluginFrameTest, AFailedWarmUpLogsOneLineAndStillSucceeds)
{
    // An empty root has no registry folder, so the warm-up cannot list.
    std::vector<std::string> lines = logLinesOfInit(m_init, m_host.path("agent.log"));
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos,
              lines[0].find(" 1 KQSBasicFunctionalityLocal KQSBasicFunctionalityLocal.cpp:"))
        << lines[0];
    EXPECT_NE(std::string::npos, lines[0].find("[initKQSBasicFunctionalityLocal] Can't getInfo about existed CTs : "))
        << lines[0];
    EXPECT_EQ(5, registrations()) << "the failure does not stop the start";
    EXPECT_EQ(0, m_fini());
}

TEST_F(PluginFrameTest, StartFillsTheCacheWithTheHostsContainers)
{
    if (kqtest::ranInPreloadedChild())
        return;
    std::string root = kqtest::hostRoot();
    ASSERT_EQ(0, kqtest::run(std::string(KQ_BIN_DIR) + "/kqsim init '" + root + "' >/dev/null"));
    std::vector<std::string> lines = logLinesOfInit(m_init, root + "/empty.log");
    EXPECT_TRUE(lines.empty()) << lines.front();
    EXPECT_EQ(1u, KQC::envCache()->size()) << "an empty host: only the host itself";
    EXPECT_EQ(0, m_fini());

    ASSERT_EQ(0, kqtest::run(std::string(KQ_BIN_DIR) + "/kqsim add '" + root + "' 101 --state running >/dev/null"));
    ASSERT_EQ(0, kqtest::run(std::string(KQ_BIN_DIR) + "/kqsim add '" + root + "' 102 >/dev/null"));
    lines = logLinesOfInit(m_init, root + "/full.log");
    EXPECT_TRUE(lines.empty()) << lines.front();
    EXPECT_EQ(3u, KQC::envCache()->size());
    int running = 0;
    boost::shared_ptr<KQC::KQCEnvList> cached = KQC::envCache()->getEnvList();
    for (const auto& env : *cached)
        running += env->getStatus().state() == 6 && env->getEID() != KQC::KQCEID::EID_LOCAL;
    EXPECT_EQ(1, running);
    EXPECT_EQ(0, m_fini());
}
