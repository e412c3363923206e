#include "KQS/PathModTime.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace KQS {

bool KQSPathModTime::Stamp::operator==(const Stamp& o) const
{
    return seen == o.seen && ctime == o.ctime && size == o.size && inode == o.inode;
}

namespace {

int64_t nanoseconds(const struct timespec& time)
{
    return static_cast<int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// The fields of a stat result that tell one version of a file from another.
template <class Stamp>
Stamp stampFrom(int rc, const struct stat& st)
{
    using Seen = decltype(Stamp::seen);
    Stamp stamp;
    stamp.seen = Seen::MISSING;
    if (rc != 0)
        return stamp;
    stamp.seen = Seen::PRESENT;
    stamp.ctime = nanoseconds(st.st_ctim);
    stamp.size = st.st_size;
    stamp.inode = st.st_ino;
    return stamp;
}

} // namespace

KQSPathModTime::Stamp KQSPathModTime::stampOf(const std::string& path)
{
    struct stat st;
    int rc = ::stat(path.c_str(), &st);
    return stampFrom<Stamp>(rc, st);
}

KQSPathModTime::Stamp KQSPathModTime::stampAt(int dirfd, const char* name)
{
    struct stat st;
    int rc = ::fstatat(dirfd, name, &st, 0);
    return stampFrom<Stamp>(rc, st);
}

bool KQSPathModTime::update(const std::string& path) { return remember(stampOf(path)); }

bool KQSPathModTime::update(int dirfd, const char* name) { return remember(stampAt(dirfd, name)); }

bool KQSPathModTime::update(const struct ::stat& st) { return remember(stampFrom<Stamp>(0, st)); }

bool KQSPathModTime::remember(const Stamp& now)
{
    // A stamp just taken is never NOTHING, so a first one always differs.
    bool changed = !(now == m_stamp);
    m_stamp = now;
    return changed;
}

bool KQSPathModTime::isChanged(const std::string& path) const { return !(stampOf(path) == m_stamp); }

bool KQSPathModTime::operator==(const KQSPathModTime& o) const
{
    return m_stamp == o.m_stamp;
}

} // namespace KQS
