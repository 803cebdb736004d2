// Reading the body of a response, within limits of time and size.
#pragma once

#include "platform/platform.h"
#include "support/guards.h"

// The limits of one answer: milliseconds since its request was sent, and bytes without the terminator.
constexpr uint64_t kAnswerLimitMs = 120000;
constexpr size_t kAnswerLimitBytes = 16 * 1024 * 1024;

struct WebCallBody {
    SecretBytesPtr bytes;  // what was received, zero-terminated; NULL: no memory
    const WCHAR* failure;  // text for the log; NULL if the body is complete
    DWORD error;           // of the step that failed, else 0
};

// Reads the body after the headers have been received. sentAtMs: the tick at which the request was sent. An answer that
// exceeds a limit is treated like one that was cut off. Blocks for the network.
WebCallBody ReadWebCallBody(HINTERNET request, uint64_t sentAtMs);

// The error of a failed allocation: the heap doesn't always set the thread's last error.
inline DWORD HeapError()
{
    const DWORD error = GetLastError();
    return error ? error : DWORD{ERROR_NOT_ENOUGH_MEMORY};
}
