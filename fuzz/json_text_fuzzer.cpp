// The console's JSON strings: for any bytes the text parses as JSON, and
// reading the escapes back (\u0080 to \u00ff as one raw byte) gives the
// bytes again.
#include "JsonWriter.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    std::abort();
}

// Undoes the escapes the writer uses; anything else is copied.
std::string unescape(const std::string& quoted)
{
    std::string bytes;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        if (quoted[i] != '\\') {
            bytes += quoted[i];
            continue;
        }
        char kind = quoted[++i];
        switch (kind) {
        case 'b': bytes += '\b'; break;
        case 'f': bytes += '\f'; break;
        case 'n': bytes += '\n'; break;
        case 'r': bytes += '\r'; break;
        case 't': bytes += '\t'; break;
        case 'u':
            bytes += static_cast<char>(hexValue(quoted[i + 3]) * 16 + hexValue(quoted[i + 4]));
            i += 4;
            break;
        default: bytes += kind; break;
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string input(reinterpret_cast<const char*>(data), size);
    std::string quoted;
    kqagent::appendJsonString(quoted, input);
    boost::system::error_code error;
    boost::json::value parsed = boost::json::parse(quoted, error);
    if (error || !parsed.is_string())
        std::abort();
    if (unescape(quoted) != input)
        std::abort();
    return 0;
}
