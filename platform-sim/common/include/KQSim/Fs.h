#pragma once
// File helpers of the simulated platform's tools.
//
// Every operation returns 0 on success and -1 on failure with the
// framework's per-thread error message set (KQC::getErrorMessage()).
// Nothing throws. Thread safety: no shared state; each call works on the
// paths it is given.
#include <string>
#include <vector>

namespace KQSim {

// Owns one descriptor and closes it on destruction. Not copyable.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    ~FileDescriptor();
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }
    int release();
    // Closes now; 0, or -1 with the message set when close reports an error.
    int close();

private:
    int m_fd;
};

// Writes all bytes, retrying on EINTR and short writes.
int writeAll(int fd, const std::string& data);

// The whole content of a file.
int readFile(const std::string& path, std::string& content);

// Replaces path with content: a unique temporary file in the same folder is
// written, flushed and renamed over the target; on failure it is removed and
// the target is untouched.
int writeFileAtomic(const std::string& path, const std::string& content, unsigned mode = 0644);

// Appends content with one write to a file opened with O_APPEND, so that
// concurrent writers never interleave within it. Creates the file if needed.
int appendOnce(const std::string& path, const std::string& content);

// mkdir -p; existing folders are fine.
int makeDirs(const std::string& path, unsigned mode = 0755);

// rm -rf; a missing path is fine. Symbolic links are removed, not followed.
int removeTree(const std::string& path);

// Copies a folder tree (files, folders, symbolic links) into target, which
// is created if needed; existing files are overwritten.
int copyTree(const std::string& source, const std::string& target);

bool pathExists(const std::string& path);     // follows symbolic links
bool entryExists(const std::string& path);    // the entry itself (lstat)
bool isDirectory(const std::string& path);

// Names in a folder, without "." and "..", sorted.
int listDirectory(const std::string& path, std::vector<std::string>& names);

// An absolute, lexically normal form of path (the folder need not exist).
std::string absolutePath(const std::string& path);

} // namespace KQSim
