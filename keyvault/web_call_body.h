// The entity of a response, up to the bounds in time and size.
#pragma once

#include "platform/platform.h"
#include "support/guards.h"

// What one answer may take: from the moment its request was sent, and of memory, without the terminator.
constexpr uint64_t kAnswerLimitMs = 120000;
constexpr size_t kAnswerLimitBytes = 16 * 1024 * 1024;

struct WebCallBody {
    SecretBytesPtr bytes;  // what came, zero-terminated; NULL without memory
    const WCHAR* failure;  // text for the log; NULL when the entity is whole
    DWORD error;           // of the step that failed, else 0
};

// Reads the entity of a request that has its response. sentAtMs: the tick at which the request had been sent. An answer
// beyond a bound ends like one that breaks off. Blocks for the network.
WebCallBody ReadWebCallBody(HINTERNET request, uint64_t sentAtMs);

// The thread's last error after a failed allocation: the heap doesn't always say why it refuses.
inline DWORD HeapError()
{
    const DWORD error = GetLastError();
    return error ? error : DWORD{ERROR_NOT_ENOUGH_MEMORY};
}
