#include "KQC/Computer.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQS/ShellSyntax.h"

#include <cerrno>
#include <sys/utsname.h>

namespace KQC {
namespace {

// The release file is a shell-variable file; a value that is absent or
// empty leaves the field unspecified.
void setIfGiven(KQCOptionalProperty<std::string>& field, const KQS::KQSShellFile& release, const char* key)
{
    std::string value;
    if (release.get(key, value) && !value.empty())
        field.set(value);
}

} // namespace

int KQCComputerMLocal::getSystem(KQCSystemInfo& info)
{
    info = KQCSystemInfo();
    struct utsname system;
    if (::uname(&system) != 0) {
        setErrorMessage("can't get the system's name: %m");
        return -1;
    }
    info.os.platform.set(system.sysname);
    info.os.kernel.set(system.release);
    info.architecture = system.machine;

    const std::string path = hostPath("/etc/os-release");
    std::string text;
    if (file2str(path, text) != 0) {
        setErrorMessage("can't read the release file '%s': %m", path.c_str());
        return -1;
    }
    // A release file that is not valid shell text tells nothing; the
    // system's own names still stand.
    KQS::KQSShellFile release;
    if (release.parse(text) != 0)
        return 0;
    setIfGiven(info.os.distribution, release, "ID");
    setIfGiven(info.os.version, release, "VERSION_ID");
    return 0;
}

} // namespace KQC
