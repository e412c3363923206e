#pragma once
// Answers to ioctls on the simulated control device.
//
// The result and errno are what the kernel would give: a negative result
// with errno set on failure. Requests under the older type byte are answered
// like their current ones. Thread safety: reentrant.
#include <cstdint>

namespace kqsim {

int answerControlIoctl(uint32_t request, void* argument);

} // namespace kqsim
