// Client secrets protected by the platform (DPAPI).
#pragma once

#include "platform/platform.h"

// Size in bytes of a secret before it is protected: wide text with its terminator, filled with zeros.
constexpr DWORD kSecretBufferSize = 1024;

// Protects kSecretBufferSize bytes at `secret` for the machine or the user, and writes the result to `text`, a buffer
// of cchText characters, in Base64 without line breaks. False, with `text` unchanged, if the platform can't protect it.
bool ProtectSecret(const BYTE* secret, bool forMachine, WCHAR* text, DWORD cchText);

// Decrypts a protected secret. Writes at most bufferSize bytes to `buffer`. 1; 0: `buffer` is unchanged.
int GetSecretFromDPAPI(const WCHAR* protectedText, BYTE* buffer, DWORD bufferSize);
