#pragma once
// Files named by a client, resolved beneath a folder the agent trusts.
//
// A client's name is relative to its folder and must stay inside it: it is
// one or more ordinary components joined by single slashes (not empty, not
// absolute, no "." or ".." component, no NUL), and no component is
// followed when it is a symbolic link (the folder's owner may plant links
// to anywhere on the host). Each component is opened relative to the one before with
// O_NOFOLLOW, so a link swapped in between two calls is refused as well.
// The base folder itself is trusted and opened as given.
//
// Failure: 0, or -1 with errno holding the cause and the thread's error
// message set to the cause alone, fit to follow a caller's own context: the
// system's error text, or for a refusal a sentence naming the component
// ("'/srv/101/kqagent/sub' is a symbolic link").
// Thread safety: free functions, callable from any thread.
#include "KQC/Files.h"

#include <string>
#include <sys/types.h>

namespace KQC {

// Whether `name` may be resolved beneath a folder at all (errno EINVAL and
// the message set when not).
[[nodiscard]] int checkBeneathName(const std::string& name);

// Reads the regular file `name` beneath `base` (at most `limit` bytes; a
// FIFO or device is refused without being opened).
[[nodiscard]] int readFileBeneath(const std::string& base, const std::string& name, std::string& out,
                                  size_t limit = kHostFileLimit);

// Replaces the file `name` beneath `base` with `data` atomically (a
// temporary file beside it, flushed, then renamed over it). Missing folders
// on the way are created with `folderMode`. An existing regular file keeps
// its permission bits, a new one gets 0644; anything else there (a link, a
// folder, a FIFO) is refused and left alone.
[[nodiscard]] int writeFileBeneath(const std::string& base, const std::string& name, const std::string& data,
                                   mode_t folderMode = 0755);

// Removes the file `name` beneath `base`. A symbolic link or a folder there
// is refused, not removed.
[[nodiscard]] int removeFileBeneath(const std::string& base, const std::string& name);

} // namespace KQC
