#include "kqctl/kqctl.h"

#include "SimHost.h"

#include <cerrno>
#include <string>
#include <sys/stat.h>

namespace {

constexpr int kLayoutMarked = 4;
constexpr int kLayoutPlain = 3;

} // namespace

extern "C" int kqctl_env_layout_version(const char* private_dir)
{
    if (!private_dir || !*private_dir) {
        errno = EINVAL;
        return -1;
    }
    try {
        struct stat info;
        if (::stat(private_dir, &info) != 0)
            return -1;
        if (!S_ISDIR(info.st_mode)) {
            errno = ENOTDIR;
            return -1;
        }
        std::string marker;
        if (kqsim::readTextFile(std::string(private_dir) + "/.ve.layout", marker)) {
            size_t first = marker.find_first_not_of(" \t\r\n");
            size_t last = marker.find_last_not_of(" \t\r\n");
            if (first != std::string::npos && marker.substr(first, last - first + 1) == "4")
                return kLayoutMarked;
        }
        return kLayoutPlain;
    } catch (...) {
        errno = ENOMEM;
        return -1;
    }
}
