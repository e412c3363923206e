#pragma once
// Functionality kits, multiplexers and local factories.
//
// A kit is the process-wide object of one functionality library; it is
// made on first use and destroyed at unload. A kit holds one multiplexer
// per manager interface. Plug-ins register local factories in a multiplexer
// under a key (the environment type they serve); the agent asks the
// multiplexer for a manager for a key and a client, and the multiplexer has
// the factory make one bound to the client's access provider.
// Thread safety: multiplexers lock their table; factories are shared and
// must be callable from several threads (the ones here are stateless).
#include "KQC/Access.h"
#include "KQC/Error.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace KQC {

// `ManagerPtr` is the shared pointer to the manager interface, e.g.
// boost::shared_ptr<KQCEnvM>.
template <class ManagerPtr>
class KQCFunctionalFactoryLocal {
public:
    virtual ~KQCFunctionalFactoryLocal() = default;
    // A new manager bound to `access`; empty on failure (message set).
    virtual ManagerPtr create(const KQCAccessProvider& access) = 0;
};

template <class ManagerPtr, class Implementation>
class KQCFunctionalFactoryLocalImpl : public KQCFunctionalFactoryLocal<ManagerPtr> {
public:
    ManagerPtr create(const KQCAccessProvider& access) override
    {
        try {
            return ManagerPtr(new Implementation(access));
        } catch (const std::exception& e) {
            setErrorMessage("can't create manager: %s", e.what());
            return ManagerPtr();
        }
    }
};

template <class ManagerPtr>
class KQCFunctionalMultiplexer {
public:
    typedef KQCFunctionalFactoryLocal<ManagerPtr> Factory;
    typedef boost::shared_ptr<Factory> FactoryPtr;

    // 0, or -1 (message set) when the factory is empty or the key is taken.
    int registerLocalFactory(const FactoryPtr& factory, const std::string& key)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!factory) {
            setErrorMessage("no factory given for key '%s'", key.c_str());
            return -1;
        }
        if (!m_factories.emplace(key, factory).second) {
            setErrorMessage("a factory is registered under '%s' already", key.c_str());
            return -1;
        }
        return 0;
    }

    // 0, or -1 (message set) when nothing is registered under the key.
    int unregisterLocalFactory(const std::string& key)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_factories.erase(key) == 0) {
            setErrorMessage("no factory is registered under '%s'", key.c_str());
            return -1;
        }
        return 0;
    }

    // A manager for requests routed to `key`: 0, or -1 (message set) when no
    // factory serves the key or the factory failed.
    int create(const std::string& key, const KQCAccessProvider& access, ManagerPtr& out)
    {
        FactoryPtr factory;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            typename std::map<std::string, FactoryPtr>::const_iterator it = m_factories.find(key);
            if (it != m_factories.end())
                factory = it->second;
        }
        if (!factory) {
            setErrorMessage("no manager is registered for '%s'", key.c_str());
            return -1;
        }
        out = factory->create(access);
        return out ? 0 : -1;
    }

    bool hasFactory(const std::string& key) const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_factories.count(key) != 0;
    }

    std::vector<std::string> keys() const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        std::vector<std::string> out;
        for (const auto& entry : m_factories)
            out.push_back(entry.first);
        return out;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, FactoryPtr> m_factories;
};

// The process-wide kit of a functionality library. Specialised (and
// defined) in the framework library, so that every plug-in and the agent
// share one instance.
template <class Kit>
struct KQCFunctionality {
    static Kit& kit();
};

class KQCEnvM;
class KQCDevM;

class KQCLibFunctionality {
public:
    KQCFunctionalMultiplexer<boost::shared_ptr<KQCEnvM>>& getEnvMMultiplexer() { return m_envM; }
    KQCFunctionalMultiplexer<boost::shared_ptr<KQCDevM>>& getDevMMultiplexer() { return m_devM; }

private:
    KQCFunctionalMultiplexer<boost::shared_ptr<KQCEnvM>> m_envM;
    KQCFunctionalMultiplexer<boost::shared_ptr<KQCDevM>> m_devM;
};

template <>
KQCLibFunctionality& KQCFunctionality<KQCLibFunctionality>::kit();

} // namespace KQC
