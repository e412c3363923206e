#include "KQC/Log.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>

namespace KQC {
namespace {

std::atomic<int> g_threshold{3};
std::atomic<bool> g_stderr{false};
std::atomic<int> g_fileFd{-1};
std::mutex g_fileMutex;  // guards replacing the file, not writing lines

std::string timestamp()
{
    char buf[32];
    time_t now = time(nullptr);
    struct tm tmv;
    localtime_r(&now, &tmv);
    strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%S", &tmv);
    return buf;
}

} // namespace

Logger::Logger(const char* component, const char* file, int line, const char* function,
               const char* signature)
    : m_component(component), m_file(file), m_line(line), m_function(function), m_signature(signature)
{
}

void Logger::put(int level, const char* format, ...) const
{
    int fd = g_fileFd.load();
    bool toStderr = g_stderr.load();
    if (level > g_threshold.load() || (fd < 0 && !toStderr))
        return;
    int savedErrno = errno;
    va_list args;
    va_start(args, format);
    char small[1024];
    std::string body;
    va_list copy;
    va_copy(copy, args);
    int needed = vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed >= 0 && static_cast<size_t>(needed) >= sizeof small) {
        body.resize(static_cast<size_t>(needed) + 1);
        errno = savedErrno;
        vsnprintf(&body[0], body.size(), format, args);
        body.resize(static_cast<size_t>(needed));
    } else if (needed >= 0) {
        body.assign(small, static_cast<size_t>(needed));
    }
    va_end(args);
    const char* base = m_file;
    for (const char* p = m_file; *p; ++p)
        if (*p == '/')
            base = p + 1;
    std::string line = timestamp() + " " + std::to_string(level) + " " + m_component + " " + base + ":" +
                       std::to_string(m_line) + " " + body + "\n";
    // A log line that cannot be written has nowhere else to go; a full log
    // disk must not make the operation being logged fail.
    bool written = fd < 0 || writeAll(fd, line.data(), line.size()) == 0;
    if (toStderr)
        written = writeAll(2, line.data(), line.size()) == 0 && written;
    static_cast<void>(written);
    errno = savedErrno;
}

Logger Log2(const char* component, const char* file, int line, const char* function,
            const char* signature)
{
    return Logger(component, file, line, function, signature);
}

int LogSettings::setFile(const std::string& path)
{
    std::lock_guard<std::mutex> guard(g_fileMutex);
    int fd = -1;
    if (!path.empty()) {
        // Without a reader, opening a FIFO for writing would wait for one
        // for ever; non-blocking, it fails at once instead.
        fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
        if (fd < 0) {
            setErrorMessage("can't open log file '%s': %m", path.c_str());
            return -1;
        }
    }
    int old = g_fileFd.exchange(fd);
    if (old >= 0)
        ::close(old);
    return 0;
}

void LogSettings::setStderr(bool on) { g_stderr = on; }
void LogSettings::setThreshold(int level) { g_threshold = level; }
int LogSettings::threshold() { return g_threshold.load(); }

} // namespace KQC
