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
