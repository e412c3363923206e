#include "KQSVT.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQC/Vocabulary.h"

#include <cctype>
#include <cerrno>
#include <exception>
#include <climits>
#include <fcntl.h>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace KQS {
namespace {

const char kBareMetalRelease[] = "/etc/zentravix-release";
const char kCorvantisPackingList[] = "/usr/share/corvantis-release/packing.lst";
const char kVSwapFlag[] = "/proc/kq/vswap";
const char kCorvantisPackagePrefix[] = "corvantis-release-";
// Words of a release file are read as the tools write them: at most this
// long; a longer one cannot be one of ours.
const size_t kMaxWordLength = 255;

// The releases from which on containers may have IPv6 addresses: a newer
// (major, minor), or the same one from a later build.
const PackageVersion kBareMetalIPv6Version{5, 0, 0};
const unsigned long kBareMetalIPv6LastBuildWithout = 71;
const PackageVersion kCorvantisIPv6Version{4, 6, 0};
const unsigned long kCorvantisIPv6LastBuildWithout = 205;

// Reads decimal digits at `pos` into `value`; false when there are none
// or the number does not fit.
bool readUnsigned(const std::string& text, size_t& pos, unsigned long& value)
{
    size_t start = pos;
    value = 0;
    while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
        unsigned digit = static_cast<unsigned>(text[pos] - '0');
        if (value > (UINT_MAX - digit) / 10)
            return false;
        value = value * 10 + digit;
        ++pos;
    }
    return pos > start;
}

// The build number that a text starts with; false when it starts with none.
bool parseBuild(const std::string& text, unsigned long& build)
{
    size_t pos = 0;
    return readUnsigned(text, pos, build);
}

bool isNewer(const PackageVersion& version, unsigned long build, const PackageVersion& first,
             unsigned long lastBuildWithout)
{
    if (version.major != first.major)
        return version.major > first.major;
    if (version.minor != first.minor)
        return version.minor > first.minor;
    return build > lastBuildWithout;
}

// The whole of a small file, read as any host file is. A missing release
// file is an ordinary answer, so this leaves the thread's error message
// alone.
bool readSmallFile(const std::string& path, std::string& text)
{
    const std::string message = KQC::getErrorMessage();
    const bool read = KQC::file2str(path, text) == 0;
    KQC::setErrorMessage("%s", message.c_str());
    return read;
}

bool vswapFlagExists()
{
    try {
        return ::access(KQC::hostPath(kVSwapFlag).c_str(), F_OK) == 0;
    } catch (const std::exception&) {
        return false;
    }
}

bool readWord(std::istream& in, std::string& word)
{
    return static_cast<bool>(in >> word) && word.size() <= kMaxWordLength;
}

} // namespace

PackageVersion PackageVersion::parse(const std::string& text)
{
    PackageVersion version;
    unsigned* fields[] = {&version.major, &version.minor, &version.patch};
    size_t pos = 0;
    for (size_t index = 0; index < 3; ++index) {
        if (index > 0 && (pos >= text.size() || text[pos++] != '.'))
            break;
        unsigned long value = 0;
        if (!readUnsigned(text, pos, value))
            break;
        *fields[index] = static_cast<unsigned>(value);
    }
    return version;
}

std::string PackageVersion::toString() const
{
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

int KQSVT::getBareMetalPackage(std::string& version, std::string& build) const
{
    try {
        return readBareMetalPackage(version, build);
    } catch (const std::exception&) {
        return 1;  // out of memory while reading: no answer
    }
}

int KQSVT::getCorvantisPackage(std::string& version, std::string& build) const
{
    try {
        return readCorvantisPackage(version, build);
    } catch (const std::exception&) {
        return 1;
    }
}

int KQSVT::readBareMetalPackage(std::string& version, std::string& build) const
{
    std::string text;
    if (!readSmallFile(KQC::hostPath(kBareMetalRelease), text))
        return 1;
    std::istringstream in(text);
    static const char* const kProductWords[] = {"Zentravix", "Server", "Bare", "Metal"};
    std::string word;
    for (const char* expected : kProductWords)
        if (!readWord(in, word) || KQC::compareNoCase(word, expected) != 0)
            return 1;
    if (!readWord(in, word))
        return 1;
    PackageVersion release = PackageVersion::parse(word);
    // The build follows in parentheses: "... 5.0.0 (71)".
    std::string rest((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t open = rest.find('(');
    if (open == std::string::npos)
        return 1;
    size_t close = rest.find(')', open + 1);
    if (close == std::string::npos)
        return 1;
    unsigned long number = 0;
    if (!parseBuild(rest.substr(open + 1, close - open - 1), number))
        return 1;
    version = release.toString();
    build = std::to_string(number);
    return 0;
}

int KQSVT::readCorvantisPackage(std::string& version, std::string& build) const
{
    std::string text;
    if (!readSmallFile(KQC::hostPath(kCorvantisPackingList), text))
        return 1;
    std::istringstream in(text);
    const std::string prefix = kCorvantisPackagePrefix;
    std::string line;
    while (std::getline(in, line)) {
        if (line.compare(0, prefix.size(), prefix) != 0)
            continue;
        // "corvantis-release-4.6.0-205": the version, a dash, the build.
        std::string rest = line.substr(prefix.size());
        size_t dash = rest.find('-');
        if (dash == std::string::npos || dash == 0)
            return 1;
        unsigned long number = 0;
        if (!parseBuild(rest.substr(dash + 1), number) || number == 0)
            return 1;
        version = PackageVersion::parse(rest.substr(0, dash)).toString();
        build = std::to_string(number);
        return 0;
    }
    return 1;
}

bool KQSVT::isIPv6Available() const
{
    try {
        return releaseHasIPv6();
    } catch (const std::exception&) {
        return false;
    }
}

bool KQSVT::releaseHasIPv6() const
{
    std::string version, build;
    unsigned long number = 0;
    if (getBareMetalPackage(version, build) == 0 && parseBuild(build, number))
        return isNewer(PackageVersion::parse(version), number, kBareMetalIPv6Version, kBareMetalIPv6LastBuildWithout);
    if (getCorvantisPackage(version, build) == 0 && parseBuild(build, number))
        return isNewer(PackageVersion::parse(version), number, kCorvantisIPv6Version, kCorvantisIPv6LastBuildWithout);
    return false;
}

bool KQSVT::isVSwapAvailable() const
{
    // The kernel does not change under a running process.
    static const bool available = vswapFlagExists();
    return available;
}

} // namespace KQS
