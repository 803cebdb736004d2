// A key as the key of a vault certificate.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Creates a certificate of the vault, or a new version of one, merges a certificate into it, and reads its key back
// into `key`. kvc: signed in. keyName, encodedName: the key's two names. keyBits: for RSA only.
//
// exportable: non-zero lets the vault hand out the private key.
// b64Cert: the certSize bytes of the certificate to merge, in DER form (not in Base64). NULL: a throw-away certificate
// is made for the vault's request and merged.
// subject: the policy's subject in X.500 string form, looked at with b64Cert only; NULL or empty: the fixed dummy one.
//
// Non-zero: `key` is filled, and the caller releases it with KVCFreeKVKey. 0: creation or read-back failed, or no
// memory; what `key` held before is then not released here and may be overwritten. A failed merge is logged and does
// not count. Blocks for three exchanges, longer when throttled.
int KVCLowLevelCreateKeyCertificate(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId,
                                    LONG keyBits, KVKey* key, DWORD exportable, const BYTE* b64Cert, DWORD certSize,
                                    const WCHAR* subject);
