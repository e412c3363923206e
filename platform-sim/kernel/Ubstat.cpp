#include "Ubstat.h"

#include "KernelState.h"

#include "KQS/KqKernelAbi.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace kqsim {
namespace {

// A kernel without configured values still reports a realistic number of
// resource parameters.
constexpr uint64_t kDefaultParameterCount = 24;

long fail(int error)
{
    errno = error;
    return -1;
}

long parameterCount()
{
    return static_cast<long>(readNumber(kHostScope, "ubc.count", kDefaultParameterCount));
}

// Resource record N of a beancounter: the container's own value, else the
// host-wide one, else zeros.
void readRecord(unsigned long ubid, long index, kq_ubstat_record& record)
{
    std::memset(&record, 0, sizeof record);
    char key[32];
    std::snprintf(key, sizeof key, "ubc.%ld", index);
    uint64_t values[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    if (readNumbers(static_cast<long>(ubid), key, values, 8) == 0)
        readNumbers(kHostScope, key, values, 8);
    std::memcpy(&record, values, sizeof record);
}

// Copies what fits of `length` bytes at `offset` of the caller's buffer.
long copyClipped(void* buffer, long size, long offset, const void* data, long length)
{
    if (offset >= size)
        return 0;
    long room = size - offset;
    long copied = length < room ? length : room;
    std::memcpy(static_cast<char*>(buffer) + offset, data, static_cast<size_t>(copied));
    return copied;
}

long readFull(unsigned long ubid, void* buffer, long size)
{
    if (!buffer || size < 0)
        return fail(EFAULT);
    uint64_t now = static_cast<uint64_t>(std::time(nullptr));
    kq_ubstat_header header{now, now};
    long written = copyClipped(buffer, size, 0, &header, sizeof header);
    long count = parameterCount();
    for (long index = 0; index < count && written < size; ++index) {
        kq_ubstat_record record;
        readRecord(ubid, index, record);
        written += copyClipped(buffer, size, written, &record, sizeof record);
    }
    return written;
}

struct IdSink {
    uint32_t* ids;
    long room;
    long stored;
};

bool storeId(uint32_t veid, void* context)
{
    IdSink* sink = static_cast<IdSink*>(context);
    if (veid == 0)
        return true;  // the host's beancounter is already first
    if (sink->stored >= sink->room)
        return false;  // full: the caller sees a full buffer and asks again
    sink->ids[sink->stored++] = veid;
    return true;
}

// Beancounter ids: the host (0) and every running container. The result is
// the number of bytes filled; a full buffer tells the caller to grow it.
long listIds(void* buffer, long size)
{
    if (!buffer || size < 0)
        return fail(EFAULT);
    IdSink sink{static_cast<uint32_t*>(buffer), size / static_cast<long>(sizeof(uint32_t)), 0};
    if (sink.room == 0)
        return 0;
    sink.ids[sink.stored++] = 0;
    forEachRunning(storeId, &sink);
    return sink.stored * static_cast<long>(sizeof(uint32_t));
}

} // namespace

bool isUbstatCall(long number, long function)
{
    if (number != KQ_SYS_UBSTAT && number != KQ_SYS_UBSTAT_OLD)
        return false;
    unsigned long code = static_cast<unsigned long>(function) & KQ_UBSTAT_FUNCTION_MASK;
    bool inRange = (static_cast<unsigned long>(function) >> 32) == 0;
    return inRange && (code == KQ_UBSTAT_READ_FULL || code == KQ_UBSTAT_GET_UBIDS || code == KQ_UBSTAT_PARM_NUM);
}

long answerUbstat(long number, long function, unsigned long ubid, unsigned long notify, void* buffer, long size)
{
    if (number == KQ_SYS_UBSTAT)
        if (int error = ubstatPrimaryFault())
            return fail(error);
    switch (static_cast<unsigned long>(function) & KQ_UBSTAT_FUNCTION_MASK) {
    case KQ_UBSTAT_PARM_NUM:
        return parameterCount();
    case KQ_UBSTAT_GET_UBIDS:
        return listIds(buffer, size);
    default:
        return readFull(ubid, buffer, size);
    }
}

} // namespace kqsim
