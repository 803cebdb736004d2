// Buffers on the process heap that a record keeps for its host. What a host stores may be a PIN or a key, so every one
// is wiped before it is freed.
#pragma once

#include <string.h>

#include "support/guards.h"
#include "support/wipe.h"

// Wipes `size` bytes and frees the block. NULL does nothing.
inline void WipeAndFree(void* block, SIZE_T size)
{
    Wipe(block, size);
    HeapFree(GetProcessHeap(), 0, block);
}

// A copy of `size` bytes. NULL: no memory.
template <typename T>
HeapPtr<T> HeapCopy(const void* bytes, SIZE_T size)
{
    HeapPtr<T> copy(static_cast<T*>(HeapAlloc(GetProcessHeap(), 0, size)));
    if (copy)
        memcpy(copy.get(), bytes, size);
    return copy;
}

// Replaces *field, which has *size bytes, with `block` of newSize bytes. The caller holds the lock that guards both.
template <typename T, typename Size>
void ReplaceBuffer(T** field, Size* size, HeapPtr<T> block, Size newSize)
{
    WipeAndFree(*field, *size);
    *field = block.release();
    *size = *field ? newSize : 0;
}
