#include "KQC/HostPaths.h"

#include <cstdlib>

namespace KQC {

std::string hostRoot()
{
    const char* root = std::getenv("KQ_HOST_ROOT");
    std::string text = root ? root : "";
    while (!text.empty() && text.back() == '/')
        text.pop_back();
    return text;
}

std::string hostPath(const std::string& absolutePath)
{
    std::string root = hostRoot();
    if (absolutePath.empty() || absolutePath[0] != '/')
        return root + "/" + absolutePath;
    return root + absolutePath;
}

KQCInstanceFolder KQCInstanceFolders::etc() { return KQCInstanceFolder(hostPath("/etc/kqagent")); }
KQCInstanceFolder KQCInstanceFolders::base() { return KQCInstanceFolder(hostPath("/var/lib/kqagent")); }
KQCInstanceFolder KQCInstanceFolders::binary() { return KQCInstanceFolder(hostPath("/usr/lib/kqagent")); }

} // namespace KQC
