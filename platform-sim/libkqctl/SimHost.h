#pragma once
// What the container libraries know of the simulated host: its root, the
// kernel's running list and the per-container kernel values under
// ROOT/var/lib/kqsim/, and the containers' configuration files.
//
// Thread safety: everything reads files afresh and keeps no state.
#include <string>

namespace kqsim {

// KQ_HOST_ROOT without trailing slashes ("" for the real root).
std::string simHostRoot();

// Reads a whole file. False (errno set) when it cannot be opened or read.
bool readTextFile(const std::string& path, std::string& text);

// Whether VEID is in the kernel's running list.
bool isVeidRunning(int veid);

// The text of kernel value KEY of container VEID, with surrounding blanks
// removed. False when it is not set.
bool readKernelValue(int veid, const std::string& key, std::string& value);

// The container's root directory: VE_ROOT of its configuration file, else
// of the host settings, with "$VEID" put in. False when neither has one.
bool containerRootDir(int veid, std::string& root);

} // namespace kqsim
