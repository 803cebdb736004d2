// KVKey: one key of the vault. Also the two forms of key names.
#pragma once

#include "platform/platform.h"

constexpr size_t kClearNameLimit = 42;  // characters of a clear name
constexpr size_t kClearNameChars = kClearNameLimit + 1;
constexpr size_t kEncodedNameChars = 129;  // buffer for an encoded name
constexpr size_t kVersionChars = 130;      // buffer for a key version
constexpr size_t kAlgIDChars = 20;         // buffer for a CNG algorithm name

// Pointers are owned (free), and NULL if the member was missing.
struct KVKey {
    DWORD valid;                       // 1 once KVCParseJSONKey has run
    WCHAR keyName[kEncodedNameChars];  // encoded name
    WCHAR clearName[kClearNameChars];  // "InvalidName" if the encoded name is malformed
    WCHAR version[kVersionChars];      // the text of "kid" after its last "/"
    WCHAR* crv;                        // curve name
    WCHAR* d;                          // d, dp, dq, k, p, q, qi: stored, but not used
    WCHAR* dp;
    WCHAR* dq;
    BYTE* e;  // public exponent, followed by two zero bytes
    DWORD e_siz;
    WCHAR* k;
    WCHAR* kty;
    LONG isEC;  // 1 if kty is exactly "EC" or "EC-HSM"
    BYTE* n;    // modulus
    DWORD n_siz;
    WCHAR* p;
    WCHAR* q;
    WCHAR* qi;
    BYTE* x;  // point coordinates
    DWORD x_siz;
    BYTE* y;
    DWORD y_siz;
    WCHAR* key_ops;            // operations joined by ","
    WCHAR AlgID[kAlgIDChars];  // CNG algorithm name, or empty
};

// Clear to encoded. encodedName: a zeroed buffer of kEncodedNameChars. *pEncoded: 1 if the name had to be encoded, 0 if
// it was copied. 1; 0: clearName is longer than 42 characters.
int KVCConvertClearKeyNameToEncoded(const WCHAR* clearName, WCHAR* encodedName, int* pEncoded);

// Encoded to clear. clearName: a buffer of kClearNameChars, zeroed here. *pEncoded: 1 if the name was decoded, 0 if it
// was copied. 1; 0: the encoded name is malformed.
int KVCConvertEncodedKeyNameToClear(const WCHAR* encodedName, WCHAR* clearName, int* pEncoded);

// Fills `theKey` from the vault's answer. It is zeroed first; its previous contents aren't released. 1 for any text; 0
// for a NULL argument. The caller releases the record's buffers with KVCFreeKVKey.
int KVCParseJSONKey(const WCHAR* KeyName, const char* KeyJSON, KVKey* theKey);

// Releases the buffers. Does nothing for NULL or a record whose `valid` is 0; calling it twice is harmless.
void KVCFreeKVKey(KVKey* theKey);
