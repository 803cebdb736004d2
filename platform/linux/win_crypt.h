// CRYPT32 for the Linux build: Base64 text and data protection.
#pragma once

#include "platform/linux/win_constants.h"

struct CRYPT_INTEGER_BLOB {
    DWORD cbData;
    BYTE* pbData;
};
using DATA_BLOB = CRYPT_INTEGER_BLOB;
using CRYPT_DATA_BLOB = CRYPT_INTEGER_BLOB;

// ---- Base64 ----

// Only CRYPT_STRING_BASE64 with CRYPT_STRING_NOCRLF, with or without CRYPT_STRING_NOCR: one line without a line end.
// *size: characters. Without a buffer: the size needed, terminator included. After success: the length without
// terminator. ERROR_MORE_DATA: the size needed.
BOOL WINAPI CryptBinaryToStringW(const BYTE* data, DWORD dataSize, DWORD flags, LPWSTR text, DWORD* size);

// CRYPT_STRING_BASE64, or CRYPT_STRING_BASE64_ANY, which first looks for a "-----BEGIN ...-----" and takes what
// is between it and its end. textLength 0: zero-terminated. White space is skipped. *size: bytes; without a buffer the
// size needed. skipped and usedFlags must be NULL. ERROR_INVALID_DATA: malformed. ERROR_MORE_DATA:
// *size is what is needed.
BOOL WINAPI CryptStringToBinaryW(LPCWSTR text, DWORD textLength, DWORD flags, BYTE* data, DWORD* size, DWORD* skipped,
                                 DWORD* usedFlags);

// ---- data protection ----

struct CRYPTPROTECT_PROMPTSTRUCT {
    DWORD cbSize;
    DWORD dwPromptFlags;
    HWND hwndApp;
    LPCWSTR szPrompt;
};

// The scope is the machine with CRYPTPROTECT_LOCAL_MACHINE, else the user. Free out->pbData with LocalFree.
// Creates the scope's master key on first use.
BOOL WINAPI CryptProtectData(DATA_BLOB* data, LPCWSTR description, DATA_BLOB* entropy, PVOID reserved,
                             CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD flags, DATA_BLOB* out);

// The scope is the blob's. Free *description (if requested) and out->pbData with LocalFree.
// ERROR_INVALID_DATA: modified, truncated, or different entropy. NTE_BAD_KEY_STATE: protected under another master key.
BOOL WINAPI CryptUnprotectData(DATA_BLOB* data, LPWSTR* description, DATA_BLOB* entropy, PVOID reserved,
                               CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD flags, DATA_BLOB* out);
