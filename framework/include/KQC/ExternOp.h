#pragma once
// External operators: programs that serve requests of the agent over their
// standard input and output, one framed message in, one framed message out
// (KQC/Pipe.h), and the accessers that hand requests to them.
//
// An executer starts one operator process and gives back the ends of its
// two pipes. An operator factory (KQCExternOpFactory) knows how to make
// the executer and holds the tuning of its accessers; an accesser keeps
// started operators and runs calls on them: the single accesser one
// operator at a time, the pool accesser several, reusing idle ones.
// An operator whose call fails (it died, answered garbage or too late) is
// dropped and a later call starts a new one.
//
// Ownership: accessers own their operator processes (closed and reaped
// when the accesser goes) and share the factory.
// Thread safety: executers are used by one thread at a time; accessers may
// be called from several threads.
// Failure: 0, or -1 with the thread's error message set.
#include "KQC/Handle.h"
#include "KQC/Pipe.h"
#include "KQC/Plugin.h"

#include <boost/shared_ptr.hpp>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace KQC {

// The agent's configuration root, as handed to the container library.
extern const char* const ConfigAgentRoot;

class KQCExternProgramExecuter {
public:
    // `args`: the program (looked up on PATH unless it holds a slash) and
    // its arguments. `env`: "NAME=value" entries for the program; empty
    // means the caller's environment.
    explicit KQCExternProgramExecuter(const std::vector<std::string>& args,
                                      const std::vector<std::string>& env = std::vector<std::string>());
    virtual ~KQCExternProgramExecuter() = default;

    // Starts the program with pipes as its standard input and output and
    // standard error on /dev/null. On success `input` is our end of its
    // standard input (we write), `output` our end of its standard output
    // (we read), both close-on-exec, and `pid` its process, which the
    // caller reaps. -1 when it could not be started (also when the program
    // cannot be executed), the handles and pid untouched.
    virtual int createProcess(boost::shared_ptr<KQCHandle>& input, boost::shared_ptr<KQCHandle>& output, int& pid);

    const std::vector<std::string>& getArgs() const { return m_args; }

protected:
    std::vector<std::string> m_args;
    std::vector<std::string> m_env;
};

// Moves a descriptor that is 0, 1 or 2 above 2 (keeping its close-on-exec
// flag), so that setting up a child's standard streams cannot clobber it.
// 0 or -1 (message set).
int moveAboveStandardStreams(KQCHandle& handle);

class KQCExternOpFactory {
public:
    // `maxConnections`: operators an accesser runs at most at once;
    // `maxIdle`: idle operators a pool keeps; `callTimeout`: seconds a call
    // waits for the answer; `startAttempts`: tries to start an operator.
    KQCExternOpFactory(const std::string& name, int maxConnections, int maxIdle, int callTimeout,
                       int startAttempts);
    virtual ~KQCExternOpFactory() = default;

    // A new executer for one operator process.
    virtual boost::shared_ptr<KQCExternProgramExecuter> createExecuter() const = 0;

    // Starts one operator into `pipe`: 0 or -1.
    int openConnection(KQCIOPipePrototype& pipe) const;

    const std::string& getName() const { return m_name; }
    int maxConnections() const { return m_maxConnections; }
    int maxIdle() const { return m_maxIdle; }
    int callTimeoutMs() const { return m_callTimeout * 1000; }

private:
    std::string m_name;
    int m_maxConnections;
    int m_maxIdle;
    int m_callTimeout;
    int m_startAttempts;
};

class KQCAccesserExternPrototype : public KQCPluginPrototype {
public:
    explicit KQCAccesserExternPrototype(const boost::shared_ptr<KQCExternOpFactory>& factory);
    // Sends the request to an operator and waits for its answer.
    virtual int call(const KQCMessage& request, KQCMessage& reply) = 0;
    const boost::shared_ptr<KQCExternOpFactory>& getFactory() const { return m_factory; }

protected:
    typedef boost::shared_ptr<KQCIOPipePrototype> Connection;
    // One request and answer on `connection`; -1 leaves it unusable.
    int exchange(KQCIOPipePrototype& connection, const KQCMessage& request, KQCMessage& reply) const;

    boost::shared_ptr<KQCExternOpFactory> m_factory;
};

// One operator, calls one after another.
class KQCAccesserSinglePrototype : public KQCAccesserExternPrototype {
public:
    explicit KQCAccesserSinglePrototype(const boost::shared_ptr<KQCExternOpFactory>& factory);
    int call(const KQCMessage& request, KQCMessage& reply) override;

private:
    std::mutex m_mutex;
    Connection m_connection;
};

// Up to maxConnections operators serving calls at once; callers beyond that
// wait for one to come free.
class KQCAccesserPoolPrototype : public KQCAccesserExternPrototype {
public:
    explicit KQCAccesserPoolPrototype(const boost::shared_ptr<KQCExternOpFactory>& factory);
    int call(const KQCMessage& request, KQCMessage& reply) override;
    // Operators started and not dropped (busy or idle).
    int connectionCount() const;

private:
    int acquire(Connection& connection);
    void release(const Connection& connection, bool usable);

    mutable std::mutex m_mutex;
    std::condition_variable m_freed;
    std::vector<Connection> m_idle;
    int m_open = 0;
};

} // namespace KQC
