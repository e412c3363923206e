#pragma once
// Access providers, client contexts and the access checker.
//
// Every request reaches a manager with the access provider of the client
// that made it. The provider knows the client's context (which rights it
// holds) and where the client wants progress and notifications to go. An
// empty provider stands for the agent itself, which holds every right.
// Thread safety: a provider is reference-counted atomically and may be
// shared by the threads of one request; its sinks are called from the
// request's thread.
#include "KQC/GUID.h"

#include <atomic>
#include "KQC/RefCounted.h"

#include <boost/intrusive_ptr.hpp>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <set>
#include <string>

namespace KQC {

// Rights numbers, as the agent's clients are granted them.
enum KQCRight {
    RIGHT_ENV_SET_FROM_SAMPLE = 23,
    RIGHT_PRIVATE_READ = 38,
    RIGHT_PRIVATE_WRITE = 39,
    RIGHT_PROCESS_LIST = 43,
    RIGHT_PROCESS_KILL = 44,
    RIGHT_ENV_INFO = 61,
    RIGHT_ENV_SET = 62,
    RIGHT_ENV_CREATE = 63,
    RIGHT_DEVICE_READ = 73,
    RIGHT_DEVICE_WRITE = 74,
};

class KQCClientContext {
public:
    KQCClientContext() = default;
    explicit KQCClientContext(std::string name, std::set<int> deniedRights = {})
        : m_name(std::move(name)), m_denied(std::move(deniedRights))
    {
    }
    const std::string& name() const { return m_name; }
    bool holds(int right) const { return m_denied.count(right) == 0; }

private:
    std::string m_name = "agent";
    std::set<int> m_denied;
};

class KQCAccessProviderPrototype : public KQCRefCounted {
public:
    KQCAccessProviderPrototype() = default;
    explicit KQCAccessProviderPrototype(boost::shared_ptr<KQCClientContext> context)
        : m_context(std::move(context))
    {
    }
    ~KQCAccessProviderPrototype() override = default;

    boost::shared_ptr<KQCClientContext> clientContext() const { return m_context; }

    // A line of progress for the client (tool output, "Setting ..."). The
    // default drops it.
    virtual void progress(const std::string& line) { (void)line; }
    // A notification for the client: an event name and its text.
    virtual void notify(const std::string& event, const std::string& text) { (void)event, (void)text; }

private:
    boost::shared_ptr<KQCClientContext> m_context;
};

typedef boost::intrusive_ptr<KQCAccessProviderPrototype> KQCAccessProvider;

typedef std::set<KQCEID, KQCEnvIDComparator> KQCEIDSet;

// Refusals return KQC_ERR_ACCESS_DENIED (414) with the message "access
// denied" and the right's number; holding the right gives 0.
struct KQCAccessChecker {
    // The client's context; for an empty provider, the agent's own (every
    // right held).
    static boost::shared_ptr<KQCClientContext> getClientContext(const KQCAccessProvider& access);
    // A right on one environment.
    static int accessCheck(const boost::shared_ptr<KQCClientContext>& context, const KQCEID& eid, int right);
    // A right on the host itself.
    static int accessCheck(const boost::shared_ptr<KQCClientContext>& context, int right);
    // A right on every environment of the set; `all` tells that the request
    // named all environments.
    static int accessCheck(const boost::shared_ptr<KQCClientContext>& context, const KQCEIDSet& eids, int right,
                           bool all);
};

} // namespace KQC
