// Creating a key as the key of a vault certificate.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Creates a vault certificate or a new version of one, merges a certificate into it, and reads its key back into `key`.
// kvc: signed in. keyName, encodedName: the key's two names. keyBits: for RSA only.
//
// exportable: non-zero lets the vault release the private key.
// b64Cert: the certificate to merge, certSize bytes of DER (not Base64). NULL: a dummy certificate is made for the
// vault's certificate request and merged.
// subject: the policy's subject as an X.500 string, used with b64Cert only; NULL or empty: a fixed one.
//
// Non-zero: `key` is filled; the caller releases it with KVCFreeKVKey. 0: the creation, the dummy certificate or the
// read-back failed, or no memory; the previous contents of `key` aren't released and may be overwritten. A failed merge
// is only logged. Blocks for three exchanges, longer if throttled.
int KVCLowLevelCreateKeyCertificate(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId,
                                    LONG keyBits, KVKey* key, DWORD exportable, const BYTE* b64Cert, DWORD certSize,
                                    const WCHAR* subject);
