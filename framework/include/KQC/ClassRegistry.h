#pragma once
// A process-wide table of classes by name, each with the function that makes
// its objects: what the plug-in factory and the child-pipe factory keep.
//
// Failure: add, remove and find return 0, or -1 with the thread's message
// set, naming the class by `kind` ("plug-in class 'x' is registered
// already"). Thread safety: every call may come from any thread; a creator
// found is called outside the lock, so it may register classes itself.
#include "KQC/Error.h"

#include <map>
#include <mutex>
#include <string>

namespace KQC {

template <class Creator>
class KQCClassRegistry {
public:
    explicit KQCClassRegistry(const char* kind) : m_kind(kind) {}

    [[nodiscard]] int add(const std::string& name, Creator creator)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!creator) {
            setErrorMessage("no creator given for %s '%s'", m_kind, name.c_str());
            return -1;
        }
        if (!m_creators.emplace(name, creator).second) {
            setErrorMessage("%s '%s' is registered already", m_kind, name.c_str());
            return -1;
        }
        return 0;
    }

    [[nodiscard]] int remove(const std::string& name)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_creators.erase(name) == 0) {
            setErrorMessage("%s '%s' is not registered", m_kind, name.c_str());
            return -1;
        }
        return 0;
    }

    bool contains(const std::string& name) const
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        return m_creators.count(name) != 0;
    }

    // 0 with the class's creator, or -1 ("no plug-in class 'x'").
    [[nodiscard]] int find(const std::string& name, Creator& creator) const
    {
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            auto it = m_creators.find(name);
            if (it != m_creators.end()) {
                creator = it->second;
                return 0;
            }
        }
        setErrorMessage("no %s '%s'", m_kind, name.c_str());
        return -1;
    }

private:
    const char* m_kind;
    mutable std::mutex m_mutex;
    std::map<std::string, Creator> m_creators;
};

} // namespace KQC
