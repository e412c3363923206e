#include "KQC/Pipe.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KQC {
namespace {

const char kFrameMagic[] = "KQCMSG ";
const size_t kHeaderLimit = 32;


int writeAll(int fd, const std::string& bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = writeWithoutSigpipe(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            setErrorMessage("can't write a message to the pipe: %m");
            return -1;
        }
        done += static_cast<size_t>(n);
    }
    return 0;
}

// Waits until fd can be read: 0, or -1 with the message set.
int waitReadable(int fd, int timeoutMs)
{
    struct pollfd ready = {fd, POLLIN, 0};
    int n;
    do {
        n = ::poll(&ready, 1, timeoutMs);
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        setErrorMessage("can't wait for the pipe: %m");
        return -1;
    }
    if (n == 0) {
        setErrorMessage("no message from the pipe within %d ms", timeoutMs);
        return -1;
    }
    return 0;
}

// Reads up to `size` bytes: the count (0 at the end of the stream), or -1.
ssize_t readSome(int fd, char* into, size_t size, int timeoutMs)
{
    if (waitReadable(fd, timeoutMs) != 0)
        return -1;
    ssize_t n;
    do {
        n = ::read(fd, into, size);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        setErrorMessage("can't read a message from the pipe: %m");
    return n;
}

// The header, read a byte at a time so that nothing of the body (or of the
// next frame) is taken from the pipe: 0 with the body's size, 1 at the end
// of the stream, -1 otherwise.
int readHeader(int fd, int timeoutMs, size_t& size)
{
    std::string header;
    for (;;) {
        char c;
        ssize_t n = readSome(fd, &c, 1, timeoutMs);
        if (n < 0)
            return -1;
        if (n == 0) {
            if (header.empty())
                return 1;
            setErrorMessage("the pipe ended inside a message header");
            return -1;
        }
        if (c == '\n')
            break;
        header += c;
        if (header.size() > kHeaderLimit) {
            setErrorMessage("bad message header on the pipe");
            return -1;
        }
    }
    const size_t magic = sizeof kFrameMagic - 1;
    std::string digits = header.compare(0, magic, kFrameMagic) == 0 ? header.substr(magic) : std::string();
    if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) {
        setErrorMessage("bad message header on the pipe");
        return -1;
    }
    size = std::strtoul(digits.c_str(), nullptr, 10);
    if (size > kMessageFrameLimit) {
        setErrorMessage("a message of %zu bytes on the pipe is over the limit of %zu", size, kMessageFrameLimit);
        return -1;
    }
    return 0;
}

// Waits for the peer to go, asking more firmly as time passes: the pipes
// are closed already, so a well-behaved peer is on its way out.
void reap(pid_t pid)
{
    const int kSteps = 40;  // 25 ms each
    for (int step = 0;; ++step) {
        int status;
        pid_t got = ::waitpid(pid, &status, WNOHANG);
        if (got == pid || (got < 0 && errno != EINTR))
            return;
        if (step == kSteps)
            ::kill(pid, SIGTERM);
        if (step == 2 * kSteps) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            return;
        }
        ::usleep(25000);
    }
}

} // namespace

KQCIOPipePrototype::~KQCIOPipePrototype() { close(); }

int KQCIOPipePrototype::createPipe(boost::shared_ptr<KQCHandle>& readEnd, boost::shared_ptr<KQCHandle>& writeEnd)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        setErrorMessage("can't create a pipe: %m");
        return -1;
    }
    readEnd.reset(new KQCHandle(fds[0]));
    writeEnd.reset(new KQCHandle(fds[1]));
    return 0;
}

int KQCIOPipePrototype::writeMessage(int fd, const KQCMessage& message)
{
    std::string text;
    if (message.saveToString(text) != 0)
        return -1;
    if (text.size() > kMessageFrameLimit) {
        setErrorMessage("a message of %zu bytes is over the limit of %zu", text.size(), kMessageFrameLimit);
        return -1;
    }
    return writeAll(fd, kFrameMagic + std::to_string(text.size()) + "\n" + text);
}

int KQCIOPipePrototype::readMessage(int fd, KQCMessage& message, int timeoutMs)
{
    size_t size = 0;
    int rc = readHeader(fd, timeoutMs, size);
    if (rc != 0)
        return rc;
    std::string body(size, '\0');
    size_t got = 0;
    while (got < size) {
        ssize_t n = readSome(fd, &body[got], size - got, timeoutMs);
        if (n < 0)
            return -1;
        if (n == 0) {
            setErrorMessage("the pipe ended inside a message");
            return -1;
        }
        got += static_cast<size_t>(n);
    }
    return message.loadFromString(body);
}

void KQCIOPipePrototype::attach(const boost::shared_ptr<KQCHandle>& toPeer,
                                const boost::shared_ptr<KQCHandle>& fromPeer, pid_t pid)
{
    close();
    m_toPeer = toPeer;
    m_fromPeer = fromPeer;
    m_pid = pid;
}

bool KQCIOPipePrototype::isAttached() const
{
    return m_toPeer && m_toPeer->isValid() && m_fromPeer && m_fromPeer->isValid();
}

int KQCIOPipePrototype::writeMessage(const KQCMessage& message)
{
    if (!isAttached()) {
        setErrorMessage("the pipe is not connected");
        return -1;
    }
    return writeMessage(m_toPeer->get(), message);
}

int KQCIOPipePrototype::readMessage(KQCMessage& message, int timeoutMs)
{
    if (!isAttached()) {
        setErrorMessage("the pipe is not connected");
        return -1;
    }
    return readMessage(m_fromPeer->get(), message, timeoutMs);
}

void KQCIOPipePrototype::close()
{
    m_toPeer.reset();
    m_fromPeer.reset();
    if (m_pid > 0)
        reap(m_pid);
    m_pid = -1;
}

int KQCEventLoopPipePrototype::getPeerInfo(KQCConnectivityInfo& info)
{
    if (!isAttached())
        return -4;
    info = KQCConnectivityInfo();
    info.pid = peerPid();
    return 0;
}

int KQCChildEnvPipeFactory::registerClass(const std::string& name, Creator creator, void*, int)
{
    return m_classes.add(name, creator);
}

int KQCChildEnvPipeFactory::unregisterClass(const std::string& name)
{
    return m_classes.remove(name);
}

bool KQCChildEnvPipeFactory::isRegistered(const std::string& name) const
{
    return m_classes.contains(name);
}

boost::shared_ptr<KQCEventLoopPipePrototype> KQCChildEnvPipeFactory::create(const std::string& name, void* env) const
{
    Creator creator = nullptr;
    if (m_classes.find(name, creator) != 0)
        return boost::shared_ptr<KQCEventLoopPipePrototype>();
    KQCEventLoopPipePrototype* pipe = creator(env);
    if (!pipe && getErrorMessage()[0] == '\0')
        setErrorMessage("pipe class '%s' made no pipe", name.c_str());
    return boost::shared_ptr<KQCEventLoopPipePrototype>(pipe);
}

KQCChildEnvPipeFactory* getChildEnvPipeFactory()
{
    static KQCChildEnvPipeFactory* factory = new KQCChildEnvPipeFactory;
    return factory;
}

} // namespace KQC
