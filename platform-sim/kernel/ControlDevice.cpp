#include "ControlDevice.h"

#include "KernelState.h"
#include "RealCalls.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>

namespace kqsim {
namespace {

constexpr int kTrackedDescriptors = 65536;
constexpr int kBitsPerWord = 64;
std::atomic<uint64_t> g_controlBits[kTrackedDescriptors / kBitsPerWord];

// Copies `text` into `out` with every run of slashes collapsed to one and
// trailing slashes dropped (except for "/" itself). False when it does not fit.
bool appendNormalised(const char* text, char* out, size_t size, size_t& length)
{
    for (; *text; ++text) {
        if (*text == '/' && length > 0 && out[length - 1] == '/')
            continue;
        if (length + 1 >= size)
            return false;
        out[length++] = *text;
    }
    out[length] = '\0';
    return true;
}

bool normalised(const char* text, char* out, size_t size)
{
    size_t length = 0;
    if (!appendNormalised(text, out, size, length))
        return false;
    while (length > 1 && out[length - 1] == '/')
        out[--length] = '\0';
    return true;
}

std::atomic<uint64_t>* wordOf(int fd, uint64_t& mask)
{
    if (fd < 0 || fd >= kTrackedDescriptors)
        return nullptr;
    mask = uint64_t(1) << (fd % kBitsPerWord);
    return &g_controlBits[fd / kBitsPerWord];
}

} // namespace

bool isControlDevicePath(const char* path)
{
    if (!path || path[0] != '/')
        return false;
    char device[kPathSize];
    char wanted[kPathSize];
    size_t length = 0;
    const char* root = std::getenv("KQ_HOST_ROOT");
    if (!appendNormalised(root ? root : "", device, sizeof device, length) ||
        !appendNormalised("/dev/kqctl", device, sizeof device, length) ||
        !normalised(path, wanted, sizeof wanted))
        return false;
    const char* a = device;
    const char* b = wanted;
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

int openControlDevice(int flags)
{
    if (int error = deviceOpenFault()) {
        errno = error;
        return -1;
    }
    // Real device opens ignore creation flags; keep only close-on-exec.
    int fd = realOpen("/dev/null", O_RDWR | (flags & O_CLOEXEC), 0);
    if (fd < 0)
        return -1;
    uint64_t mask = 0;
    if (std::atomic<uint64_t>* word = wordOf(fd, mask))
        word->fetch_or(mask);
    return fd;
}

bool isControlDescriptor(int fd)
{
    uint64_t mask = 0;
    std::atomic<uint64_t>* word = wordOf(fd, mask);
    return word && (word->load(std::memory_order_relaxed) & mask) != 0;
}

void forgetDescriptor(int fd)
{
    uint64_t mask = 0;
    if (std::atomic<uint64_t>* word = wordOf(fd, mask))
        word->fetch_and(~mask);
}

} // namespace kqsim
