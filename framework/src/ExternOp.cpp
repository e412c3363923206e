#include "KQC/ExternOp.h"

#include "ExecChild.h"

#include "KQC/Error.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

extern char** environ;

namespace KQC {

const char* const ConfigAgentRoot = "/etc/kqagent";

namespace {

std::vector<char*> cStrings(const std::vector<std::string>& words)
{
    std::vector<char*> out;
    for (const std::string& word : words)
        out.push_back(const_cast<char*>(word.c_str()));
    out.push_back(nullptr);
    return out;
}

} // namespace

int moveAboveStandardStreams(KQCHandle& handle)
{
    if (!handle.isValid() || handle.get() > 2)
        return 0;
    int flags = ::fcntl(handle.get(), F_GETFD);
    int moved = ::fcntl(handle.get(), (flags >= 0 && (flags & FD_CLOEXEC)) ? F_DUPFD_CLOEXEC : F_DUPFD, 3);
    if (moved < 0) {
        setErrorMessage("can't move descriptor %d: %m", handle.get());
        return -1;
    }
    handle.reset(moved);
    return 0;
}

KQCExternProgramExecuter::KQCExternProgramExecuter(const std::vector<std::string>& args,
                                                   const std::vector<std::string>& env)
    : m_args(args), m_env(env)
{
}

int KQCExternProgramExecuter::createProcess(boost::shared_ptr<KQCHandle>& input,
                                            boost::shared_ptr<KQCHandle>& output, int& pid)
{
    if (m_args.empty() || m_args[0].empty()) {
        setErrorMessage("no program to start");
        return -1;
    }
    boost::shared_ptr<KQCHandle> childIn, ourIn, ourOut, childOut;
    if (KQCIOPipePrototype::createPipe(childIn, ourIn) != 0 || KQCIOPipePrototype::createPipe(ourOut, childOut) != 0)
        return -1;
    if (moveAboveStandardStreams(*childIn) != 0 || moveAboveStandardStreams(*childOut) != 0)
        return -1;

    execdetail::SpawnSetup setup;
    posix_spawn_file_actions_adddup2(&setup.actions, childIn->get(), 0);
    posix_spawn_file_actions_adddup2(&setup.actions, childOut->get(), 1);
    posix_spawn_file_actions_addopen(&setup.actions, 2, "/dev/null", O_WRONLY, 0);
    if (setup.defaultSignals() != 0) {
        setErrorMessage("can't prepare a process start: out of memory");
        return -1;
    }

    std::vector<char*> argv = cStrings(m_args);
    std::vector<char*> envp = cStrings(m_env);
    pid_t child = -1;
    int rc = ::posix_spawnp(&child, argv[0], &setup.actions, &setup.attributes, argv.data(),
                            m_env.empty() ? environ : envp.data());
    if (rc != 0) {
        setErrorMessage("can't execute '%s': %s", m_args[0].c_str(), std::strerror(rc));
        errno = rc;
        return -1;
    }
    // Our copies of the child's ends close here, so that each side sees the
    // end of the stream when the other goes.
    input = ourIn;
    output = ourOut;
    pid = child;
    return 0;
}

KQCExternOpFactory::KQCExternOpFactory(const std::string& name, int maxConnections, int maxIdle, int callTimeout,
                                       int startAttempts)
    : m_name(name),
      m_maxConnections(maxConnections > 0 ? maxConnections : 1),
      m_maxIdle(maxIdle >= 0 ? maxIdle : 0),
      m_callTimeout(callTimeout > 0 ? callTimeout : 1),
      m_startAttempts(startAttempts > 0 ? startAttempts : 1)
{
}

int KQCExternOpFactory::openConnection(KQCIOPipePrototype& pipe) const
{
    for (int attempt = 0; attempt < m_startAttempts; ++attempt) {
        boost::shared_ptr<KQCExternProgramExecuter> executer = createExecuter();
        if (!executer) {
            setErrorMessage("operator '%s' has no executer", m_name.c_str());
            return -1;
        }
        boost::shared_ptr<KQCHandle> input, output;
        int pid = -1;
        if (executer->createProcess(input, output, pid) == 0) {
            pipe.attach(input, output, pid);
            return 0;
        }
    }
    if (getErrorMessage()[0] == '\0')
        setErrorMessage("can't start operator '%s'", m_name.c_str());
    return -1;
}

KQCAccesserExternPrototype::KQCAccesserExternPrototype(const boost::shared_ptr<KQCExternOpFactory>& factory)
    : m_factory(factory)
{
}

int KQCAccesserExternPrototype::exchange(KQCIOPipePrototype& connection, const KQCMessage& request,
                                         KQCMessage& reply) const
{
    if (connection.writeMessage(request) != 0)
        return -1;
    int rc = connection.readMessage(reply, m_factory->callTimeoutMs());
    if (rc == 1) {
        setErrorMessage("operator '%s' ended without an answer", m_factory->getName().c_str());
        return -1;
    }
    return rc;
}

KQCAccesserSinglePrototype::KQCAccesserSinglePrototype(const boost::shared_ptr<KQCExternOpFactory>& factory)
    : KQCAccesserExternPrototype(factory)
{
}

int KQCAccesserSinglePrototype::call(const KQCMessage& request, KQCMessage& reply)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_connection || !m_connection->isAttached()) {
        Connection fresh(new KQCIOPipePrototype);
        if (m_factory->openConnection(*fresh) != 0)
            return -1;
        m_connection = fresh;
    }
    if (exchange(*m_connection, request, reply) != 0) {
        m_connection.reset();
        return -1;
    }
    return 0;
}

KQCAccesserPoolPrototype::KQCAccesserPoolPrototype(const boost::shared_ptr<KQCExternOpFactory>& factory)
    : KQCAccesserExternPrototype(factory)
{
}

int KQCAccesserPoolPrototype::connectionCount() const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_open;
}

int KQCAccesserPoolPrototype::acquire(Connection& connection)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_freed.wait(lock, [&] { return !m_idle.empty() || m_open < m_factory->maxConnections(); });
        if (!m_idle.empty()) {
            connection = m_idle.back();
            m_idle.pop_back();
            return 0;
        }
        ++m_open;
    }
    // Started outside the lock: other callers may use idle operators
    // meanwhile.
    Connection fresh(new KQCIOPipePrototype);
    if (m_factory->openConnection(*fresh) != 0) {
        release(Connection(), false);
        return -1;
    }
    connection = fresh;
    return 0;
}

void KQCAccesserPoolPrototype::release(const Connection& connection, bool usable)
{
    Connection dropped;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (usable && static_cast<int>(m_idle.size()) < m_factory->maxIdle()) {
            m_idle.push_back(connection);
        } else {
            --m_open;
            dropped = connection;
        }
    }
    m_freed.notify_one();
    // Closing reaps the process: not under the lock.
    dropped.reset();
}

int KQCAccesserPoolPrototype::call(const KQCMessage& request, KQCMessage& reply)
{
    Connection connection;
    if (acquire(connection) != 0)
        return -1;
    int rc = exchange(*connection, request, reply);
    release(connection, rc == 0);
    return rc;
}

} // namespace KQC
