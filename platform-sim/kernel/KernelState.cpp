#include "KernelState.h"

#include "RealCalls.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace kqsim {
namespace {

struct ErrnoName {
    const char* name;
    int value;
};

const ErrnoName kErrnoNames[] = {
    {"EPERM", EPERM},   {"ENOENT", ENOENT}, {"ESRCH", ESRCH},   {"EINTR", EINTR},
    {"EIO", EIO},       {"E2BIG", E2BIG},   {"EBADF", EBADF},   {"EAGAIN", EAGAIN},
    {"ENOMEM", ENOMEM}, {"EACCES", EACCES}, {"EFAULT", EFAULT}, {"EBUSY", EBUSY},
    {"EEXIST", EEXIST}, {"ENODEV", ENODEV}, {"EINVAL", EINVAL}, {"ENOTTY", ENOTTY},
    {"ENOSPC", ENOSPC}, {"ENOSYS", ENOSYS}, {"ETIMEDOUT", ETIMEDOUT},
};

bool statePath(char* out, size_t size, const char* relative)
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    int written = std::snprintf(out, size, "%s/var/lib/kqsim/%s", root ? root : "", relative);
    return written > 0 && static_cast<size_t>(written) < size;
}

bool keyPath(char* out, size_t size, long veid, const char* key)
{
    char relative[512];
    int written = veid == kHostScope
        ? std::snprintf(relative, sizeof relative, "kernel/host/%s", key)
        : std::snprintf(relative, sizeof relative, "kernel/%ld/%s", veid, key);
    if (written <= 0 || static_cast<size_t>(written) >= sizeof relative)
        return false;
    return statePath(out, size, relative);
}

bool readFile(const char* path, char* buffer, size_t size)
{
    FileDescriptor file(realOpen(path, O_RDONLY | O_CLOEXEC, 0));
    if (!file.valid() || size == 0)
        return false;
    size_t length = 0;
    while (length + 1 < size) {
        ssize_t got = readRetrying(file.get(), buffer + length, size - 1 - length);
        if (got <= 0)
            break;
        length += static_cast<size_t>(got);
    }
    buffer[length] = '\0';
    return true;
}

// Parses "NAME COUNT" of a fault file.
bool parseFault(const char* text, int& error, long& count)
{
    char name[32];
    if (std::sscanf(text, "%31s %ld", name, &count) != 2)
        return false;
    error = errnoFromName(name);
    return error != 0;
}

// Writes the fault file anew through a temporary beside it, so a reader in
// another process sees either the old or the new count.
void rewriteFault(const char* path, const char* name, long count)
{
    char temporary[kPathSize];
    char text[64];
    int length = std::snprintf(text, sizeof text, "%s %ld\n", name, count);
    int written = std::snprintf(temporary, sizeof temporary, "%s.%ld.tmp", path, static_cast<long>(getpid()));
    if (written <= 0 || static_cast<size_t>(written) >= sizeof temporary)
        return;
    int fd = realOpen(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    bool complete = writeAll(fd, text, static_cast<size_t>(length)) && ::fsync(fd) == 0;
    realClose(fd);
    if (!complete || ::rename(temporary, path) != 0)
        ::unlink(temporary);
}

// A standing fault: the errno named by the first word of a host value.
int faultOf(const char* key)
{
    char text[64];
    char name[32];
    if (!readValue(kHostScope, key, text, sizeof text) || std::sscanf(text, "%31s", name) != 1)
        return 0;
    return errnoFromName(name);
}

struct RunningProbe {
    uint32_t wanted;
    bool found;
};

bool matchRunning(uint32_t veid, void* context)
{
    RunningProbe* probe = static_cast<RunningProbe*>(context);
    if (veid == probe->wanted)
        probe->found = true;
    return !probe->found;
}

} // namespace

bool readValue(long veid, const char* key, char* buffer, size_t size)
{
    char path[kPathSize];
    return keyPath(path, sizeof path, veid, key) && readFile(path, buffer, size);
}

