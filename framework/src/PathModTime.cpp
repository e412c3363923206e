#include "KQS/PathModTime.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace KQS {

bool KQSPathModTime::Stamp::operator==(const Stamp& o) const
{
    return exists == o.exists && mtimeSec == o.mtimeSec && mtimeNsec == o.mtimeNsec && ctimeSec == o.ctimeSec &&
           ctimeNsec == o.ctimeNsec && size == o.size && inode == o.inode;
}

namespace {

// The fields of a stat result that tell one version of a file from another.
template <class Stamp>
Stamp stampFrom(int rc, const struct stat& st)
{
    Stamp stamp;
    if (rc != 0)
        return stamp;
    stamp.exists = true;
    stamp.mtimeSec = st.st_mtim.tv_sec;
    stamp.mtimeNsec = st.st_mtim.tv_nsec;
    stamp.ctimeSec = st.st_ctim.tv_sec;
    stamp.ctimeNsec = st.st_ctim.tv_nsec;
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
    bool changed = !m_known || !(now == m_stamp);
    m_stamp = now;
    m_known = true;
    return changed;
}

bool KQSPathModTime::isChanged(const std::string& path) const { return !m_known || !(stampOf(path) == m_stamp); }

bool KQSPathModTime::operator==(const KQSPathModTime& o) const
{
    return m_known == o.m_known && m_stamp == o.m_stamp;
}

} // namespace KQS
