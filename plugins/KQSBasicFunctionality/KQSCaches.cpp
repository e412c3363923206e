#include "KQSCaches.h"

namespace KQS {
namespace caches {

bool FolderStamp::changed(const std::string& path)
{
    bool sameFolder = folder == path;
    folder = path;
    bool modified = stamp.update(path);
    return modified || !sameFolder;
}

void FolderStamp::forget()
{
    folder.clear();
    stamp.reset();
}

void CachedRecord::remember(const boost::shared_ptr<KQSEnvConfig>& record, bool parsed)
{
    read = true;
    unparsable = !parsed;
    hasVeid = record && record->getVeid(veid) == 0;
    config = record;
}

CachedRecord& Registry::recordOf(const std::string& folder, const KQC::KQCEID& eid)
{
    if (folder != recordsFolder) {
        records.clear();
        recordsFolder = folder;
    }
    return records[eid];
}

// Made on first use, so that a listing at load time finds them built, and
// never destroyed: a thread still listing at exit must not find them gone.
Listing& listing()
{
    static Listing* theListing = new Listing;
    return *theListing;
}

Registry& registry()
{
    static Registry* theRegistry = new Registry;
    return *theRegistry;
}

} // namespace caches

namespace {

void markRegistryLists()
{
    caches::Registry& registry = caches::registry();
    KQC::KQCGuard guard(registry.lockModify);
    registry.isModifiedForGetEnvList = true;
    registry.isModifiedForGetVEIDMap = true;
}

} // namespace

void invalidateContainer(int veid)
{
    caches::Listing& listing = caches::listing();
    {
        std::lock_guard<std::mutex> guard(listing.lock);
        listing.parsed.erase(veid);
    }
    {
        std::lock_guard<std::mutex> guard(listing.veidsLock);
        listing.veidsStamp.forget();
    }
    // Which EID holds which VEID comes from the agent-side files alone,
    // which a container's tool does not write: the registry's lists stay.
    // Reading them again meant a look at every agent-side file after every
    // action, the bulk of an action's cost on a large host.
}

void invalidateEnvironment(const KQC::KQCEID& eid)
{
    markRegistryLists();
    caches::Registry& registry = caches::registry();
    KQC::KQCGuard guard(registry.configLock);
    registry.records.erase(eid);
}

void invalidateAll()
{
    caches::Listing& listing = caches::listing();
    {
        std::lock_guard<std::mutex> guard(listing.lock);
        listing.parsed.clear();
        listing.settingsStamp.reset();
    }
    {
        std::lock_guard<std::mutex> guard(listing.veidsLock);
        listing.veidsStamp.forget();
    }
    markRegistryLists();
    caches::Registry& registry = caches::registry();
    KQC::KQCGuard guard(registry.configLock);
    registry.records.clear();
}

} // namespace KQS
