#include "kqnet/kqnet.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

extern "C" kqnet_filter* kqnet_get_simple_filter(int kind, int index, unsigned int flags, const char* name,
                                                 int veid_min, int veid_max)
{
    bool named = kind == KQNET_FILTER_BY_NAME;
    if ((kind != KQNET_FILTER_ALL && !named) || index != 0 || flags != 0 || veid_min > veid_max ||
        (named && (!name || !*name || std::strlen(name) >= KQNET_NAME_SIZE))) {
        errno = EINVAL;
        return nullptr;
    }
    kqnet_filter* filter = static_cast<kqnet_filter*>(std::calloc(1, sizeof(kqnet_filter)));
    if (!filter) {
        errno = ENOMEM;
        return nullptr;
    }
    filter->kind = kind;
    if (named)
        std::strcpy(filter->name, name);
    filter->veid_min = veid_min;
    filter->veid_max = veid_max;
    return filter;
}

extern "C" void kqnet_release_filter(kqnet_filter* filter)
{
    std::free(filter);
}
