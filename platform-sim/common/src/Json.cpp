#include "KQSim/Json.h"

#include <cstdio>

namespace KQSim {
namespace {

// Length of the valid UTF-8 sequence starting at text[at], or 0 when the
// bytes there do not form one (overlong forms and surrogates included).
size_t utf8SequenceLength(const std::string& text, size_t at)
{
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned char lead = byte(at);
    size_t length;
    unsigned codePoint;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        codePoint = lead & 0x1Fu;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        codePoint = lead & 0x0Fu;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        codePoint = lead & 0x07u;
    } else {
        return 0;
    }
    if (at + length > text.size())
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return 0;
        codePoint = (codePoint << 6) | (byte(at + i) & 0x3Fu);
    }
    bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (overlong || surrogate || codePoint > 0x10FFFF)
        return 0;
    return length;
}

void appendCodePointEscape(std::string& out, unsigned value)
{
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", value);
    out += escape;
}

} // namespace

std::string jsonString(const std::string& text)
{
    std::string out = "\"";
    size_t at = 0;
    while (at < text.size()) {
        unsigned char c = static_cast<unsigned char>(text[at]);
        if (c < 0x80) {
            switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\t': out += "\\t"; break;
            case '\r': out += "\\r"; break;
            case '\b': out += "\\b"; break;
            case '\f': out += "\\f"; break;
            default:
                if (c < 0x20 || c == 0x7F)
                    appendCodePointEscape(out, c);
                else
                    out += static_cast<char>(c);
            }
            ++at;
            continue;
        }
        size_t length = utf8SequenceLength(text, at);
        if (length == 0) {
            appendCodePointEscape(out, c);
            ++at;
        } else {
            out.append(text, at, length);
            at += length;
        }
    }
    out += '"';
    return out;
}

std::string jsonStringArray(const std::vector<std::string>& items)
{
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) {
        if (i)
            out += ',';
        out += jsonString(items[i]);
    }
    out += ']';
    return out;
}

} // namespace KQSim
