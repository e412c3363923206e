#pragma once
// Small text helpers shared by several parts of the framework library
// (internal to it): hex digits for GUIDs and escaped message text, plain
// decimal numbers in keys and identifiers, letter case for keys that are
// matched without regard to it.
#include <algorithm>
#include <cctype>
#include <string>

namespace KQC {

// 0..15, or -1 when `c` is not a hexadecimal digit (either case).
inline int hexDigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Digits only, one to nine of them: a number that always fits an int.
inline bool isShortDecimal(const std::string& text)
{
    if (text.empty() || text.size() > 9)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

inline std::string upperCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

inline std::string lowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

} // namespace KQC
