#pragma once
// File helpers: whole-file reads and atomic writes, directories, temporary
// files beside a target, backups, and number conversions.
//
// Failure: unless stated otherwise an operation returns 0 on success, or -1
// with the framework's error message set and errno holding the cause, so a
// caller may add its own message with "%m".
// Atomicity: a file is never rewritten in place. New contents go to a
// unique temporary file in the target's directory, are flushed to disk, and
// the temporary is renamed over the target; on any failure the temporary is
// removed and the target is untouched.
// Thread safety: free functions may be called from any thread; an object is
// used by one thread at a time.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <iosfwd>
#include <memory>
#include <string>

namespace KQC {

// Writes all of `data`, retrying interrupted and short writes: 0, or -1
// with errno set (no message: callers add their context).
[[nodiscard]] int writeAll(int fd, const char* data, size_t size);
// One write(2) to a pipe whose reader may be gone: retries interrupted
// writes and gives EPIPE instead of letting SIGPIPE kill the whole process
// (the signal is blocked for this thread meanwhile, and one the write raised
// is taken off again). What write(2) returns, errno set on failure.
ssize_t writeWithoutSigpipe(int fd, const char* data, size_t size);
// Reads to the end of `fd`, retrying interrupted reads: 0, or -1 with errno.
// Unbounded: only for the simulator's own files, never for host files.
[[nodiscard]] int readAll(int fd, std::string& out);

// Non-zero when an entry of that name exists. followLinks=0 tests the entry
// itself (a dangling symbolic link exists); otherwise the link's target.
int fentryExists(const std::string& path, int followLinks = 1);

// Everything read from the host is hostile: a file may be a FIFO, a device,
// a link to /dev/zero or simply huge. No real configuration, lock or agent
// file comes near this size; anything larger is refused, not read.
constexpr size_t kHostFileLimit = 8u << 20;

// Reads the whole file into out (replacing its contents). The file is
// opened without blocking (a FIFO cannot hang the caller), must be a
// regular file once open, and may hold at most `limit` bytes; otherwise
// -1 with a message naming the path ("not a regular file", "larger than N
// bytes") and out unchanged. flags: none yet. Every reader of host files
// goes through this (or readHostFd for a descriptor it opened itself).
[[nodiscard]] int file2str(const std::string& path, std::string& out, int flags = 0,
                           size_t limit = kHostFileLimit);

// file2str for `name` within the open folder `dirfd`: one lookup from the
// folder rather than a walk of the whole path, for callers that read many
// files of one folder. `path` names the file in messages. When `st` is
// given it receives the status of the file that was read, so that a cache
// can stamp it without looking at it again.
[[nodiscard]] int file2strAt(int dirfd, const char* name, const std::string& path, std::string& out,
                             struct ::stat* st = nullptr, size_t limit = kHostFileLimit);

// The same checks for a descriptor the caller opened (with O_NONBLOCK):
// regular file, at most `limit` bytes; `path` only names it in messages.
[[nodiscard]] int readHostFd(int fd, const std::string& path, std::string& out,
                             size_t limit = kHostFileLimit);

// Replaces the file with data atomically. An existing file keeps its
// permission bits; a new one gets 0644.
[[nodiscard]] int str2file(const std::string& path, const std::string& data);

// Replaces the file with data atomically; the result has exactly `mode`.
// This is the one way the framework replaces a file: the data is written
// once, to a temporary file (see kTemporaryTag) that is flushed to disk
// before it is renamed over the target. A writer killed at any moment
// leaves the old file or the new one, never a mix; at worst a temporary
// file stays behind for removeStaleTemporaries.
[[nodiscard]] int writeFileAtomic(const std::string& path, const std::string& data, mode_t mode = 0644);

// Copies the contents of `from` over `to`; `to` is replaced atomically and
// gets the permission bits of `from`. `from` is read as a host file
// (regular, at most kHostFileLimit bytes).
[[nodiscard]] int copyFile(const std::string& from, const std::string& to);

// Removes a file (or an empty directory).
[[nodiscard]] int removeFile(const std::string& path);

// rename(2): atomic within one file system.
[[nodiscard]] int renameFile(const std::string& from, const std::string& to);

enum { MKDIR_EXCLUDE_LAST = 1 };

// Creates every missing directory along path with `mode` (before umask).
// With MKDIR_EXCLUDE_LAST the last component is a file name and is not
// created. Existing directories are fine; an existing non-directory on the
// way fails with ENOTDIR.
[[nodiscard]] int mkDeepDir(const std::string& path, mode_t mode, int flags = 0);

// Every temporary file the framework makes is named "<target>~tmp" plus six
// random characters, so that a cleaner can tell ours from anything else.
constexpr char kTemporaryTag[] = "~tmp";

// Whether a directory entry's name is one of our temporary files.
bool isTemporaryName(const std::string& name);

// Removes, from the one directory `dir` (not below it), our temporary files
// (isTemporaryName, regular files; links are never followed) last modified
// more than `maxAgeSeconds` ago: what writers killed mid-write left behind.
// A younger one may belong to a writer still at work and stays. Returns the
// number removed, or -1 with the message set when the directory cannot be
// read (a missing directory holds nothing: 0). Files that cannot be removed
// are skipped; the others are still removed.
[[nodiscard]] int removeStaleTemporaries(const std::string& dir, long maxAgeSeconds);

// A new unique file beside `target` (same directory, so the final rename is
// atomic), named after the target with kTemporaryTag and a random suffix. Owns its
// descriptor; the destructor removes the file unless commit() succeeded.
// With create=false no file is made: getpath() is a fresh unique name the
// caller may create itself, and commit() renames it if it exists.
// isValid() tells whether the file was made (create=true) or a unique name
// was found (create=false); when not, the message is set and errno kept.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& target, bool create = true);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    bool isValid() const;
    const std::string& getpath() const;
    const std::string& target() const;
    // Buffered stream over the file; a write error makes it bad and makes
    // close() fail. Do not mix with raw writes to fd() without flushing.
    std::ostream& stream();
    int fd() const;
    // Flush, fsync and close. 0, or -1 (message set) when any write failed.
    [[nodiscard]] int close();
    // close() if still open, then rename over the target. 0 or -1.
    [[nodiscard]] int commit();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// Reads the entries of one directory, "." and ".." included.
// flags: none yet.
class OpenDir {
public:
    explicit OpenDir(const std::string& path, int flags = 0);
    ~OpenDir();
    OpenDir(const OpenDir&) = delete;
    OpenDir& operator=(const OpenDir&) = delete;

