// Base64. Encodes with the standard alphabet; decodes both alphabets, with or without padding.
#pragma once

#include "platform/platform.h"

// Longest text in characters that KVCKelvaro_FromBase64 and Kelvaro_FromBase64 decode; for a longer one they return 0.
constexpr size_t kBase64TextLimit = 4092;

// Standard Base64, padded, without line breaks; the caller frees it (free). NULL on failure, logged.
WCHAR* KVCKelvaro_ToBase64(const BYTE* bytes, DWORD size);

// Decodes `text`. 1 or 0.
// *ppOut NULL, allocate 0: *pcbOut receives the size in bytes.
// *ppOut a buffer of *pcbOut bytes: receives the bytes. If it is too small, 0, and *pcbOut has the size needed.
// *ppOut NULL, allocate not 0: receives a new block (free) with two zero bytes after the data. If the block can't be
// allocated, *ppOut stays NULL and the result is still 1.
int KVCKelvaro_FromBase64(const WCHAR* text, BYTE** ppOut, DWORD* pcbOut, int allocate);

// Decodes a stored secret into `buffer` of *pcbOut bytes; *pcbOut receives the number of bytes written. 1 or 0.
int Kelvaro_FromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut);

// The same for text of any length. Non-zero or 0.
int BldBinFromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut);
