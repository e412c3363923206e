// The plug-in's entry and exit points.
//
// The agent calls init once per client and fini when a client goes; only
// the first init and the last fini do any work. The two must not run at
// the same time: the counter is a plain integer on purpose, the agent
// serialises plug-in loading.
#include "KQSAuthMVELocal.h"
#include "KQSBasicFunctionalityCommon.h"
#include "KQSDevLocal.h"
#include "KQSEnvMLocal.h"
#include "KQSKqStatLocal.h"
#include "KQSProcessMLocal.h"
#include "KQSSampleMLocal.h"
#include "KQSTEMLocal.h"
#include "KQSProcessMonitorLocal.h"

#include "KQC/Boundary.h"
#include "KQC/EnvCache.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Functionality.h"
#include "KQC/HostPaths.h"
#include "KQS/Functionality.h"
#include "KQS/TemplateCache.h"

#include <cassert>
#include <cstdlib>
#include <cstdio>

namespace {

int clientsNum = 0;

typedef boost::shared_ptr<KQC::KQCEnvM> EnvMPtr;
typedef boost::shared_ptr<KQS::KQSEnvM> KQSEnvMPtr;
typedef boost::shared_ptr<KQS::KQSProcessM> ProcessMPtr;
typedef boost::shared_ptr<KQS::KQSSampleM> SampleMPtr;
typedef boost::shared_ptr<KQS::KQSTEM> TEMPtr;
typedef boost::shared_ptr<KQS::KQSProcessMonitor> ProcessMonitorPtr;
typedef boost::shared_ptr<KQS::KQSKqStat> KqStatPtr;
typedef boost::shared_ptr<KQC::KQCDevM> DevMPtr;

// The statistics collector, the process monitor and the device manager:
// the agent reaches them through the same kind of factory as the managers
// above.
void registerOperatorFactories(KQC::KQCLibFunctionality& kqcKit, KQS::KQSLibFunctionality& kqsKit)
{
    kqsKit.getKQSProcessMonitorMultiplexer().registerLocalFactory(
        boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<ProcessMonitorPtr>>(
            new KQC::KQCFunctionalFactoryLocalImpl<ProcessMonitorPtr, KQS::KQSProcessMonitorLocal>),
        KQS::kCorvantisKey);
    kqsKit.getKQSKqStatMultiplexer().registerLocalFactory(
        boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<KqStatPtr>>(
            new KQC::KQCFunctionalFactoryLocalImpl<KqStatPtr, KQS::KQSKqStatLocal>),
        KQS::kCorvantisKey);
    kqcKit.getDevMMultiplexer().registerLocalFactory(
        boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<DevMPtr>>(
            new KQC::KQCFunctionalFactoryLocalImpl<DevMPtr, KQS::KQSDevLocal>),
        KQS::kCorvantisKey);
}

void unregisterOperatorFactories(KQC::KQCLibFunctionality& kqcKit, KQS::KQSLibFunctionality& kqsKit)
{
    kqcKit.getDevMMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    kqsKit.getKQSKqStatMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    kqsKit.getKQSProcessMonitorMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
}

void registerFactories()
{
    KQC::KQCLibFunctionality& kqcKit = KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit();
    KQS::KQSLibFunctionality& kqsKit = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit();

    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<EnvMPtr>> envM(
        new KQC::KQCFunctionalFactoryLocalImpl<EnvMPtr, KQS::KQSEnvMLocal>);
    kqcKit.getEnvMMultiplexer().registerLocalFactory(envM, KQS::kCorvantisKey);

    // Two separate factories of the extended interface: one serves requests
    // that name no environment type, the other those for this type.
    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<KQSEnvMPtr>> defaultEnvM(
        new KQC::KQCFunctionalFactoryLocalImpl<KQSEnvMPtr, KQS::KQSEnvMLocal>);
    kqsKit.getKQSEnvMMultiplexer().registerLocalFactory(defaultEnvM, KQS::kEmptyKey);
    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<KQSEnvMPtr>> typedEnvM(
        new KQC::KQCFunctionalFactoryLocalImpl<KQSEnvMPtr, KQS::KQSEnvMLocal>);
    kqsKit.getKQSEnvMMultiplexer().registerLocalFactory(typedEnvM, KQS::kCorvantisKey);

    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<ProcessMPtr>> processM(
        new KQC::KQCFunctionalFactoryLocalImpl<ProcessMPtr, KQS::KQSProcessMLocal>);
    kqsKit.getKQSProcessMMultiplexer().registerLocalFactory(processM, KQS::kCorvantisKey);

    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<SampleMPtr>> sampleM(
        new KQC::KQCFunctionalFactoryLocalImpl<SampleMPtr, KQS::KQSSampleMLocal>);
    kqsKit.getKQSSampleMMultiplexer().registerLocalFactory(sampleM, KQS::kCorvantisKey);

    boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<TEMPtr>> tem(
        new KQC::KQCFunctionalFactoryLocalImpl<TEMPtr, KQS::KQSTEMLocal>);
    kqsKit.getKQSTEMMultiplexer().registerLocalFactory(tem, KQS::kCorvantisKey);

    boost::shared_ptr<KQC::KQCAuthMBaseLocalFactory::AuthMBaseLocalFactoryBase> auth(
        new KQC::KQCAuthMBaseLocalFactory::AuthMBaseLocalFactoryImpl<KQS::KQSAuthMVELocal>);
    KQC::KQCAuthMBaseLocalFactory::getInstance()->registerFactory(KQS::KQSAuthMVELocal::realmType, auth);
    registerOperatorFactories(kqcKit, kqsKit);
}

// Fills the agent's environment cache with every container of the host,
// registering the ones the agent did not know yet. 0, or the listing's
// failure with the thread's message set; the caller logs it.
int warmEnvironmentCache(KQS::KQSEnvMLocal& envM)
{
    KQC::KQCEnvVector envs;
    int rc = envM.getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true);
    if (rc != 0)
        return rc;
    for (const auto& env : envs)
        KQC::envCache()->insert(*env);
    return 0;
}

