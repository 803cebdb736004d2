// Clearing memory that held a secret, a token or private key material.
#pragma once

#include "platform/platform.h"

// Overwrites `size` bytes with zeros; the compiler can't optimize it away. A NULL block does nothing.
void Wipe(void* block, size_t size);

// Wipes a block and frees it (free). NULL does nothing.
void WipeFree(void* block, size_t size);

// realloc for secrets: moves a block of `oldSize` bytes to a new one of `newSize`, cut or filled with zeros, and wipes
// the old one, which realloc would leave on the heap unchanged. block: NULL with oldSize 0 for a new block. NULL: no
// memory; `block` is unchanged and still the caller's.
void* WipeRealloc(void* block, size_t oldSize, size_t newSize);

// Wipe a zero-terminated text up to its terminator, and free it. NULL does nothing.
void WipeFreeBytes(char* text);
void WipeFreeText(WCHAR* text);
