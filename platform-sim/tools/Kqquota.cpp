// kqquota [-b] [-q] show VEID [-t]: the container's disk quota from the
// simulated kernel values (the same ones the quota ioctl answers from).
// Line 1: block usage, soft and hard limit (KiB, rounded up from bytes),
// grace, expiry; line 2: the same for inodes; with -t line 3 is a title and
// line 4 "0 UGID_A UGID_B".
#include "Tools.h"

#include "KQSim/Fs.h"

#include <cstdio>
#include <cstdlib>

namespace KQSim {
namespace {

unsigned long long value(const SimHost& host, int veid, const char* key)
{
    std::string text;
    if (readFile(host.kernelDir(std::to_string(veid)) + "/" + key, text) != 0)
        return 0;
    return std::strtoull(text.c_str(), nullptr, 10);
}

unsigned long long kibRoundedUp(unsigned long long bytes) { return bytes / 1024 + (bytes % 1024 != 0); }

} // namespace

int runKqquota(const SimHost& host, const ToolArguments& args)
{
    bool show = false, ugid = false;
    int veid = 0;
    bool haveVeid = false;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-b" || arg == "-q")
            continue;
        if (arg == "-t")
            ugid = true;
        else if (arg == "show" || arg == "stat")
            show = true;
        else if (parseInt(arg, veid))
            haveVeid = true;
        else {
            std::fprintf(stderr, "kqquota: invalid argument '%s'\n", arg.c_str());
            return 2;
        }
    }
    if (!show || !haveVeid) {
        std::fprintf(stderr, "usage: kqquota [-b] [-q] show VEID [-t]\n");
        return 2;
    }
    std::printf(" %llu %llu %llu %llu %llu\n", kibRoundedUp(value(host, veid, "quota.block_usage")),
                kibRoundedUp(value(host, veid, "quota.block_soft")), kibRoundedUp(value(host, veid, "quota.block_hard")),
                value(host, veid, "quota.block_grace"), value(host, veid, "quota.block_expiry"));
    std::printf(" %llu %llu %llu %llu %llu\n", value(host, veid, "quota.inode_usage"),
                value(host, veid, "quota.inode_soft"), value(host, veid, "quota.inode_hard"),
                value(host, veid, "quota.inode_grace"), value(host, veid, "quota.inode_expiry"));
    if (ugid) {
        std::printf("User/group quota: on, active\n");
        std::printf("0 %llu %llu\n", value(host, veid, "quota.ugid_a"), value(host, veid, "quota.ugid_b"));
    }
    return 0;
}

} // namespace KQSim
