#pragma once
// The SLM group statistics reply of the control device: the "slm" value
// ("A:B:VALUE,...") encoded as the element tree KqKernelAbi.h describes.
// Thread safety: reentrant; uses about 16 KiB of stack.
#include "KQS/KqKernelAbi.h"

namespace kqsim {

// Fills the request's buffer; -1 with errno E2BIG when the reply does not
// fit, EFAULT for a null buffer.
int answerSlm(const kq_slm_request* request);

} // namespace kqsim
