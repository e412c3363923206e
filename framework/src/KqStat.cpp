#include "KQS/KqStat.h"

#include <cstring>

namespace KQS {
namespace {

uint32_t headerOf(const unsigned char* element)
{
    uint32_t header = 0;
    std::memcpy(&header, element, sizeof header);
    return header;
}

// Walks the elements packed inside the root's value. step() reports 1 while
// the cursor is inside the root, 0 when it lands exactly on its end and -1
// when an element would run past it.
class SlmCursor {
public:
    SlmCursor(const unsigned char* values, size_t end) : m_values(values), m_end(end) {}

    int step(KQSSLMParam& element)
    {
        // A header that does not fit is an element running past the end;
        // reading it would read bytes the kernel never wrote.
        if (m_cursor + KQSSLMParam::SLMHeaderSize > m_end)
            return -1;
        element = KQSSLMParam(m_values + m_cursor);
        m_cursor += KQSSLMParam::SLMHeaderSize + element.size();
        if (m_cursor < m_end)
            return 1;
        return m_cursor == m_end ? 0 : -1;
    }

private:
    const unsigned char* m_values;
    size_t m_end;
    size_t m_cursor = 0;
};

// An element of type U32 holding a small number, as the keys are.
int readKey(SlmCursor& cursor, int& key, int& step)
{
    KQSSLMParam element;
    step = cursor.step(element);
    unsigned value = 0;
    if (step < 0 || element.type() != KQSSLMParam::U32 || element.getValue(value) != 0)
        return -1;
    key = static_cast<int>(value);
    return 0;
}

} // namespace

unsigned KQSSLMParam::type() const
{
    return headerOf(m_element) >> 24;
}

unsigned KQSSLMParam::size() const
{
    return headerOf(m_element) & 0x00FFFFFFu;
}

int KQSSLMParam::getValue(unsigned& value) const
{
    if (size() != 4)
        return -1;
    uint32_t raw = 0;
    std::memcpy(&raw, m_element + SLMHeaderSize, sizeof raw);
    value = raw;
    return 0;
}

int KQSSLMParam::getValue(const char*& value) const
{
    value = reinterpret_cast<const char*>(m_element + SLMHeaderSize);
    return 0;
}

uint64_t KQSSLMParam::number() const
{
    if (size() == 4) {
        uint32_t raw = 0;
        std::memcpy(&raw, m_element + SLMHeaderSize, sizeof raw);
        return raw;
    }
    if (size() == 8) {
        uint64_t raw = 0;
        std::memcpy(&raw, m_element + SLMHeaderSize, sizeof raw);
        return raw;
    }
    return 0;
}

int KQSSLMGroup::parse()
{
    params.clear();
    if (buffer.size() < KQSSLMParam::SLMHeaderSize)
        return -1;
    root = KQSSLMParam(buffer.data());
    // The root's size comes from the kernel; a size past our own buffer
    // would send the walk into memory that is not the reply.
    if (root.size() > buffer.size() - KQSSLMParam::SLMHeaderSize)
        return -1;
    SlmCursor cursor(buffer.data() + KQSSLMParam::SLMHeaderSize, root.size());
    KQSSLMParam opener;
    int step = cursor.step(opener);
    if (step < 0 || opener.type() != KQSSLMParam::LIST)
        return -1;
    // A group with no parameters ends with its opener.
    while (step == 1) {
        int a = 0, b = 0;
        // A key that ends the group leaves the next read past its end.
        if (readKey(cursor, a, step) != 0 || readKey(cursor, b, step) != 0)
            return -1;
        KQSSLMParam value;
        step = cursor.step(value);
        unsigned wanted = (a == 2 || a == 3) ? KQSSLMParam::U32 : KQSSLMParam::U64;
        if (step < 0 || value.type() != wanted)
            return -1;
        params[b][a] = value;
    }
    return 0;
}

} // namespace KQS
