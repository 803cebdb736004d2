// How a PKCS#8 key is encrypted, as its parameters tell. They come from anywhere: lengths and counts are bounded here.
#pragma once

#include "platform/platform.h"

constexpr DWORD kMostIterations = 10000000;
constexpr DWORD kLongestSalt = 1024;  // bytes
constexpr DWORD kLargestCipherKey = 32;
constexpr DWORD kLargestCipherBlock = 16;

// A block cipher in CBC.
struct Pkcs8Cipher {
    const WCHAR* name;  // the platform's
    DWORD cbKey;
    DWORD cbBlock;
};

// Pointers lead into the encoded parameters.
struct Pkcs8Encryption {
    const Pkcs8Cipher* cipher = nullptr;  // a constant
    const WCHAR* hash = nullptr;          // the platform's name of the hash that derives the key, a constant
    const BYTE* salt = nullptr;
    DWORD cbSalt = 0;          // up to kLongestSalt
    DWORD iterations = 0;      // 1 to kMostIterations
    const BYTE* iv = nullptr;  // cipher->cbBlock bytes; NULL where it is derived too
};

// PBES2's parameters, and those of PKCS#12's PBE with SHA-1 and 3DES. der: may be NULL. NTE_BAD_DATA: malformed, or out
// of bounds; NTE_INTERNAL_ERROR: a key derivation, hash or cipher that is not served.
SECURITY_STATUS DecodePbes2(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption);
SECURITY_STATUS DecodePkcs12Pbe(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption);
