#include "kqctl/kqctl.h"

namespace {

// The characters the control tool puts a backslash before when it stores a
// value between double quotes.
bool isEscaped(char c)
{
    return c == '\\' || c == '"' || c == '$' || c == '`';
}

} // namespace

extern "C" char* kqctl_unescapestr_eq(char* text)
{
    if (!text)
        return nullptr;
    char* out = text;
    for (const char* in = text; *in; ++in) {
        if (*in == '\\' && isEscaped(in[1])) {
            *out++ = *++in;
            continue;
        }
        if (*in == '\\' && in[1] == '\n') {
            ++in;  // a line continuation leaves nothing behind
            continue;
        }
        *out++ = *in;
    }
    *out = '\0';
    return text;
}
