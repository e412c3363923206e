#pragma once
// Whole-file reading and atomic replacement for the configuration families.
// Internal to the framework library.
// Failure: -1 with the error message set ("%m"-style system text included).
#include <string>

namespace KQC {
namespace ConfigFileIO {

int readWholeFile(const std::string& path, std::string& content);

// Replaces `path` with `content`: a unique temporary file in the same
// directory is written in full, flushed and renamed over the target; on any
// failure the temporary file is removed and the target is left untouched.
int replaceFile(const std::string& path, const std::string& content);

// The modification time of a file in nanoseconds, -1 when it cannot be had.
long long modificationTime(const std::string& path);

} // namespace ConfigFileIO
} // namespace KQC
