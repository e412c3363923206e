#pragma once
// Answers to the beancounter statistics system call.
//
// Thread safety: reentrant. Results follow the system-call convention of
// the C library's syscall(): -1 with errno set on failure.

namespace kqsim {

// Whether a syscall() with this number and first argument is a beancounter
// call. The second number is a real system call on some machines, so only
// the beancounter function codes are claimed.
bool isUbstatCall(long number, long function);

long answerUbstat(long number, long function, unsigned long ubid, unsigned long notify, void* buffer,
                  long size);

} // namespace kqsim