int readNumbers(long veid, const char* key, uint64_t* values, int count)
{
    char text[1024];
    if (!readValue(veid, key, text, sizeof text))
        return 0;
    const char* cursor = text;
    int parsed = 0;
    while (parsed < count) {
        while (std::isspace(static_cast<unsigned char>(*cursor)))
            ++cursor;
        if (!std::isdigit(static_cast<unsigned char>(*cursor)))
            break;
        char* end = nullptr;
        values[parsed++] = std::strtoull(cursor, &end, 10);
        cursor = end;
    }
    return parsed;
}

uint64_t readNumber(long veid, const char* key, uint64_t fallback)
{
    uint64_t value = 0;
    return readNumbers(veid, key, &value, 1) == 1 ? value : fallback;
}

long forEachRunning(RunningVisitor visit, void* context)
{
    char path[kPathSize];
    if (!statePath(path, sizeof path, "running"))
        return 0;
    FileDescriptor file(realOpen(path, O_RDONLY | O_CLOEXEC, 0));
    if (!file.valid())
        return 0;
    // Streamed in small chunks: the list may hold thousands of VEIDs.
    char chunk[4096];
    long visited = 0;
    uint64_t number = 0;
    bool inNumber = false;
    for (;;) {
        ssize_t got = readRetrying(file.get(), chunk, sizeof chunk);
        // A read error ends the list like the end of the file does.
        size_t length = got > 0 ? static_cast<size_t>(got) : 0;
        for (size_t i = 0; i <= length; ++i) {
            bool lastOfFile = i == length && length == 0;
            if (i < length && std::isdigit(static_cast<unsigned char>(chunk[i]))) {
                number = number * 10 + static_cast<uint64_t>(chunk[i] - '0');
                inNumber = true;
                continue;
            }
            if (i == length && !lastOfFile)
                break;  // a number may go on in the next chunk
            if (inNumber) {
                ++visited;
                inNumber = false;
                if (!visit(static_cast<uint32_t>(number), context))
                    return visited;
                number = 0;
            }
        }
        if (length == 0)
            return visited;
    }
}

bool isRunning(uint32_t veid)
{
    RunningProbe probe{veid, false};
    forEachRunning(matchRunning, &probe);
    return probe.found;
}

int takeIoctlFault()
{
    char path[kPathSize];
    char text[128];
    int error = 0;
    long count = 0;
    // Cheap check first: most calls happen with no fault configured.
    if (!keyPath(path, sizeof path, kHostScope, "fault.ioctl") || !readFile(path, text, sizeof text) ||
        !parseFault(text, error, count) || count <= 0)
        return 0;
    char lockPath[kPathSize];
    if (!keyPath(lockPath, sizeof lockPath, kHostScope, ".fault.lock"))
        return 0;
    FileDescriptor lock(realOpen(lockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!lock.valid())
        return 0;
    while (::flock(lock.get(), LOCK_EX) != 0)
        if (errno != EINTR)
            return 0;
    // Read again under the lock: another process may have used the last unit.
    char name[32];
    if (!readFile(path, text, sizeof text) || !parseFault(text, error, count) || count <= 0 ||
        std::sscanf(text, "%31s", name) != 1)
        return 0;
    rewriteFault(path, name, count - 1);
    return error;  // the lock goes with the descriptor
}

int deviceOpenFault()
{
    return faultOf("fault.open");
}

int ubstatPrimaryFault()
{
    return faultOf("fault.ubc503");
}

int errnoFromName(const char* name)
{
    for (const ErrnoName& entry : kErrnoNames)
        if (std::strcmp(entry.name, name) == 0)
            return entry.value;
    char* end = nullptr;
    long value = std::strtol(name, &end, 10);
    return end != name && *end == '\0' && value > 0 ? static_cast<int>(value) : 0;
}

} // namespace kqsim
