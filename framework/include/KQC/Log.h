#pragma once
// The framework logger.
//
// A log line is made in two steps: Log2(component, file, line, function,
// signature) captures where the line comes from, Logger::put(level, format,
// ...) formats and writes it. Levels: 1 failures, 2 warnings, 3 progress,
// 4 detail. A line is written when its level is at or below the threshold.
// Where lines go is the host agent's choice (LogSettings); the default is
// nowhere, so a library used on its own stays silent.
// Thread safety: put() may be called from any thread; each line is written
// with one write(2), so lines from different threads never interleave.
#include <string>

namespace KQC {

class Logger {
public:
    Logger(const char* component, const char* file, int line, const char* function,
           const char* signature);
    void put(int level, const char* format, ...) const __attribute__((format(printf, 3, 4)));

private:
    const char* m_component;
    const char* m_file;
    int m_line;
    const char* m_function;
    const char* m_signature;
};

Logger Log2(const char* component, const char* file, int line, const char* function,
            const char* signature);

// Where log lines go. Set by the host agent before it loads plug-ins.
struct LogSettings {
    // Appends lines to this file ("" = no file). Returns 0, or -1 with the
    // error message set when the file cannot be opened.
    static int setFile(const std::string& path);
    static void setStderr(bool on);
    static void setThreshold(int level);
    static int threshold();
};

} // namespace KQC
