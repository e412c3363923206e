#include "KQC/GUID.h"

#include "TextHelpers.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace KQC {
namespace {

// Positions of the 32 hex digits inside the 36-character form.
bool isDashPosition(size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

bool parse36(const char* text, uint8_t out[16])
{
    int nibble = 0;
    for (size_t i = 0; i < 36; ++i) {
        if (isDashPosition(i)) {
            if (text[i] != '-')
                return false;
            continue;
        }
        int v = hexDigitValue(text[i]);
        if (v < 0)
            return false;
        if (nibble % 2 == 0)
            out[nibble / 2] = static_cast<uint8_t>(v << 4);
        else
            out[nibble / 2] = static_cast<uint8_t>(out[nibble / 2] | v);
        ++nibble;
    }
    return true;
}

void randomBytes(uint8_t* out, size_t size)
{
    int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    size_t done = 0;
    while (fd >= 0 && done < size) {
        ssize_t n = ::read(fd, out + done, size - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    if (fd >= 0)
        ::close(fd);
    if (done < size) {
        // No urandom (a stripped chroot): the library's generator still
        // gives unique identifiers in practice.
        std::random_device device;
        for (; done < size; ++done)
            out[done] = static_cast<uint8_t>(device());
    }
}

} // namespace

const KQCEID KQCEID::EID_INVALID;
const KQCEID KQCEID::EID_LOCAL(std::string("{00000000-0000-0000-0000-000000000001}"));

KQCGUIDBase::KQCGUIDBase() { std::memset(m_bytes, 0, sizeof m_bytes); }

int KQCGUIDBase::fromString(const char* text)
{
    if (!text)
        return -1;
    size_t length = std::strlen(text);
    const char* body = text;
    if (length == 38 && text[0] == '{' && text[37] == '}')
        body = text + 1;
    else if (length != 36)
        return -1;
    uint8_t parsed[16];
    if (!parse36(body, parsed))
        return -1;
    std::memcpy(m_bytes, parsed, sizeof m_bytes);
    return 0;
}

std::string KQCGUIDBase::toString() const
{
    static const char digits[] = "0123456789abcdef";
    // Made in place: a listing names every environment's file by it.
    char text[38];
    size_t at = 0;
    text[at++] = '{';
    for (size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text[at++] = '-';
        text[at++] = digits[m_bytes[i] >> 4];
        text[at++] = digits[m_bytes[i] & 0xf];
    }
    text[at++] = '}';
    return std::string(text, at);
}

bool KQCGUIDBase::isValid() const
{
    for (uint8_t b : m_bytes)
        if (b)
            return true;
    return false;
}

KQCGUIDBase KQCGUIDBase::generateNew()
{
    KQCGUIDBase guid;
    randomBytes(guid.m_bytes, sizeof guid.m_bytes);
    guid.m_bytes[6] = static_cast<uint8_t>((guid.m_bytes[6] & 0x0f) | 0x40);
    guid.m_bytes[8] = static_cast<uint8_t>((guid.m_bytes[8] & 0x3f) | 0x80);
    return guid;
}

KQCGUIDBase KQCGUIDBase::fromBytes(const uint8_t bytes[16])
{
    KQCGUIDBase guid;
    std::memcpy(guid.m_bytes, bytes, sizeof guid.m_bytes);
    return guid;
}

bool KQCGUIDBase::operator==(const KQCGUIDBase& other) const
{
    return std::memcmp(m_bytes, other.m_bytes, sizeof m_bytes) == 0;
}

bool KQCGUIDBase::operator<(const KQCGUIDBase& other) const
{
    return std::memcmp(m_bytes, other.m_bytes, sizeof m_bytes) < 0;
}

} // namespace KQC
