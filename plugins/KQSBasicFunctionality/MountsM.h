#pragma once
// Mounts of host devices inside running containers (or on the host), and
// their persistence.
//
// A persistent mount of a container is a line in its two action scripts,
// "mount" and "umount", which the container tools run when the container
// starts and stops; the scripts always end with one "exit 0" line and the
// agent keeps its lines just above it. A persistent mount of the host is a
// line of "/etc/fstab". Scripts and the table are replaced atomically, so
// they are never seen half-written.
//
// Modes: 0 mount (add), 1 umount (remove). Results: 0, or a KQSMountResult
// (KQSResult.h) with the message set, or the framework device query's
// result.
// Thread safety: the operations keep no state of their own; two requests
// updating the same scripts at once may lose one update.
#include "KQC/Devices.h"
#include "KQC/GUID.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace KQS {

class MountsM {
public:
    enum Mode { MOUNT = 0, UMOUNT = 1 };

    // 0 when `line` is a script line of the mode's command, filling the
    // fields it holds (a mount line: "mount [-n] [-t TYPE] DEVICE
    // $VE_ROOT/POINT"; an umount line: "umount $VE_ROOT/POINT"); -1
    // otherwise. Fields not reached keep their values.
    static int readMountStr(const char* line, int mode, KQC::KQCDevMountInfo& info);
    // The script line of the mode for the mount, without a newline.
    static std::string setMountStr(int mode, const KQC::KQCDevMountInfo& info);
    // Copies the script `in` to `out` up to its first "exit 0" line,
    // dropping (remove) the lines of the mount point, or refusing (add, -4)
    // when the mount point is there already; then adds the mount's line
    // (add) and "exit 0".
    static int processMountInFile(std::istream& in, std::ostream& out, const KQC::KQCDevMountInfo& info, int mode,
                                  int remove);
    // The script at `scriptPath` (for an add without one, the agent's
    // "mount-action.sample"), updated into `out`. 0 with nothing written
    // when removing from a script that does not exist; -5 when there is
    // nothing to start an add from or `out` is bad.
    static int updateScript(std::ostream& out, const char* scriptPath, const KQC::KQCDevMountInfo& info, int mode,
                            int remove);
    // Adds the mount to the host's "/etc/fstab" or removes every line whose
    // mount point starts with it. 0, or -5 ("/" is never touched).
    static int updateFStab(const KQC::KQCDevMountInfo& info, int remove);
    // Mounts (mode 0) or unmounts (mode 1) now when info.isMounted(), and
    // records or forgets the mount when info.isPersistent().
    static int operateDevice(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info, int mode);
    // The environment's mounts of host devices: active ones from the
    // kernel's table, recorded ones from its mount script (or the host's
    // file-system table).
    static int getMounts(const KQC::KQCEID& eid, std::vector<KQC::KQCDevMountInfo>& out);

    // The paths of a container's action scripts ("mount" or "umount").
    static std::string scriptPath(int veid, const std::string& privatePath, int mode);
};

} // namespace KQS
