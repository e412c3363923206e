// The host's release files, as the plug-in and the framework read them:
// the bare-metal product's release line, the container product's packing
// list and the OS release file. The first byte says which file the rest
// is; a file read gives a version of three numbers and a numeric build.
#include "FuzzHost.h"

#include "KQSVT.h"

#include "KQC/Computer.h"

#include <cctype>
#include <cstdint>
#include <string>

namespace {

bool isNumber(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    return true;
}

void checkPackage(int result, const std::string& version, const std::string& build)
{
    if (result != 0)
        return;
    kqfuzz::require(KQS::PackageVersion::parse(version).toString() == version, "the version is three numbers");
    kqfuzz::require(isNumber(build), "the build is a number");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const kqfuzz::FuzzHost& host = kqfuzz::FuzzHost::instance();
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    static const char* const kFiles[] = {"/etc/zentravix-release", "/usr/share/corvantis-release/packing.lst",
                                         "/etc/os-release"};
    for (const char* file : kFiles)
        host.remove(file);
    host.write(kFiles[data[0] % 3], text);

    KQS::KQSVT vt;
    std::string version, build;
    checkPackage(vt.getBareMetalPackage(version, build), version, build);
    checkPackage(vt.getCorvantisPackage(version, build), version, build);
    (void)vt.isIPv6Available();

    KQC::KQCComputerMLocal computer{KQC::KQCAccessProvider()};
    KQC::KQCSystemInfo info;
    (void)computer.getSystem(info);
    return 0;
}
