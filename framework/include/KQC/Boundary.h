#pragma once
// The one place where exceptions become result codes.
//
// Every public operation of a manager and every extern "C" entry point runs
// its body through guardedCall: whatever escapes the body (std::bad_alloc
// from a hostile file, a library's exception, anything) is caught here, the
// calling thread's error message names the operation and the cause, and the
// operation returns KQC_ERR_EXCEPTION. Nothing crosses the C boundary or a
// client's request loop as an exception.
// Thread safety: as the body; the message is per thread.
#include "KQC/Error.h"

#include <exception>
#include <new>
#include <utility>

namespace KQC {

// What an operation returns when its body threw; the message tells why.
constexpr int KQC_ERR_EXCEPTION = -1;

template <class Body>
int guardedCall(const char* operation, Body&& body) noexcept
{
    try {
        return std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        setErrorMessage("%s: out of memory", operation);
    } catch (const std::exception& error) {
        setErrorMessage("%s: %s", operation, error.what());
    } catch (...) {
        setErrorMessage("%s: unexpected failure", operation);
    }
    return KQC_ERR_EXCEPTION;
}

} // namespace KQC