void unregisterFactories()
{
    KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit().getEnvMMultiplexer().unregisterLocalFactory(
        KQS::kCorvantisKey);
    KQS::KQSLibFunctionality& kqsKit = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit();
    // The reverse of the order they were added in.
    kqsKit.getKQSEnvMMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    kqsKit.getKQSEnvMMultiplexer().unregisterLocalFactory(KQS::kEmptyKey);
    kqsKit.getKQSSampleMMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    kqsKit.getKQSProcessMMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    kqsKit.getKQSTEMMultiplexer().unregisterLocalFactory(KQS::kCorvantisKey);
    KQC::KQCAuthMBaseLocalFactory::getInstance()->unregisterFactory(KQS::KQSAuthMVELocal::realmType);
    unregisterOperatorFactories(KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit(), kqsKit);
}

// Writers killed mid-write leave their temporary files behind. At start no
// write of ours has begun yet, and one older than a minute belongs to no
// writer still at work on another client's behalf.
void removeStaleTemporaries()
{
    const long kStaleAfterSeconds = 60;
    const std::string folders[] = {KQC::KQCInstanceFolders::etc().leaf("configs").string(),
                                   KQC::hostPath("/etc/sysconfig/kq-scripts"),
                                   KQC::KQCInstanceFolders::base().string()};
    for (const std::string& folder : folders)
        if (KQC::removeStaleTemporaries(folder, kStaleAfterSeconds) < 0)
            KQS_LOG().put(1, "[%s] %s", "initKQSBasicFunctionalityLocal", KQC::getErrorMessage());
}

int initialise()
{
    if (++clientsNum != 1)
        return 0;
    KQS::initKQSFunctionalityAgent();
    initKQCServerGroupLocal();
    registerFactories();
    removeStaleTemporaries();
    // The warm-up's manager lives until the start is over, as any request's
    // manager lives until its request is.
    KQS::KQSEnvMLocal envM{KQC::KQCAccessProvider()};
    // The failure is logged here so that the line names the entry point.
    if (warmEnvironmentCache(envM) != 0)
        KQS_LOG().put(1, "[%s] Can't getInfo about existed CTs : %s", "initKQSBasicFunctionalityLocal",
                      KQC::getErrorMessage());
    KQS::KQSTemplateCachePrototype::createInstance();
    return 0;
}

int finalise()
{
    // An unbalanced exit is a programming error of the agent; going on
    // would drive the counter negative and unregister twice.
    if (!clientsNum) {
        std::fprintf(stderr, "finiKQSBasicFunctionalityLocal: Assertion `clientsNum' failed.\n");
        std::abort();
    }
    if (--clientsNum != 0)
        return 0;
    unregisterFactories();
    finiKQCServerGroupLocal();
    KQS::finiKQSFunctionalityAgent();
    return 0;
}

} // namespace

// Nothing may leave through the C boundary as an exception: a failure there
// (out of memory while registering, say) is a result with its message.
extern "C" __attribute__((visibility("default"))) int initKQSBasicFunctionalityLocal()
{
    return KQC::guardedCall("initKQSBasicFunctionalityLocal", initialise);
}

extern "C" __attribute__((visibility("default"))) int finiKQSBasicFunctionalityLocal()
{
    return KQC::guardedCall("finiKQSBasicFunctionalityLocal", finalise);
}
