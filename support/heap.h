// Blocks of the process heap whose size is a product or a sum.
#pragma once

#include "platform/platform.h"

// `size` is computed in 64 bits, where it can't wrap. NULL: no memory, or more than the process can address.
inline void* HeapAllocSized(DWORD flags, uint64_t size)
{
    const SIZE_T fitting = static_cast<SIZE_T>(size);
    return fitting == size ? HeapAlloc(GetProcessHeap(), flags, fitting) : nullptr;
}
