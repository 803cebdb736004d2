// Sign, verify, encrypt and decrypt with a vault key.
#pragma once

#include "keyvault/kvc.h"

// actionverb: "sign", "verify", "encrypt" or "decrypt".
// keyName, version: as in the key's KVKey.
// alg: the vault's name of the algorithm.
//
// input: the inputLen bytes to transform; with isVerify the signature.
// output: room for *outputLen bytes, or NULL to query the size (the vault still carries out the operation).
// With isVerify the digest of *outputLen bytes, which is sent and not changed.
//
// 0: *outputLen is the length of the result.
// NTE_FAIL: the vault refused, the result isn't Base64, it needs more room (*outputLen then has the size), or there was
// no memory for the request.
// NTE_INVALID_PARAMETER: a NULL argument, an answer without "value", or no memory for the answer.
// NTE_BAD_SIGNATURE: the signature doesn't match.
// Blocks for one exchange, longer if throttled.
SECURITY_STATUS KVCCryptoOp(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyName, const WCHAR* version, int isVerify,
                            const WCHAR* alg, const BYTE* input, DWORD inputLen, BYTE* output, DWORD* outputLen);
