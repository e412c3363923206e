#include "SlmReply.h"

#include "KernelState.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kqsim {
namespace {

int fail(int error)
{
    errno = error;
    return -1;
}

class SlmWriter {
public:
    SlmWriter(unsigned char* buffer, uint32_t size) : m_buffer(buffer), m_size(size) {}

    bool element(uint32_t type, const void* value, uint32_t length)
    {
        if (m_used + KQ_SLM_HEADER_SIZE + length > m_size)
            return false;
        uint32_t header = KQ_SLM_HEADER(type, length);
        std::memcpy(m_buffer + m_used, &header, sizeof header);
        if (length > 0)
            std::memcpy(m_buffer + m_used + KQ_SLM_HEADER_SIZE, value, length);
        m_used += KQ_SLM_HEADER_SIZE + length;
        return true;
    }

    bool u32(uint32_t value) { return element(KQ_SLM_TYPE_U32, &value, sizeof value); }
    uint32_t used() const { return m_used; }

private:
    unsigned char* m_buffer;
    uint32_t m_size;
    uint32_t m_used = KQ_SLM_HEADER_SIZE;  // room for the root's header
};

// Parses one "A:B:VALUE" triple; advances past it and its comma.
bool parseSlmTriple(const char*& cursor, uint32_t& a, uint32_t& b, uint64_t& value)
{
    while (*cursor == ' ' || *cursor == ',' || *cursor == '\n' || *cursor == '\t')
        ++cursor;
    if (!*cursor)
        return false;
    char* end = nullptr;
    a = static_cast<uint32_t>(std::strtoul(cursor, &end, 10));
    if (*end != ':')
        return false;
    b = static_cast<uint32_t>(std::strtoul(end + 1, &end, 10));
    if (*end != ':')
        return false;
    value = std::strtoull(end + 1, &end, 10);
    cursor = end;
    return true;
}

} // namespace

int answerSlm(const kq_slm_request* request)
{
    if (!request->buffer)
        return fail(EFAULT);
    if (request->size < KQ_SLM_HEADER_SIZE)
        return fail(E2BIG);
    unsigned char* buffer = static_cast<unsigned char*>(request->buffer);
    SlmWriter writer(buffer, request->size);
    if (!writer.element(KQ_SLM_TYPE_LIST, nullptr, 0))
        return fail(E2BIG);
    char text[KQ_SLM_BUFFER_SIZE];
    if (readValue(static_cast<long>(request->veid), "slm", text, sizeof text)) {
        const char* cursor = text;
        uint32_t a = 0, b = 0;
        uint64_t value = 0;
        while (parseSlmTriple(cursor, a, b, value)) {
            bool small = a == 2 || a == 3;
            uint32_t narrowValue = static_cast<uint32_t>(value);
            bool fits = writer.u32(a) && writer.u32(b) &&
                (small ? writer.u32(narrowValue) : writer.element(KQ_SLM_TYPE_U64, &value, sizeof value));
            if (!fits)
                return fail(E2BIG);
        }
    }
    uint32_t root = KQ_SLM_HEADER(KQ_SLM_TYPE_GROUP, writer.used() - KQ_SLM_HEADER_SIZE);
    std::memcpy(buffer, &root, sizeof root);
    return 0;
}

} // namespace kqsim
