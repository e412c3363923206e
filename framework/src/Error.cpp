#include "KQC/Error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

namespace KQC {
namespace {

thread_local std::string t_message;

std::string vformat(int savedErrno, const char* format, va_list args)
{
    va_list copy;
    va_copy(copy, args);
    errno = savedErrno;  // glibc expands %m from errno at this point
    char small[512];
    int needed = vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0)
        return format;
    if (static_cast<size_t>(needed) < sizeof small)
        return std::string(small, static_cast<size_t>(needed));
    std::vector<char> big(static_cast<size_t>(needed) + 1);
    errno = savedErrno;
    vsnprintf(big.data(), big.size(), format, args);
    return std::string(big.data(), static_cast<size_t>(needed));
}

std::string filtered(std::string text)
{
    for (char& c : text) {
        unsigned char u = static_cast<unsigned char>(c);
        if (u < 0x20 && c != '\n' && c != '\t')
            c = '?';
        else if (u == 0x7f)
            c = '?';
    }
    return text;
}

} // namespace

void setErrorMessage(const char* format, ...)
{
    int savedErrno = errno;
    va_list args;
    va_start(args, format);
    std::string text = vformat(savedErrno, format, args);
    va_end(args);
    t_message.swap(text);
    errno = savedErrno;
}

void setErrorMessageFiltered(const char* format, ...)
{
    int savedErrno = errno;
    va_list args;
    va_start(args, format);
    std::string text = filtered(vformat(savedErrno, format, args));
    va_end(args);
    t_message.swap(text);
    errno = savedErrno;
}

const char* getErrorMessage() { return t_message.c_str(); }

void clearErrorMessage() { t_message.clear(); }

std::string errnoText(const std::string& context, int err)
{
    return context + ": " + std::strerror(err);
}

} // namespace KQC
