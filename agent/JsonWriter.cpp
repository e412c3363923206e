#include "JsonWriter.h"

namespace kqagent {
namespace {

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The length of the valid UTF-8 sequence at the start of `text` (of `left`
// bytes), 0 when it is not one. The second byte's range rules out overlong
// forms, surrogates and code points above U+10FFFF.
size_t sequenceLength(const unsigned char* text, size_t left)
{
    unsigned char lead = text[0];
    if (lead < 0x80)
        return 1;
    size_t length;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0)
            low = 0xA0;
        else if (lead == 0xED)
            high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0)
            low = 0x90;
        else if (lead == 0xF4)
            high = 0x8F;
    } else
        return 0;
    if (left < length || text[1] < low || text[1] > high)
        return 0;
    for (size_t i = 2; i < length; ++i)
        if (!isContinuation(text[i]))
            return 0;
    return length;
}

void appendByteEscape(std::string& out, unsigned char byte)
{
    static const char hex[] = "0123456789abcdef";
    out += "\\u00";
    out += hex[byte >> 4];
    out += hex[byte & 0xF];
}

void appendAscii(std::string& out, char c)
{
    switch (c) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\b': out += "\\b"; return;
    case '\t': out += "\\t"; return;
    case '\n': out += "\\n"; return;
    case '\f': out += "\\f"; return;
    case '\r': out += "\\r"; return;
    default: break;
    }
    if (static_cast<unsigned char>(c) < 0x20)
        appendByteEscape(out, static_cast<unsigned char>(c));
    else
        out += c;
}

// Our payloads are built by the console itself, so their nesting is shallow.
void appendValue(std::string& out, const boost::json::value& value)
{
    switch (value.kind()) {
    case boost::json::kind::string:
        appendJsonString(out, std::string_view(value.get_string().data(), value.get_string().size()));
        return;
    case boost::json::kind::array: {
        out += '[';
        bool first = true;
        for (const auto& item : value.get_array()) {
            if (!first)
                out += ',';
            first = false;
            appendValue(out, item);
        }
        out += ']';
        return;
    }
    case boost::json::kind::object: {
        out += '{';
        bool first = true;
        for (const auto& member : value.get_object()) {
            if (!first)
                out += ',';
            first = false;
            appendJsonString(out, std::string_view(member.key().data(), member.key().size()));
            out += ':';
            appendValue(out, member.value());
        }
        out += '}';
        return;
    }
    default:
        // Numbers, booleans and null hold no text to escape.
        out += boost::json::serialize(value);
        return;
    }
}

} // namespace

void appendJsonString(std::string& out, std::string_view text)
{
    out += '"';
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
    size_t i = 0;
    while (i < text.size()) {
        // Most text needs no escape at all: runs of it are copied whole.
        size_t run = i;
        while (run < text.size() && bytes[run] >= 0x20 && bytes[run] < 0x80 && bytes[run] != '"' && bytes[run] != '\\')
            ++run;
        if (run > i) {
            out.append(text.data() + i, run - i);
            i = run;
            continue;
        }
        if (bytes[i] < 0x80) {
            appendAscii(out, text[i]);
            ++i;
            continue;
        }
        size_t length = sequenceLength(bytes + i, text.size() - i);
        if (length == 0) {
            appendByteEscape(out, bytes[i]);
            ++i;
            continue;
        }
        out.append(text.data() + i, length);
        i += length;
    }
    out += '"';
}

std::string jsonText(const boost::json::value& value)
{
    std::string out;
    appendValue(out, value);
    return out;
}

// Enough text for a few environments: few writes, little held.
const size_t kFlushBytes = 64 * 1024;

void JsonWriter::flush()
{
    if (m_pending.empty())
        return;
    m_out.write(m_pending.data(), static_cast<std::streamsize>(m_pending.size()));
    m_pending.clear();
}

void JsonWriter::gathered()
{
    if (m_pending.size() >= kFlushBytes || m_empty.empty())
        flush();
}

void JsonWriter::separate()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_empty.empty()) {
        if (!m_empty.back())
            m_pending += ',';
        m_empty.back() = false;
    }
}

void JsonWriter::open(char bracket)
{
    separate();
    m_pending += bracket;
    m_empty.push_back(true);
}

void JsonWriter::close(char bracket)
{
    if (!m_empty.empty())
        m_empty.pop_back();
    m_pending += bracket;
    gathered();
}

void JsonWriter::beginObject() { open('{'); }
void JsonWriter::endObject() { close('}'); }
void JsonWriter::beginArray() { open('['); }
void JsonWriter::endArray() { close(']'); }

void JsonWriter::key(std::string_view name)
{
    separate();
    appendJsonString(m_pending, name);
    m_pending += ':';
    m_afterKey = true;
}

void JsonWriter::string(std::string_view text)
{
    separate();
    appendJsonString(m_pending, text);
    gathered();
}

void JsonWriter::number(long long value)
{
    separate();
    m_pending += std::to_string(value);
    gathered();
}

void JsonWriter::unsignedNumber(unsigned long long value)
{
    separate();
    m_pending += std::to_string(value);
    gathered();
}

void JsonWriter::boolean(bool value)
{
    separate();
    m_pending += value ? "true" : "false";
    gathered();
}

void JsonWriter::value(const boost::json::value& value)
{
    separate();
    appendValue(m_pending, value);
    gathered();
}

} // namespace kqagent
