// The host's mounts as the device manager reads them: the kernel's mount
// table, the file-system table, the block devices and the file-system
// types, all hostile. The input holds the four files separated by NUL
// bytes; the listing and a round of table rewriting must neither crash nor
// list a mount twice, and the rewritten table keeps every comment line.
#include "FuzzHost.h"

#include "MountsM.h"

#include "KQC/Files.h"

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> parts(const std::string& text, size_t wanted)
{
    std::vector<std::string> out;
    size_t start = 0;
    while (out.size() + 1 < wanted) {
        size_t end = text.find('\0', start);
        if (end == std::string::npos)
            break;
        out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    out.push_back(start <= text.size() ? text.substr(start) : "");
    out.resize(wanted);
    return out;
}

size_t commentLines(const std::string& text)
{
    std::istringstream lines(text);
    std::string line;
    size_t found = 0;
    while (std::getline(lines, line))
        found += line.find_first_not_of(" \t") != std::string::npos && line[line.find_first_not_of(" \t")] == '#';
    return found;
}

// Whether a table line (not blank, not a comment) mounts at a point that
// starts with `point`.
bool mountsAt(const std::string& table, const std::string& point)
{
    std::istringstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
        size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#')
            continue;
        std::istringstream fields(line);
        std::string device, dir;
        if (fields >> device >> dir && dir.compare(0, point.size(), point) == 0)
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const kqfuzz::FuzzHost& host = kqfuzz::FuzzHost::instance();
    static bool prepared = false;
    if (!prepared) {
        host.write("/etc/sysconfig/kq", "VE_ROOT=\"" + host.root() + "/kq/root/$VEID\"\n");
        prepared = true;
    }
    std::vector<std::string> files = parts(std::string(reinterpret_cast<const char*>(data), size), 4);
    host.write("/proc/mounts", files[0]);
    host.write("/etc/fstab", files[1]);
    host.write("/proc/partitions", files[2]);
    host.write("/proc/filesystems", files[3]);

    std::vector<KQC::KQCDevMountInfo> mounts;
    if (KQS::MountsM::getMounts(KQC::KQCEID::EID_LOCAL, mounts) == 0) {
        std::set<std::string> points;
        for (const KQC::KQCDevMountInfo& mount : mounts)
            kqfuzz::require(points.insert(mount.getDevice() + "\n" + mount.getMountPoint()).second,
                            "a mount is listed once");
    }

    KQC::KQCDevMountInfo info("/dev/sdb1", "/fuzz", "ext4", true, false);
    if (KQS::MountsM::updateFStab(info, 0) == 0 && KQS::MountsM::updateFStab(info, 1) == 0) {
        std::string table;
        std::string path = host.root() + "/etc/fstab";
        kqfuzz::require(KQC::file2str(path, table) == 0, "the table is readable");
        kqfuzz::require(commentLines(table) == commentLines(files[1]), "comment lines stay");
        kqfuzz::require(!mountsAt(table, "/fuzz"), "the removed line is gone");
    }
    return 0;
}
