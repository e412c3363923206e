#pragma once
// Which descriptors are the simulated control device.
//
// Opening "$KQ_HOST_ROOT/dev/kqctl" yields a real descriptor of /dev/null
// that is remembered here; ioctls on it are answered from the state files.
// Thread safety: the set of descriptors is a lock-free bitmap.

namespace kqsim {

// Whether an absolute path names the control device under the host root.
// Runs of slashes count as one; relative paths never match.
bool isControlDevicePath(const char* path);

// Opens the stand-in descriptor and remembers it. Returns the descriptor or
// -1 with errno set (the errno of "fault.open" when that is set).
int openControlDevice(int flags);

bool isControlDescriptor(int fd);
void forgetDescriptor(int fd);

} // namespace kqsim
