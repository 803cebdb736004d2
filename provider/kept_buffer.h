// Buffers on the process heap that a record keeps for its host. What a host stores may be a PIN or a key, so every one
// is wiped before it is freed.
#pragma once

#include "support/guards.h"
#include "support/wipe.h"

// Wipes `size` bytes and frees the block. NULL does nothing.
inline void WipeAndFree(void* block, SIZE_T size)
{
    Wipe(block, size);
    HeapFree(GetProcessHeap(), 0, block);
}

// Puts `block` of newSize bytes, or NULL and 0, in place of *field, whose size is *size. The caller holds the lock that
// guards the two.
template <typename T, typename Size>
void ReplaceBuffer(T** field, Size* size, HeapPtr<T> block, Size newSize)
{
    WipeAndFree(*field, *size);
    *field = block.release();
    *size = newSize;
}