    explicit operator bool() const;  // opened? (message set when not)
    bool read();                     // next entry; false at the end or on error
    std::string name() const;        // the current entry's name
    bool isDots() const;             // "." or ".."

private:
    DIR* m_dir;
    std::string m_name;
};

// Keeps a copy of a file while the file is rewritten. The copy lives beside
// the file under a unique "~bak" name. Unless clear() was called, the
// destructor puts the copy back over the file (atomically, by rename).
class BackupFile {
public:
    BackupFile() = default;
    ~BackupFile();
    BackupFile(const BackupFile&) = delete;
    BackupFile& operator=(const BackupFile&) = delete;

    // Copies path aside. A previous backup held by this object is first
    // dropped as by clear().
    [[nodiscard]] int backup(const std::string& path);
    // Puts the copy back over the file; the object then holds nothing.
    [[nodiscard]] int restore();
    // Drops the copy (the rewrite succeeded).
    void clear();
    const std::string& backupPath() const { return m_backup; }

private:
    std::string m_path;
    std::string m_backup;
};

std::string intToStr(long long v);
std::string ulongToStr(unsigned long v);
std::string longlongToStr(long long v);
// Strict: the whole string is decimal digits, no sign, no blanks, fits.
// -1 with errno EINVAL (not a number) or ERANGE (too big); out unchanged.
[[nodiscard]] int strToUlong(const std::string& s, unsigned long& out);

} // namespace KQC
