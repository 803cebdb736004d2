// KVKey: the flat record of one vault key, and the two forms of key names.
#pragma once

#include "platform/platform.h"

constexpr size_t kClearNameLimit = 42;  // characters of a clear name
constexpr size_t kClearNameChars = kClearNameLimit + 1;
constexpr size_t kEncodedNameChars = 129;  // buffer for an encoded name
constexpr size_t kVersionChars = 130;      // buffer for a key version
constexpr size_t kAlgIDChars = 20;         // buffer for a CNG algorithm name

// Plain record, zeroed by whoever fills it. Pointers are owned (free) and NULL when the member was missing.
struct KVKey {
    DWORD valid;                       // 1 once KVCParseJSONKey has run
    WCHAR keyName[kEncodedNameChars];  // encoded name
    WCHAR clearName[kClearNameChars];  // "InvalidName" when the encoded name did not decode
    WCHAR version[kVersionChars];      // the text of "kid" behind its last "/"
    WCHAR* crv;                        // curve name
    WCHAR* d;                          // d, dp, dq, k, p, q, qi: held as they came, read by nobody
    WCHAR* dp;
    WCHAR* dq;
    BYTE* e;  // public exponent, two zero bytes behind it
    DWORD e_siz;
    WCHAR* k;
    WCHAR* kty;
    LONG isEC;  // 1 when kty is exactly "EC" or "EC-HSM"
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

// Clear to encoded. encodedName: a zeroed buffer of kEncodedNameChars. *pEncoded: 1 for the coded form, 0 for the plain
// one. 1, or 0 when clearName is longer than 42 characters.
int KVCConvertClearKeyNameToEncoded(const WCHAR* clearName, WCHAR* encodedName, int* pEncoded);

// Encoded to clear. clearName: a buffer of kClearNameChars, zeroed here. *pEncoded: 1 when the input was decoded, 0
// when it was copied. 1, or 0 when a coded name is malformed.
int KVCConvertEncodedKeyNameToClear(const WCHAR* encodedName, WCHAR* clearName, int* pEncoded);

// Fills `theKey` (zeroed here; what it held is not released) from the service's answer. 1 whatever the text holds; 0
// for a NULL argument. The caller releases the record's buffers with KVCFreeKVKey.
int KVCParseJSONKey(const WCHAR* KeyName, const char* KeyJSON, KVKey* theKey);

// Releases the buffers; does nothing for NULL or a record whose `valid` is 0, and repeating it is harmless.
void KVCFreeKVKey(KVKey* theKey);
