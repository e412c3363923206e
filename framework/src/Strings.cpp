#include "KQC/Strings.h"

#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"

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

int parseBashStr(const std::string& text, std::string& key, std::string& value)
{
    KQS::KQSShellFile file;
    // The shell reader sets the thread's message on malformed text; a line
    // that is not an assignment is an ordinary answer here, not an error the
    // caller should see, so the caller's message is kept.
    std::string previous = getErrorMessage();
    int rc = file.parse(text);
    setErrorMessage("%s", previous.c_str());
    if (rc != 0)
        return -1;
    const KQS::KQSShellLine* found = nullptr;
    for (const KQS::KQSShellLine& line : file.lines()) {
        if (line.isAssignment) {
            if (found)
                return -1;
            found = &line;
        } else if (!strip_spaces(line.text).empty() && strip_spaces(line.text)[0] != '#') {
            return -1;
        }
    }
    if (!found)
        return -1;
    key = found->key;
    value = found->value;
    return 0;
}

} // namespace KQC
