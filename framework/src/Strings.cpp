#include "KQC/Strings.h"

#include <cctype>
#include <cstring>

namespace KQC {

char* strip_spaces(char* text)
{
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
    size_t length = std::strlen(text);
    while (length > 0 && std::isspace(static_cast<unsigned char>(text[length - 1])))
        text[--length] = '\0';
    return text;
}

std::string strip_spaces(const std::string& text)
{
    size_t begin = 0, end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin])))
        ++begin;
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1])))
        --end;
    return text.substr(begin, end - begin);
}

char* getToken(char** cursor, const char* delimiters)
{
    char* start = *cursor + std::strspn(*cursor, delimiters);
    if (*start == '\0') {
        *cursor = start;
        return nullptr;
    }
    char* end = start + std::strcspn(start, delimiters);
    if (*end != '\0')
        *end++ = '\0';
    *cursor = end;
    return start;
}

} // namespace KQC
