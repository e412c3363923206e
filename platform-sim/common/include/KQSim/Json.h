#pragma once
// JSON text for the calls log.
#include <string>
#include <vector>

namespace KQSim {

// A JSON string literal (with the quotes) holding text. Valid UTF-8 passes
// through; control characters, quote and backslash are escaped; each byte
// that is not part of a valid UTF-8 sequence is written as the code point of
// the same number (\u00XX), so the result is always valid JSON.
std::string jsonString(const std::string& text);

// ["a","b",...] on one line, no trailing newline.
std::string jsonStringArray(const std::vector<std::string>& items);

} // namespace KQSim
