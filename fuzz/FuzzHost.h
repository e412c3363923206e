#pragma once
// A host root of its own for fuzz targets whose parsers read host files
// (release files, lock files): a temporary folder that KQ_HOST_ROOT points
// at for the whole run, removed when the program ends.
// One per process; libFuzzer runs the inputs on one thread.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kqfuzz {

class FuzzHost {
public:
    static FuzzHost& instance()
    {
        static FuzzHost host;
        return host;
    }

    const std::string& root() const { return m_root; }

    // Writes `content` to the absolute host path `path` under the root,
    // making its folders first.
    void write(const std::string& path, const std::string& content) const
    {
        std::filesystem::path file = m_root + path;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(content.data(), static_cast<std::streamsize>(content.size()));
    }

    void remove(const std::string& path) const
    {
        std::error_code ignored;
        std::filesystem::remove(m_root + path, ignored);
    }

private:
    FuzzHost()
    {
        // Memory-backed when possible: every input writes a file.
        const char* base = std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/kqfuzz-host-XXXXXX";
        if (!::mkdtemp(pattern.data())) {
            std::perror("mkdtemp");
            std::abort();
        }
        m_root = pattern;
        ::setenv("KQ_HOST_ROOT", m_root.c_str(), 1);
    }

    ~FuzzHost()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }

    std::string m_root;
};

// Stops the run with a message when an expected property fails: libFuzzer
// reports it as a crash and keeps the input.
inline void require(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "fuzz property failed: %s\n", what);
        std::abort();
    }
}

} // namespace kqfuzz
