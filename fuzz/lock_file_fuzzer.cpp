// A container's transition lock file left by anyone: the plug-in's lock
// reads it, then either refuses or takes the lock over; taken, the file is
// its own.
#include "FuzzHost.h"

#include "KQSEnvLock.h"

#include "KQC/Files.h"

#include <cstdint>
#include <string>
#include <unistd.h>

namespace {

const char kLockFile[] = "/lock/101.lck";

void prepareHost(const kqfuzz::FuzzHost& host)
{
    host.write("/etc/sysconfig/kq", "LOCKDIR=\"" + host.root() + "/lock\"\n");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const kqfuzz::FuzzHost& host = kqfuzz::FuzzHost::instance();
    static const bool prepared = (prepareHost(host), true);
    (void)prepared;
    host.write(kLockFile, std::string(reinterpret_cast<const char*>(data), size));

    KQS::KQSEnvLock lock(101, 4);
    if (lock.lock() == 0) {
        std::string content;
        kqfuzz::require(KQC::file2str(host.root() + kLockFile, content) == 0, "a taken lock has its file");
        kqfuzz::require(content == std::to_string(::getpid()) + "\nstarting", "a taken lock names its holder");
    }
    return 0;
}
