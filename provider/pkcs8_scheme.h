// How a PKCS#8 key is encrypted, by its parameters. They are untrusted: lengths and counts are bounded here.
#pragma once

#include "platform/platform.h"

constexpr DWORD kMostIterations = 10000000;
constexpr DWORD kLongestSalt = 1024;  // bytes
constexpr DWORD kLargestCipherKey = 32;
constexpr DWORD kLargestCipherBlock = 16;

// A block cipher in CBC.
struct Pkcs8Cipher {
    const WCHAR* name;  // the platform's name
    DWORD cbKey;
    DWORD cbBlock;
};

// salt and iv point into the encoded parameters.
struct Pkcs8Encryption {
    const Pkcs8Cipher* cipher = nullptr;  // a constant
    const WCHAR* hash = nullptr;          // the platform's name of the hash that derives the key, a constant
    const BYTE* salt = nullptr;
    DWORD cbSalt = 0;          // up to kLongestSalt
    DWORD iterations = 0;      // 1 to kMostIterations
    const BYTE* iv = nullptr;  // cipher->cbBlock bytes; NULL if it is derived too
};

// The parameters of PBES2, and of PKCS#12's PBE with SHA-1 and 3DES. der: may be NULL. 0; NTE_BAD_DATA: malformed or
// out of bounds; NTE_INTERNAL_ERROR: an unsupported key derivation, hash or cipher.
SECURITY_STATUS DecodePbes2(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption);
SECURITY_STATUS DecodePkcs12Pbe(const BYTE* der, DWORD cbDer, Pkcs8Encryption* encryption);
