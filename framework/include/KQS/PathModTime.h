#pragma once
// The remembered modification stamp of one path, so that a cache can tell
// whether the file or folder changed since it was last read.
//
// The stamp is the change time (with nanoseconds), the size and the inode:
// a file replaced by a rename, or a folder that gained an entry, always
// differs, even when the clock tick did not move. The change time moves
// with every write and every change of the modification time, and unlike
// that time no tool can set it back, so it alone stands for both. A path
// that cannot be stat'ed has the empty stamp. Not thread safe: the owner
// locks.
#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>

namespace KQS {

class KQSPathModTime {
public:
    KQSPathModTime() = default;

    // Whether `path` differs from the remembered stamp (always true the
    // first time); the stamp is then remembered.
    bool update(const std::string& path);
    // The same for `name` within the open folder `dirfd`: a lookup from the
    // folder rather than a walk of the whole path, for callers that look at
    // many files of one folder.
    bool update(int dirfd, const char* name);
    // The same from a stat result the caller already has.
    bool update(const struct ::stat& st);
    // The same test without remembering.
    bool isChanged(const std::string& path) const;
    // Forget the stamp: the next update reports a change.
    void reset() { m_stamp.seen = Seen::NOTHING; }
    // Whether a stamp is remembered.
    bool known() const { return m_stamp.seen != Seen::NOTHING; }

    bool operator==(const KQSPathModTime& o) const;

private:
    // Nothing remembered yet; a path that could not be stat'ed; one that was.
    enum class Seen : unsigned char { NOTHING, MISSING, PRESENT };
    // The change time in nanoseconds since the epoch: it moves with every
    // write and with every change of the modification time, so the latter
    // adds nothing. Kept small: a host's caches hold a few of these for
    // every container.
    struct Stamp {
        int64_t ctime = 0;
        off_t size = 0;
        ino_t inode = 0;
        Seen seen = Seen::NOTHING;
        bool operator==(const Stamp& o) const;
    };
    static Stamp stampOf(const std::string& path);
    static Stamp stampAt(int dirfd, const char* name);
    bool remember(const Stamp& now);

    Stamp m_stamp;
};

} // namespace KQS
