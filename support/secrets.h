// Client secrets under the platform's data protection.
#pragma once

#include "platform/platform.h"

// The plain form of a protected secret: the whole buffer of an open, wide text with its terminator and zero fill.
// Bytes.
constexpr DWORD kSecretBufferSize = 1024;

// Protects kSecretBufferSize bytes at `secret` for the machine or the user and writes Base64 text without line ends to
// `text`, of cchText characters. False, with `text` untouched, when the platform refuses.
bool ProtectSecret(const BYTE* secret, bool forMachine, WCHAR* text, DWORD cchText);

// Brings a protected secret back: at most bufferSize bytes are written to `buffer`. 1, or 0 with the buffer unchanged.
int GetSecretFromDPAPI(const WCHAR* protectedText, BYTE* buffer, DWORD bufferSize);
