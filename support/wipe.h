// Blocks and texts that hold a secret, a token or private key material.
#pragma once

#include "platform/platform.h"

// Overwrites `size` bytes with zeros in a way that the compiler keeps. A NULL block does nothing.
void Wipe(void* block, size_t size);

// Wipes a block of calloc and frees it. NULL does nothing.
void WipeFree(void* block, size_t size);

// realloc for secrets: moves the first `oldSize` bytes of `block` to a new block of `newSize` bytes (at least oldSize,
// zero-filled behind them) and wipes the outgrown one, which realloc would leave on the heap as it is. block: NULL with
// oldSize 0 for a first block. NULL: no memory, and `block` is unchanged and still the caller's.
void* WipeRealloc(void* block, size_t oldSize, size_t newSize);

// Wipe and free a zero-terminated text, up to its terminator. NULL does nothing.
void WipeFreeBytes(char* text);
void WipeFreeText(WCHAR* text);
