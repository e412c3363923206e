#pragma once
// Request contexts: what a manager object knows of the request it serves.
//
// A manager made by a factory for a request keeps the request's access
// provider for its whole life. KQCRequestLocal gives it the provider, the
// client's progress channel and the routing of a tool's output lines to
// that channel. KQCRequestModificatorLocal<I> is the base of local manager
// implementations of interface I: it adds the request-context operations of
// the framework's manager interfaces, which a local manager answers trivially.
#include "KQC/Access.h"

#include <string>

namespace KQC {

class GenExec;

// The progress channel of one request, as a manager hands it to helpers.
// Copies share the request's provider; a context of an empty provider
// (the agent's own internal calls) drops every line.
class KQCRequestContextLocal {
public:
    // Longest line freportProgress sends; the rest is cut off.
    static const size_t kMaxProgressLine = 4096;

    explicit KQCRequestContextLocal(KQCAccessProvider access) : m_access(std::move(access)) {}

    void reportProgress(const std::string& line) const;
    // The same, formatted printf-style.
    void freportProgress(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    KQCAccessProvider m_access;
};

class KQCRequestLocal {
public:
    explicit KQCRequestLocal(KQCAccessProvider access) : m_access(std::move(access)) {}
    virtual ~KQCRequestLocal() = default;

    const KQCAccessProvider& access() const { return m_access; }
    // Routes every standard-output line of the runs of `exec` to the client
    // as progress, as the lines arrive.
    void setProgressOutputHandler(GenExec& exec) const;
    // One progress line for the client.
    void reportProgress(const std::string& line) const;
    // The request's progress context.
    KQCRequestContextLocal getContextLocal() const { return KQCRequestContextLocal(m_access); }

private:
    KQCAccessProvider m_access;
};

template <class Interface>
class KQCRequestModificatorLocal : public Interface, public KQCRequestLocal {
public:
    explicit KQCRequestModificatorLocal(const KQCAccessProvider& access) : KQCRequestLocal(access) {}

    // A local manager has no remote side: contexts and transactions are
    // accepted and change nothing.
    virtual int createContext() { return 0; }
    virtual int beginTransaction() { return 0; }
    virtual int endTransaction(bool commit) { return (void)commit, 0; }
    virtual bool remote() const { return false; }
    virtual bool exclusive() const { return false; }
    virtual int connection() const { return 0; }
    virtual int session() const { return 0; }
};

} // namespace KQC
