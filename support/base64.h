// Base64: the standard alphabet on the way out, both alphabets with or without fill on the way in.
#pragma once

#include "platform/platform.h"

// Longest text that KVCKelvaro_FromBase64 and Kelvaro_FromBase64 take, in characters; a longer one gives 0.
constexpr size_t kBase64TextLimit = 4092;

// Standard Base64 with fill and without line ends; the caller releases the text with free. NULL on failure, logged.
WCHAR* KVCKelvaro_ToBase64(const BYTE* bytes, DWORD size);

// Decodes `text`.
// *ppOut NULL, allocate 0: *pcbOut receives the size in bytes.
// *ppOut a buffer of *pcbOut bytes: receives the bytes; 0 with the needed size in *pcbOut when it is too small.
// *ppOut NULL, allocate not 0: receives a new block with two zero bytes behind the data, released with free; *ppOut
// stays NULL when that block cannot be had, although the result is 1. 1 or 0.
int KVCKelvaro_FromBase64(const WCHAR* text, BYTE** ppOut, DWORD* pcbOut, int allocate);

// Decodes into `buffer` of *pcbOut bytes; *pcbOut becomes the number of bytes. For stored secrets. 1 or 0.
int Kelvaro_FromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut);

// The same without a bound on the text's length. Non-zero or 0.
int BldBinFromBase64(const WCHAR* text, BYTE* buffer, DWORD* pcbOut);
