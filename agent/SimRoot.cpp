#include "SimRoot.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

namespace kqagent {
namespace {

// The variable that tells a re-executed console that its environment is
// already arranged for this root.
const char* const kArrangedFor = "KQAGENT_SIM_ARRANGED";

bool isDirectory(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// KEY=VALUE lines of the simulator's environment file.
std::map<std::string, std::string> readEnvFile(const std::string& path)
{
    std::map<std::string, std::string> values;
    // Read as any host file: a FIFO or a link to a device left there must
    // not hang the console. An unreadable file sets nothing.
    std::string text;
    if (KQC::file2str(path, text) != 0)
        return values;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        size_t eq = line.find('=');
        if (eq != std::string::npos && eq > 0 && line[0] != '#')
            values[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return values;
}

std::string prepend(const std::string& first, const char* rest, char separator)
{
    if (!rest || !*rest)
        return first;
    return first + separator + rest;
}

// The sanitizer's runtime wants to come first among preloaded libraries;
// ours comes after the runtime the program is linked with, so the check
// must be relaxed, not failed.
void relaxSanitizerOrder()
{
    const char* current = std::getenv("ASAN_OPTIONS");
    std::string options = current ? current : "";
    if (options.find("verify_asan_link_order") == std::string::npos)
        options = prepend("verify_asan_link_order=0", current, ':');
    ::setenv("ASAN_OPTIONS", options.c_str(), 1);
}

} // namespace

int arrangeHostRoot(const std::string& root, char** argv, std::string& error)
{
    char resolved[PATH_MAX];
    if (!::realpath(root.c_str(), resolved)) {
        error = KQC::errnoText("host root '" + root + "'", errno);
        return -1;
    }
    // errno says nothing here: the path resolved, it just is no folder.
    if (!isDirectory(resolved)) {
        error = "host root '" + root + "': not a directory";
        return -1;
    }
    std::string absolute = resolved;
    ::setenv("KQ_HOST_ROOT", absolute.c_str(), 1);
    std::string envFile = absolute + "/etc/kqsim/env";
    if (!isDirectory(absolute + "/etc/kqsim"))
        return 0;
    const char* arranged = std::getenv(kArrangedFor);
    if (arranged && absolute == arranged)
        return 0;
    std::map<std::string, std::string> sim = readEnvFile(envFile);
    if (sim["KQSIM_BIN"].empty()) {
        error = "'" + envFile + "' does not name the simulator's tools (KQSIM_BIN)";
        return -1;
    }
    ::setenv("PATH", prepend(sim["KQSIM_BIN"], std::getenv("PATH"), ':').c_str(), 1);
    if (!sim["KQSIM_PRELOAD"].empty()) {
        ::setenv("LD_PRELOAD", prepend(sim["KQSIM_PRELOAD"], std::getenv("LD_PRELOAD"), ':').c_str(), 1);
        relaxSanitizerOrder();
    }
    ::setenv(kArrangedFor, absolute.c_str(), 1);
    ::execv("/proc/self/exe", argv);
    error = KQC::errnoText("can't re-execute the console", errno);
    return -1;
}

} // namespace kqagent
