// Sign, verify, encrypt and decrypt with a vault key.
#pragma once

#include "keyvault/kvc.h"

// actionverb: "sign", "verify", "encrypt" or "decrypt".
// keyName, version: as in the key's KVKey.
// alg: the service's name of the algorithm.
//
// input: inputLen bytes to transform; with isVerify the signature.
// output: room for *outputLen bytes, or NULL to learn the size (the operation is carried out all the same).
// With isVerify it is the digest of *outputLen bytes, which goes out and is not changed.
//
// 0: *outputLen is the length of the result.
// NTE_FAIL: the vault refused, the result did not decode, or it needs more room (then *outputLen says how much).
// NTE_INVALID_PARAMETER: a NULL argument, or an answer without "value".
// NTE_BAD_SIGNATURE: the verification says no.
// Blocks for one exchange, longer when throttled.
SECURITY_STATUS KVCCryptoOp(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyName, const WCHAR* version, int isVerify,
                            const WCHAR* alg, const BYTE* input, DWORD inputLen, BYTE* output, DWORD* outputLen);
