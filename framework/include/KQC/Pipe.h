#pragma once
// Pipes to other processes that speak the agent's message protocol, and the
// registry of the pipe classes that reach child environments.
//
// Wire format: each message is one frame, the header "KQCMSG <bytes>\n"
// followed by exactly that many bytes of the message's text form
// (KQCMessage::saveToString). A frame larger than kMessageFrameLimit is
// refused without being read.
//
// Ownership: a pipe object owns both descriptors and the peer process: when
// it is closed or destroyed it closes the descriptors (the peer then reads
// the end of its input) and reaps the process, killing it if it does not go
// within a few seconds.
// Thread safety: one pipe is used by one thread at a time; the factory's
// table is locked.
// Failure: 0 on success; -1 with the thread's error message set.
#include "KQC/ClassRegistry.h"
#include "KQC/Handle.h"
#include "KQC/Message.h"

#include <boost/shared_ptr.hpp>

#include <sys/types.h>

#include <map>
#include <mutex>
#include <string>

namespace KQC {

constexpr size_t kMessageFrameLimit = 16u << 20;

// Who is at the other end of a pipe.
struct KQCConnectivityInfo {
    std::string className;  // the pipe class that reached it
    pid_t pid = -1;         // its process
    std::string address;    // how it is known to the agent (free text)
};

class KQCIOPipePrototype {
public:
    KQCIOPipePrototype() = default;
    virtual ~KQCIOPipePrototype();
    KQCIOPipePrototype(const KQCIOPipePrototype&) = delete;
    KQCIOPipePrototype& operator=(const KQCIOPipePrototype&) = delete;

    // A new pipe; both ends close-on-exec. 0, or -1 with "can't create a
    // pipe: ..." (the handles are left as they were).
    static int createPipe(boost::shared_ptr<KQCHandle>& readEnd, boost::shared_ptr<KQCHandle>& writeEnd);
    // Writes one frame to fd. A peer that has gone gives -1 (never SIGPIPE).
    static int writeMessage(int fd, const KQCMessage& message);
    // Reads one frame from fd, waiting at most timeoutMs (-1: no limit) for
    // each piece. 0 with the message; 1 when the stream ended before a
    // frame began; -1 on a broken or oversized frame, a time-out or an error.
    static int readMessage(int fd, KQCMessage& message, int timeoutMs);

    // Takes over the ends of a started peer: `toPeer` is written to (the
    // peer's standard input), `fromPeer` read from (its standard output).
    void attach(const boost::shared_ptr<KQCHandle>& toPeer, const boost::shared_ptr<KQCHandle>& fromPeer, pid_t pid);
    bool isAttached() const;
    pid_t peerPid() const { return m_pid; }

    int writeMessage(const KQCMessage& message);
    int readMessage(KQCMessage& message, int timeoutMs);
    // Closes the descriptors and reaps the peer; harmless when not attached.
    void close();

private:
    boost::shared_ptr<KQCHandle> m_toPeer;
    boost::shared_ptr<KQCHandle> m_fromPeer;
    pid_t m_pid = -1;
};

// A pipe to an agent that serves a child environment. Subclasses start the
// peer in connect() and attach() its ends.
class KQCEventLoopPipePrototype : public KQCIOPipePrototype {
public:
    // 0 once the peer runs and has been told what it needs; -1 otherwise.
    virtual int connect(const KQCConnectivityInfo* info) = 0;
    // 0 with the peer's pid (class name left empty for subclasses to name);
    // -4 when no peer is attached.
    virtual int getPeerInfo(KQCConnectivityInfo& info);
};

// The pipe classes that reach child environments, by environment type.
class KQCChildEnvPipeFactory {
public:
    // Makes a pipe for the environment (a KQCEnv*); null on failure.
    typedef KQCEventLoopPipePrototype* (*Creator)(void* env);

    // 0, or -1 when the name is taken or the creator is null. `data` and
    // `flags` are kept for the class; none are defined yet.
    int registerClass(const std::string& name, Creator creator, void* data, int flags);
    // 0, or -1 when nothing is registered under the name.
    int unregisterClass(const std::string& name);
    bool isRegistered(const std::string& name) const;
    // A new pipe of the class; empty with the message set when the class is
    // unknown or its creator failed.
    boost::shared_ptr<KQCEventLoopPipePrototype> create(const std::string& name, void* env) const;

private:
    KQCClassRegistry<Creator> m_classes{"pipe class"};
};

// The process-wide registry.
KQCChildEnvPipeFactory* getChildEnvPipeFactory();

} // namespace KQC
