#include "KQSKqStatLocal.h"

#include "KQC/HostPaths.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace KQS {
namespace {

std::atomic<int> g_deviceFd{-1};
// 0 until the first beancounter call has fixed the number.
std::atomic<long> g_ubstatNumber{0};

// The kernel reads only the low 32 bits of a request; widening the int
// without its sign keeps the upper bits clear.
int rawIoctl(int fd, uint32_t request, void* arg)
{
    return ::ioctl(fd, static_cast<unsigned long>(request), arg);
}

long rawUbstat(long number, long function, unsigned long arg1, unsigned long arg2, void* buffer, long size)
{
    return ::syscall(number, function, arg1, arg2, buffer, size);
}

} // namespace

int openKQLinDevice()
{
    int fd = g_deviceFd.load();
    if (fd >= 0)
        return fd;
    std::string path;
    try {
        path = KQC::hostPath(KQ_CONTROL_DEVICE);
    } catch (const std::exception&) {
        errno = ENOMEM;
        return -1;
    }
    fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return -1;
    // Two threads may open at once; the loser closes its copy so that the
    // process keeps exactly one descriptor.
    int expected = -1;
    if (!g_deviceFd.compare_exchange_strong(expected, fd)) {
        ::close(fd);
        return expected;
    }
    return fd;
}

int kqLinIoctl(int fd, int request, void* arg)
{
    uint32_t current = static_cast<uint32_t>(request);
    int result = rawIoctl(fd, current, arg);
    if (result >= 0)
        return result;
    if (errno == ENOTTY) {
        // An older kernel: the same request under the older type byte.
        current = KQ_IOC_WITH_TYPE(current, KQ_IOC_LEGACY_TYPE);
    } else if (errno == EBUSY) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    } else {
        return result;
    }
    return rawIoctl(fd, current, arg);
}

int kqLinDeviceCall(int request, void* arg)
{
    int fd = openKQLinDevice();
    if (fd < 0)
        return -1;
    return kqLinIoctl(fd, request, arg);
}

int kqLinQuotaUgidCall(int command, unsigned quotaId, unsigned index, unsigned count, void* buffer)
{
    kq_quota_ugid_request request;
    std::memset(&request, 0, sizeof request);
    request.command = static_cast<uint32_t>(command);
    request.quota_id = quotaId;
    request.index = index;
    request.count = count;
    request.buffer = buffer;
    return kqLinDeviceCall(static_cast<int>(KQ_IOC_QUOTA_UGID), &request);
}

int kqLinGetVeidsCall(kqlist_veidctl* ctl)
{
    int fd = openKQLinDevice();
    if (fd < 0)
        return -1;
    return rawIoctl(fd, KQ_IOC_VEID_LIST, ctl);
}

long kqLinUbstatCall(long function, unsigned long arg1, unsigned long arg2, void* buffer, long size)
{
    long number = g_ubstatNumber.load();
    if (number != 0)
        return rawUbstat(number, function, arg1, arg2, buffer, size);
    long result = rawUbstat(KQ_SYS_UBSTAT, function, arg1, arg2, buffer, size);
    if (result < 0 && errno == ENOSYS) {
        // This kernel has the call under its older number, for good.
        g_ubstatNumber.store(KQ_SYS_UBSTAT_OLD);
        return rawUbstat(KQ_SYS_UBSTAT_OLD, function, arg1, arg2, buffer, size);
    }
    g_ubstatNumber.store(KQ_SYS_UBSTAT);
    return result;
}

void* kqLinUbcQueryCall(int ubid)
{
    long parameters = kqLinUbstatCall(static_cast<long>(KQ_UBSTAT_PARM_NUM), 0, 0, nullptr, 0);
    const long recordSize = static_cast<long>(sizeof(kq_ubstat_record));
    const long headerSize = static_cast<long>(sizeof(kq_ubstat_header));
    // A count no buffer could hold is a broken answer, not a size to ask for.
    if (parameters < 0 || parameters > (LONG_MAX - headerSize) / recordSize)
        return nullptr;
    long size = parameters * recordSize + headerSize;
    void* buffer = std::malloc(static_cast<size_t>(size));
    if (!buffer)
        return nullptr;
    std::memset(buffer, 0, sizeof(kq_ubstat_header));
    kq_ubstat_notify notify;
    std::memset(&notify, 0, sizeof notify);
    notify.interval = 1;
    notify.signal = 0;
    long read = kqLinUbstatCall(static_cast<long>(KQ_UBSTAT_READ_FULL), static_cast<unsigned long>(ubid),
                                reinterpret_cast<unsigned long>(&notify), buffer, size);
    // Anything but the whole buffer means the parameter count changed
    // between the two calls: the records would not line up with the names.
    if (read != size) {
        std::free(buffer);
        return nullptr;
    }
    return buffer;
}

} // namespace KQS
