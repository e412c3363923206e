#include "ConfigFileIO.h"

#include <sys/stat.h>

namespace KQC {
namespace ConfigFileIO {

long long modificationTime(const std::string& path)
{
    struct stat info;
    if (::stat(path.c_str(), &info) != 0)
        return -1;
    return static_cast<long long>(info.st_mtim.tv_sec) * 1000000000LL + info.st_mtim.tv_nsec;
}

} // namespace ConfigFileIO
} // namespace KQC
