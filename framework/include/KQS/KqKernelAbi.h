#ifndef KQS_KQKERNELABI_H
#define KQS_KQKERNELABI_H
/*
 * The container kernel's binary interface: control-device ioctl request
 * numbers, the records they carry, and the beancounter system call.
 *
 * Everything here is kernel ABI for a 64-bit (LP64) host: sizes and offsets
 * are binding and checked below. The header is plain C so that both the
 * plug-in and the simulated kernel include the one definition.
 */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Path of the control device (resolved under the host root by callers). */
#define KQ_CONTROL_DEVICE "/dev/kqctl"

/* Ioctl request encoding: direction in bits 30-31, argument size in bits
 * 16-29, type byte in bits 8-15, number in bits 0-7. */
#define KQ_IOC_TYPE_SHIFT 8
#define KQ_IOC_TYPE_MASK 0x0000FF00u
#define KQ_IOC_TYPE(request) (((uint32_t)(request) & KQ_IOC_TYPE_MASK) >> KQ_IOC_TYPE_SHIFT)
/* Older kernels answer the same requests under this type byte; a request
 * refused with ENOTTY is retried with its type byte replaced by it. */
#define KQ_IOC_LEGACY_TYPE 0x2Au
#define KQ_IOC_WITH_TYPE(request, type) \
    (((uint32_t)(request) & ~KQ_IOC_TYPE_MASK) | (((uint32_t)(type) << KQ_IOC_TYPE_SHIFT) & KQ_IOC_TYPE_MASK))

/* The requests (see the records below for their arguments). */
#define KQ_IOC_VEID_LIST 0x80107801u      /* kq_veid_list: running containers */
#define KQ_IOC_QUOTA_STAT 0xC0182B02u     /* kq_quota_request, command KQ_QUOTA_CMD_STAT */
#define KQ_IOC_QUOTA_UGID 0xC0182B03u     /* kq_quota_ugid_request */
#define KQ_IOC_SLM_GROUP 0xC0082401u      /* kq_slm_request */
#define KQ_IOC_CPU_STAT 0x40102E06u       /* kq_cpu_request -> kq_cpu_stat */
#define KQ_IOC_VEID_PROBE 0x40182900u     /* kq_veid_probe */
#define KQ_IOC_VEID_PROBE_OLD 0x40182A03u /* kq_veid_probe, older numbering */

/* Request record of KQ_IOC_VEID_LIST (16 bytes). The kernel fills at most
 * `count` entries of `veids` and returns the number of running containers,
 * which may exceed `count`: the caller then doubles its room and asks again. */
typedef struct kqlist_veidctl {
    uint32_t count;
    uint32_t reserved;
    uint32_t* veids;
} kqlist_veidctl;

/* Quota statistics request (24 bytes, KQ_IOC_QUOTA_STAT). The caller zeroes
 * the record and the 80-byte result buffer first. */
#define KQ_QUOTA_CMD_STAT 10u
typedef struct kq_quota_request {
    uint32_t command;
    uint32_t quota_id; /* the VEID */
    void* result;      /* kq_quota_stat */
    uint64_t reserved;
} kq_quota_request;

/* Result of KQ_QUOTA_CMD_STAT (80 bytes). Block values are in bytes. */
typedef struct kq_quota_stat {
    uint64_t block_hard;  /* 0 */
    uint64_t block_soft;  /* 8 */
    uint32_t block_grace; /* 16 */
    uint32_t reserved0;
    uint64_t block_usage; /* 24 */
    uint32_t inode_hard;  /* 32 */
    uint32_t inode_soft;  /* 36 */
    uint32_t inode_grace; /* 40 */
    uint32_t reserved1;
    uint64_t inode_usage;  /* 48 */
    uint32_t block_expiry; /* 56 */
    uint32_t reserved2;
    uint32_t inode_expiry; /* 64 */
    uint32_t reserved3[3];
} kq_quota_stat;

/* Per-user/group quota request (24 bytes, KQ_IOC_QUOTA_UGID). */
#define KQ_QUOTA_UGID_READ_ENTRIES 1u /* read `count` entries from `index` */
#define KQ_QUOTA_UGID_GET_STATE 3u    /* user/group state: kq_quota_ugid_state */
#define KQ_QUOTA_UGID_GET_PARAMS 5u   /* user/group parameters: kq_quota_ugid_state */
typedef struct kq_quota_ugid_request {
    uint32_t command;
    uint32_t quota_id; /* the VEID */
    uint32_t index;
    uint32_t count;
    void* buffer;
} kq_quota_ugid_request;

