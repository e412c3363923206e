// The lives of the management library, the server group and the template
// cache. They hold no resources yet beyond their counters; the counters let
// the agent and tests see that plug-ins bring them up and down in balance.
#include "KQS/Functionality.h"
#include "KQS/TemplateCache.h"

#include <atomic>

namespace {
std::atomic<int> g_agentUsers{0};
std::atomic<int> g_serverGroupUsers{0};
std::atomic<bool> g_templateCacheMade{false};
} // namespace

namespace KQS {

void initKQSFunctionalityAgent() { ++g_agentUsers; }
void finiKQSFunctionalityAgent() { --g_agentUsers; }
int functionalityAgentUsers() { return g_agentUsers.load(); }

boost::intrusive_ptr<KQSTemplateCachePrototype> KQSTemplateCachePrototype::createInstance()
{
    // Made once and kept for the life of the process, as the agent's other
    // users of the cache expect it to stay.
    static KQSTemplateCachePrototype* instance = [] {
        KQSTemplateCachePrototype* p = new KQSTemplateCachePrototype;
        intrusive_ptr_add_ref(p);
        g_templateCacheMade = true;
        return p;
    }();
    return boost::intrusive_ptr<KQSTemplateCachePrototype>(instance);
}

bool KQSTemplateCachePrototype::exists() { return g_templateCacheMade.load(); }

} // namespace KQS

void initKQCServerGroupLocal() { ++g_serverGroupUsers; }
void finiKQCServerGroupLocal() { --g_serverGroupUsers; }
int serverGroupLocalUsers() { return g_serverGroupUsers.load(); }
