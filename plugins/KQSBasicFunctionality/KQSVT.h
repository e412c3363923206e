#pragma once
// Which virtualization product release this host runs, and which kernel
// features follow from it.
//
// The release files ("/etc/zentravix-release" of the bare-metal product,
// "/usr/share/corvantis-release/packing.lst" of the container product) and
// "/proc/kq/vswap" are looked up under the host root.
//
// Failure: the package queries return 1 when the release is not installed
// or its file cannot be understood; they set no error message (not having
// a product installed is an answer, not an error).
// Thread safety: objects hold no state; any number of threads may use them.
#include <string>

namespace KQS {

// A release version: three numbers, empty when all are 0.
struct PackageVersion {
    unsigned major = 0;
    unsigned minor = 0;
    unsigned patch = 0;

    // Reads "N.N.N" as far as it goes: the fields not reached stay 0.
    static PackageVersion parse(const std::string& text);
    bool empty() const { return major == 0 && minor == 0 && patch == 0; }
    // "major.minor.patch"
    std::string toString() const;
};

class KQSVT {
public:
    // The bare-metal product's version ("5.0.0") and build ("71"): 0, or 1
    // when it is not installed.
    int getBareMetalPackage(std::string& version, std::string& build) const;
    // The container product's version and build: 0, or 1.
    int getCorvantisPackage(std::string& version, std::string& build) const;
    // Whether containers may have IPv6 addresses: the installed release is
    // recent enough (the bare-metal product is asked first).
    bool isIPv6Available() const;
    // Whether the kernel manages container memory with vswap. Tested once
    // per process; later calls give the same answer.
    bool isVSwapAvailable() const;

private:
    int readBareMetalPackage(std::string& version, std::string& build) const;
    int readCorvantisPackage(std::string& version, std::string& build) const;
    bool releaseHasIPv6() const;
};

} // namespace KQS
