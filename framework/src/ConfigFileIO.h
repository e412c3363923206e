#pragma once
// File facts the configuration families share. Internal to the framework
// library. Reading and replacing files goes through KQC/Files.h
// (file2str, writeFileAtomic), the one place that does it.
#include <string>

namespace KQC {
namespace ConfigFileIO {

// The modification time of a file in nanoseconds, -1 when it cannot be had.
long long modificationTime(const std::string& path);

} // namespace ConfigFileIO
} // namespace KQC
