// Process heap blocks whose size is computed.
#pragma once

#include "platform/platform.h"

// Compute `size` in 64 bits, where it can't overflow. NULL: no memory, or more than the process can address.
inline void* HeapAllocSized(DWORD flags, uint64_t size)
{
    const SIZE_T fitting = static_cast<SIZE_T>(size);
    return fitting == size ? HeapAlloc(GetProcessHeap(), flags, fitting) : nullptr;
}
