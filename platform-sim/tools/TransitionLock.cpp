#include "TransitionLock.h"

#include "KQSim/Fs.h"

#include "KQC/Error.h"

#include <cerrno>
#include <csignal>
#include <sstream>
#include <unistd.h>

namespace KQSim {
namespace {

// The holder's pid and word, when the file holds them.
bool readHolder(const std::string& path, int& pid, std::string& word)
{
    std::string text;
    if (readFile(path, text) != 0)
        return false;
    std::istringstream stream(text);
    if (!(stream >> pid) || pid <= 0)
        return false;
    if (!(stream >> word))
        word = "unknown";
    return true;
}

bool isAlive(int pid)
{
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

// Removes the private name on every path.
struct PrivateFile {
    std::string path;
    ~PrivateFile() { ::unlink(path.c_str()); }
};

} // namespace

TransitionLock::~TransitionLock()
{
    if (m_held)
        ::unlink(m_path.c_str());
}

int TransitionLock::acquire(const std::string& lockDir, int veid, const std::string& word)
{
    m_path = lockDir + "/" + std::to_string(veid) + ".lck";
    PrivateFile own{lockDir + "/." + std::to_string(veid) + ".lck." + std::to_string(::getpid())};
    if (writeFileAtomic(own.path, std::to_string(::getpid()) + "\n" + word) != 0)
        return -1;
    // A few rounds: each stale lock removed may be replaced by a live one.
    for (int round = 0; round < 5; ++round) {
        int linked = tryLink(own.path);
        if (linked <= 0)
            return linked;
        int pid = 0;
        std::string holderWord;
        if (readHolder(m_path, pid, holderWord) && isAlive(pid)) {
            m_holderWord = holderWord;
            return 1;
        }
        if (::unlink(m_path.c_str()) != 0 && errno != ENOENT) {
            KQC::setErrorMessage("remove stale lock '%s': %m", m_path.c_str());
            return -1;
        }
    }
    KQC::setErrorMessage("lock '%s' keeps changing", m_path.c_str());
    return -1;
}

// 0 linked (now ours), 1 the name exists, -1 error.
int TransitionLock::tryLink(const std::string& privateName)
{
    if (::link(privateName.c_str(), m_path.c_str()) == 0) {
        m_held = true;
        return 0;
    }
    if (errno == EEXIST)
        return 1;
    KQC::setErrorMessage("create lock '%s': %m", m_path.c_str());
    return -1;
}

} // namespace KQSim
