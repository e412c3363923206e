#pragma once
// Text helpers for names, paths and identifiers.
//
// Thread safety: every function may be called from any thread.
#include <cstdint>
#include <set>
#include <string>

namespace KQC {

// The 16-byte MD5 digest of `data` into `out`.
void md5Digest(const std::string& data, uint8_t out[16]);

// `name` when no member of `used` has it; otherwise `name` followed by "_"
// and the smallest number from 1 up that gives a name not in `used`.
std::string makeUniqueName(const std::set<std::string>& used, const std::string& name);

// The path with runs of `separator` made one, "." parts dropped and each
// ".." taking away the part before it (lexically: no link is looked at; a
// ".." above the root of an absolute path stays at the root). A trailing
// separator is dropped except for the root itself; an empty result of a
// relative path is ".".
std::string canonizePath(const std::string& path, char separator = '/');

// A new random identifier in the framework's GUID text form.
std::string generateID();

} // namespace KQC