/* Reply of commands 3 and 5 (12 bytes). */
typedef struct kq_quota_ugid_state {
    uint32_t value_b; /* 0 */
    uint32_t value_a; /* 4 */
    uint32_t reserved;
} kq_quota_ugid_state;

/* CPU statistics request (16 bytes, KQ_IOC_CPU_STAT). */
typedef struct kq_cpu_request {
    int32_t veid;
    uint32_t reserved;
    void* result; /* kq_cpu_stat */
} kq_cpu_request;

/* Load average as an integer part and a hundredths part. */
typedef struct kq_loadavg_pair {
    int32_t integer;
    int32_t hundredths;
} kq_loadavg_pair;

/* Result of KQ_IOC_CPU_STAT (80 bytes). */
typedef struct kq_cpu_stat {
    uint64_t user_jiffies;   /* u64 #0 */
    uint64_t nice_jiffies;   /* u64 #1 */
    uint64_t system_jiffies; /* u64 #2 */
    uint64_t uptime_cycles;  /* u64 #3 */
    uint64_t idle_cycles;    /* u64 #4 */
    uint64_t strv_cycles;    /* u64 #5: starvation */
    uint64_t reserved;       /* u64 #6 */
    kq_loadavg_pair load[3]; /* at 56, 64, 72: 1, 5 and 15 minutes */
} kq_cpu_stat;

/* SLM group statistics request (KQ_IOC_SLM_GROUP; the request number encodes
 * 8 bytes, the record is 16 on LP64). The kernel writes a tree of elements
 * into `buffer`, see KQ_SLM_* below. */
#define KQ_SLM_BUFFER_SIZE 16384u
typedef struct kq_slm_request {
    void* buffer;
    uint32_t size;
    uint32_t veid;
} kq_slm_request;

/* SLM elements: a 4-byte header (low 24 bits the value's size in bytes,
 * high 8 bits the type) followed by the value. The reply is one element of
 * type GROUP whose value holds, back to back: one LIST element of size 0,
 * then per parameter three elements: U32 holding A, U32 holding B, and the
 * value: U32 when A is 2 or 3, else U64 (8 bytes, host byte order). */
#define KQ_SLM_HEADER_SIZE 4u
#define KQ_SLM_TYPE_GROUP 1u
#define KQ_SLM_TYPE_U32 129u
#define KQ_SLM_TYPE_U64 131u
#define KQ_SLM_TYPE_LIST 132u
#define KQ_SLM_HEADER(type, size) ((((uint32_t)(type)) << 24) | ((uint32_t)(size) & 0x00FFFFFFu))
#define KQ_SLM_HEADER_TYPE(header) ((uint32_t)(header) >> 24)
#define KQ_SLM_HEADER_SIZE_OF(header) ((uint32_t)(header) & 0x00FFFFFFu)

/* VEID probe (24 bytes, KQ_IOC_VEID_PROBE and KQ_IOC_VEID_PROBE_OLD): answers
 * 0 when the container `veid` is running in the kernel (VEID 0, the host,
 * always is), otherwise -1 with errno ESRCH. */
typedef struct kq_veid_probe {
    uint32_t veid;
    uint32_t flags; /* 0 */
    uint64_t reserved[2];
} kq_veid_probe;

/* The beancounter statistics system call: tried under the first number; a
 * kernel answering ENOSYS there has it under the second. */
#define KQ_SYS_UBSTAT 503
#define KQ_SYS_UBSTAT_OLD 253

/* Functions (first argument; the resource index sits in the low 16 bits). */
#define KQ_UBSTAT_FUNCTION_MASK 0xFFFF0000ul
#define KQ_UBSTAT_READ_FULL 0x30000ul /* (fn, ubid, kq_ubstat_notify*, buffer, size) -> bytes */
#define KQ_UBSTAT_GET_UBIDS 0x40000ul /* (fn, 0, 0, uint32_t buffer, size) -> bytes */
#define KQ_UBSTAT_PARM_NUM 0x50000ul  /* (fn, 0, 0, NULL, 0) -> number of parameters */

