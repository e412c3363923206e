#pragma once
// The plug-in's result codes. Every public operation returns one of these
// (or a framework code from KQC/Error.h, passed through unchanged) and sets
// the thread's error message first whenever the result is not KQS_OK.
//
// A code's meaning belongs to the subsystem that returns it; several
// subsystems reuse a small number for their own failure (mounts return -2
// for an unreadable mount table, authentication -2 for bad credentials), so
// such codes get one name per subsystem below rather than a shared vague one.
#include "KQC/Error.h"

namespace KQS {

enum KQSResult {
    KQS_OK = 0,
    KQS_ERR_GENERIC = -1,       // a local failure with no more specific code
    KQS_ERR_READ = -4,          // a file could not be read
    KQS_ERR_TOOL = -6,          // a container tool failed
    KQS_ERR_NO_VEID = -7,       // no VEID, no private area, or no usable configuration
    KQS_ERR_NO_ENV = -8,        // no such environment
    KQS_ERR_WRITE = -9,         // a file could not be written

    // Exit codes of the control tool, mapped.
    KQS_ERR_TOOL_CREATE = -101,     // create: exit 44
    KQS_ERR_SET_PARAMS = -102,      // creation: setting the parameters failed
    KQS_ERR_TOOL_BROKEN = -103,     // exit 32: the container is broken
    KQS_ERR_TOOL_LOCKED = -104,     // exit 31: the container is locked
    KQS_ERR_TOOL_NO_SPACE = -105,   // exit 78
    KQS_ERR_BAD_ADAPTERS = -107,    // creation: bad adapters or identifiers
};

// Results of the mount records (device manager).
enum KQSMountResult {
    KQS_MOUNT_ERR_MOUNT_TABLE = -2,  // the kernel's mount table is unreadable
    KQS_MOUNT_ERR_RECORDED = -4,     // the mount point is recorded already
    KQS_MOUNT_ERR_FILE = -5,         // a script or the file-system table could not be read or replaced
    KQS_MOUNT_ERR_COMMAND = -6,      // mount or umount failed
    KQS_MOUNT_ERR_MOUNT_POINT = -7,  // a relative or unsafe mount point, or its folder could not be made
    KQS_MOUNT_ERR_ENV = -8,          // no such running environment, or no VEID, root or private area
};

// Framework codes, under the names the plug-in's code uses.
using KQC::KQC_ERR_ACCESS_DENIED;
using KQC::KQC_ERR_NO_ENV_FOR_VEID;
using KQC::KQC_ERR_NOT_SUPPORTED;
using KQC::KQC_ERR_PROCESS_LIST;

} // namespace KQS
