#pragma once
// The plug-in's result codes. Every public operation returns one of these
// (or a framework code from KQC/Error.h, passed through unchanged) and sets
// the thread's error message first whenever the result is not KQS_OK.
//
// A code's meaning belongs to the subsystem that returns it; several
// subsystems reuse a small number for their own failure (mounts return -2
// for an unreadable mount table, authentication -2 for bad credentials), so
// such codes get one name per subsystem below rather than a shared vague one.
#include "KQC/Boundary.h"
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

    // Repair, move and clone.
    KQS_REPAIR_ERR_LOCK = -5,        // the repair VEID is locked by another transition
    KQS_MIGRATE_ERR_LOCKED = -101,   // the migration tool exited 9 (the source is locked)
    KQS_MIGRATE_FAILED = 1,          // the migration tool failed otherwise: positive on purpose

    // Reading a container's native configuration text.
    KQS_ERR_NO_VOCABULARY = -7,     // no vocabulary matches the text
    KQS_ERR_NATIVE_PARSE = -8,      // the text does not parse

    // Container-user authentication.
    KQS_ERR_AUTH_REFUSED = -2,      // bad domain, unknown principal or wrong credentials
    KQS_ERR_AUTH_UNAVAILABLE = -7,  // the tool or the vocabulary cannot be used, or no control panel

    // Templates: their configuration files.
    KQS_TEM_ERR_NO_FOLDER = -29,    // the host settings name no templates folder
    KQS_TEM_ERR_OPEN = -51,         // a configuration file cannot be read, or a listed template has none
    KQS_TEM_ERR_NO_NAME = -52,      // no template name to build a path from
    KQS_TEM_ERR_INVALID = -53,      // a configuration does not parse or is not valid
    KQS_TEM_ERR_WRITE = -54,        // a configuration cannot be written
    // Templates: listing, installation and package files.
    KQS_TEM_ERR_LIST = -3,          // the listing tool cannot run or failed
    KQS_TEM_ERR_NEED_FORCE = -5,    // the tool refuses without --force
    KQS_TEM_ERR_DEPENDENCIES = -6,  // the tool found failed dependencies
    KQS_TEM_ERR_INSTALLED = -7,     // the template is installed already
    KQS_TEM_ERR_ADD = -22,          // installation failed otherwise
    KQS_TEM_ERR_RM = -23,           // removal failed otherwise
    KQS_TEM_ERR_NOT_PACKAGE = -27,  // a package file carries no template configuration
    KQS_TEM_ERR_RPM = -28,          // the package query tool cannot run
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
using KQC::KQC_ERR_EXCEPTION;
// Creation with automatic addresses passes these on from the address pool.
using KQC::KQC_ERR_IP_POOL_EXHAUSTED;
using KQC::KQC_ERR_IP_POOL_MALFORMED;
using KQC::KQC_ERR_IP_POOL_MISSING;
using KQC::KQC_ERR_IP_POOL_STATE;
using KQC::KQC_ERR_NO_ENV_FOR_VEID;
using KQC::KQC_ERR_NOT_SUPPORTED;
using KQC::KQC_ERR_PROCESS_LIST;

} // namespace KQS
