#ifndef KQNET_KQNET_H
#define KQNET_KQNET_H
/*
 * The container network library: the live state of the network adapters of
 * running containers.
 *
 * Usage: build a filter, fetch the information with it, release both.
 * Every object returned is owned by the caller and released with the
 * matching kqnet_release_* function. Thread-safe; no state between calls.
 */
#ifdef __cplusplus
extern "C" {
#endif

/* Filter kinds. */
#define KQNET_FILTER_ALL 0     /* every adapter of the VEID range */
#define KQNET_FILTER_BY_NAME 2 /* the adapter with the given name */

/* Information request flags (kqnet_get_info). */
#define KQNET_INFO_ADDRESSES 0x80u /* fill the address list */
#define KQNET_INFO_STATE 0x200u    /* fill the up/down flags */
#define KQNET_INFO_IPV6 0x8000u    /* include IPv6 addresses */

/* Record flags (kqnet_info::flags). */
#define KQNET_FLAG_UP 0x1u
#define KQNET_FLAG_DOWN 0x2u

#define KQNET_NAME_SIZE 64

typedef struct kqnet_filter {
    int kind;               /* KQNET_FILTER_* */
    int index;              /* reserved, 0 */
    unsigned int flags;     /* reserved, 0 */
    char name[KQNET_NAME_SIZE];
    int veid_min;           /* inclusive VEID range */
    int veid_max;
} kqnet_filter;

/* One adapter of one container. */
typedef struct kqnet_info {
    struct kqnet_info* next; /* the next record, or null */
    int veid;
    char name[KQNET_NAME_SIZE];
    unsigned int flags;      /* KQNET_FLAG_UP or KQNET_FLAG_DOWN */
    int address_count;
    char** addresses;        /* address_count texts, as configured ("10.0.0.2/24") */
} kqnet_info;

/* A filter for adapters of containers veid_min..veid_max; with
 * KQNET_FILTER_BY_NAME only the adapter `name` (which must then be given).
 * `index` and `flags` must be 0. Null with errno EINVAL or ENOMEM on failure. */
kqnet_filter* kqnet_get_simple_filter(int kind, int index, unsigned int flags, const char* name, int veid_min,
                                      int veid_max);

/* The adapters the filter selects, as a list, or null with errno set:
 * ENOENT when no adapter matches (containers that are not running have
 * none), EINVAL for a null filter, ENOMEM.
 * An adapter's state defaults to up when nothing else is known of it;
 * a state value holding both words ("up down") gives both flags. */
kqnet_info* kqnet_get_info(unsigned int flags, const kqnet_filter* filter);

void kqnet_release_filter(kqnet_filter* filter);

/* Releases a whole list returned by kqnet_get_info; null is allowed. */
void kqnet_release_info(kqnet_info* info);

#ifdef __cplusplus
}
#endif

#endif /* KQNET_KQNET_H */
