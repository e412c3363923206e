#include "kqctl/kqctl.h"

#include "SimHost.h"

#include <cerrno>
#include <sys/stat.h>

extern "C" int kqctl_open(void)
{
    // The platform is there when its host is: the host root must be a
    // directory (stat sets errno when it is not there at all).
    std::string root = kqsim::simHostRoot();
    struct stat info;
    if (::stat(root.empty() ? "/" : root.c_str(), &info) != 0)
        return -1;
    if (!S_ISDIR(info.st_mode)) {
        errno = ENOTDIR;
        return -1;
    }
    return 0;
}