/* The most resource parameters a kernel reports. */
#define KQ_UB_RESOURCES 32

/* Header of a KQ_UBSTAT_READ_FULL buffer (16 bytes, zeroed by the caller). */
typedef struct kq_ubstat_header {
    uint64_t start_time;
    uint64_t end_time;
} kq_ubstat_header;

/* One resource parameter (64 bytes) following the header. */
typedef struct kq_ubstat_record {
    uint64_t barrier; /* #0 */
    uint64_t limit;   /* #1 */
    uint64_t held;    /* #2 */
    uint64_t maxheld; /* #3 */
    uint64_t minheld; /* #4 */
    uint64_t failcnt; /* #5 */
    uint64_t reserved[2];
} kq_ubstat_record;

/* Notification argument of KQ_UBSTAT_READ_FULL (16 bytes). */
typedef struct kq_ubstat_notify {
    uint64_t interval; /* 1 */
    int32_t signal;    /* 0 */
    uint32_t reserved;
} kq_ubstat_notify;

#ifdef __cplusplus
}
#define KQ_ABI_ASSERT(cond, text) static_assert(cond, text)
#else
#define KQ_ABI_ASSERT(cond, text) _Static_assert(cond, text)
#endif

KQ_ABI_ASSERT(sizeof(void*) == 8, "the records are laid out for LP64 hosts");
KQ_ABI_ASSERT(sizeof(kqlist_veidctl) == 16, "kqlist_veidctl");
KQ_ABI_ASSERT(sizeof(kq_quota_request) == 24, "kq_quota_request");
KQ_ABI_ASSERT(sizeof(kq_quota_stat) == 80, "kq_quota_stat");
KQ_ABI_ASSERT(sizeof(kq_quota_ugid_request) == 24, "kq_quota_ugid_request");
KQ_ABI_ASSERT(sizeof(kq_quota_ugid_state) == 12, "kq_quota_ugid_state");
KQ_ABI_ASSERT(sizeof(kq_cpu_request) == 16, "kq_cpu_request");
KQ_ABI_ASSERT(sizeof(kq_cpu_stat) == 80, "kq_cpu_stat");
KQ_ABI_ASSERT(sizeof(kq_slm_request) == 16, "kq_slm_request");
KQ_ABI_ASSERT(sizeof(kq_veid_probe) == 24, "kq_veid_probe");
KQ_ABI_ASSERT(sizeof(kq_ubstat_header) == 16, "kq_ubstat_header");
KQ_ABI_ASSERT(sizeof(kq_ubstat_record) == 64, "kq_ubstat_record");
KQ_ABI_ASSERT(sizeof(kq_ubstat_notify) == 16, "kq_ubstat_notify");
KQ_ABI_ASSERT(((KQ_IOC_QUOTA_STAT >> 16) & 0x3FFF) == sizeof(kq_quota_request), "quota request size");
KQ_ABI_ASSERT(((KQ_IOC_VEID_LIST >> 16) & 0x3FFF) == sizeof(kqlist_veidctl), "veid list size");
KQ_ABI_ASSERT(((KQ_IOC_CPU_STAT >> 16) & 0x3FFF) == sizeof(kq_cpu_request), "cpu request size");
KQ_ABI_ASSERT(((KQ_IOC_VEID_PROBE >> 16) & 0x3FFF) == sizeof(kq_veid_probe), "probe size");

#ifdef __cplusplus
#include <cstddef>
static_assert(offsetof(kq_quota_stat, block_usage) == 24, "block usage at 24");
static_assert(offsetof(kq_quota_stat, inode_soft) == 36, "inode soft at 36");
static_assert(offsetof(kq_quota_stat, inode_usage) == 48, "inode usage at 48");
static_assert(offsetof(kq_quota_stat, block_expiry) == 56, "block expiry at 56");
static_assert(offsetof(kq_quota_stat, inode_expiry) == 64, "inode expiry at 64");
static_assert(offsetof(kq_quota_ugid_request, buffer) == 16, "ugid buffer at 16");
static_assert(offsetof(kq_cpu_stat, load) == 56, "load average at 56");
#endif

#undef KQ_ABI_ASSERT

#endif /* KQS_KQKERNELABI_H */
