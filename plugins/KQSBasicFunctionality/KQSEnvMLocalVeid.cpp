// Picking VEIDs for new containers.
#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"

#include "KQC/Configuration.h"
#include "KQC/EnvCache.h"
#include "KQC/Error.h"
#include "KQC/Files.h"

#include <climits>
#include <cstdlib>
#include <set>

namespace KQS {
namespace {

const int kDefaultMinVeid = 100;
const int kDefaultMaxVeid = 134217727;

// A random VEID in the bounds. The C library's generator is used as it
// stands; it is never seeded here, so whoever needs repeatable draws seeds it.
long long randomStart(int min, int max)
{
    long long span = static_cast<long long>(max) - min;
    if (span == 0)
        span = 1;
    return std::rand() % span + min;
}

// The VEID of a cached environment; false when it has none.
bool cachedVeid(const KQC::KQCEnv& env, int& veid)
{
    if (!env.getConfig())
        return false;
    return KQSEnvConfig(*env.getConfig()).getVeid(veid) == 0;
}

// A path template: the configuration's own when it has one, else the host
// setting's.
std::string pathTemplate(const KQC::KQCOptionalProperty<std::string>& own, const KQSVtSettings& settings,
                         const char* setting)
{
    if (own.isSpecified())
        return own.get();
    std::string value;
    settings.getParam(setting, value);
    return value;
}

// The candidate's area and whether something of that name is there.
std::string areaOf(const std::string& area, int veid)
{
    std::string path = area;
    KQSEnvConfig::veidSubstitute(veid, path);
    return path;
}

bool isTaken(const std::string& path)
{
    return !path.empty() && KQC::fentryExists(path);
}

} // namespace

int KQSEnvMLocal::getVeidBounds(int* min, int* max)
{
    *min = kDefaultMinVeid;
    *max = kDefaultMaxVeid;
    boost::shared_ptr<KQC::KQCConfiguration> config = KQC::KQCConfiguration::getLocalConfig();
    if (!config || !config->getMessage())
        return KQS_ERR_GENERIC;
    KQC::KQCMessageIterator it = config->getMessage()->getIterator();
    if (it.moveTo("data/kqsenvm/configuration") != 0)
        return KQS_ERR_GENERIC;
    // A bound that is not given keeps its default.
    int value = 0;
    if (it.getInt(KQC::TAG_MIN_VEID, value) == 0)
        *min = value;
    if (it.getInt(KQC::TAG_MAX_VEID, value) == 0)
        *max = value;
    return 0;
}

int KQSEnvMLocal::checkVeid(int veid)
{
    boost::intrusive_ptr<KQC::KQCEnvCache> cache = KQC::envCache();
    boost::shared_ptr<KQC::KQCEnvList> envs = cache ? cache->getEnvList() : boost::shared_ptr<KQC::KQCEnvList>();
    if (!envs)
        return KQS_ERR_GENERIC;
    for (const auto& env : *envs) {
        int used = 0;
        if (env && cachedVeid(*env, used) && used == veid)
            return KQS_ERR_GENERIC;
    }
    return 0;
}

int KQSEnvMLocal::allocateVeid(int& veid)
{
    return KQC::guardedCall("allocateVeid", [&] { return allocateVeidInRange(veid); });
}

int KQSEnvMLocal::allocateVeidInRange(int& veid)
{
    int min = 0, max = 0;
    getVeidBounds(&min, &max);
    const long long span = static_cast<long long>(max) - min;
    long long candidate = randomStart(min, max);
    for (long long attempt = 0;; ++attempt) {
        if (candidate > INT_MAX)
            break;
        if (checkVeid(static_cast<int>(candidate)) == 0) {
            veid = static_cast<int>(candidate);
            return 0;
        }
        ++candidate;
        // Kept as it always was: with sane bounds this never holds, so the
        // candidate climbs past max rather than wrapping round to min.
        if (candidate > max && candidate < min)
            candidate = randomStart(min, max);
        if (attempt > span)
            break;
    }
    KQC::setErrorMessage("can't allocate veid - no free veid");
    return KQS_ERR_GENERIC;
}

int KQSEnvMLocal::allocateVeidFromMaster(int& veid, const KQSEnvConfig* config)
{
    int min = 0, max = 0;
    getVeidBounds(&min, &max);
    long long tries = static_cast<long long>(max) - min;
    KQSVtSettings settings;
    if (getVtSettings(settings) != 0)
        return KQS_ERR_GENERIC;
    KQC::KQCOptionalProperty<std::string> ownPrivate, ownRoot;
    if (config) {
        config->getVEPrivateVar(ownPrivate);
        config->getVERootVar(ownRoot);
    }
    const std::string privateArea = pathTemplate(ownPrivate, settings, "ve_private");
    const std::string rootArea = pathTemplate(ownRoot, settings, "ve_root");
    for (;;) {
        int rc = allocateVeid(veid);
        if (rc != 0)
            return rc;
        const std::string privatePath = areaOf(privateArea, veid);
        if (isTaken(privatePath)) {
            // A template without the VEID variable names one area for all
            // containers: its existence says nothing about this candidate.
            if (privatePath == privateArea)
                return 0;
            if (--tries <= 0)
                break;
            continue;
        }
        const std::string rootPath = areaOf(rootArea, veid);
        if (!isTaken(rootPath) || rootPath == rootArea)
            return 0;
        if (--tries <= 0)
            break;
    }
    KQC::setErrorMessage("can't allocate ctid - no free resources.");
    return KQS_ERR_GENERIC;
}

int KQSEnvMLocal::initVeid(int& veid, int min)
{
    boost::intrusive_ptr<KQC::KQCEnvCache> cache = KQC::envCache();
    boost::shared_ptr<KQC::KQCEnvList> envs = cache ? cache->getEnvList() : boost::shared_ptr<KQC::KQCEnvList>();
    if (!envs)
        return KQS_ERR_GENERIC;
    // min - 1 stands in for "nothing below": the gap after it is min itself.
    std::set<long long> used{static_cast<long long>(min) - 1};
    for (const auto& env : *envs) {
        int value = 0;
        if (env && cachedVeid(*env, value) && value >= min)
            used.insert(value);
    }
    auto it = used.lower_bound(veid);
    if (it == used.end())
        it = used.begin();
    long long last = *it;
    for (++it; it != used.end() && *it <= last + 1; ++it)
        last = *it;
    veid = static_cast<int>(last + 1);
    return 0;
}

} // namespace KQS
