// New keys in the vault.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Creates a key under the clear name `keyName`: as the key of a certificate when kvc->certificateMode is set, else as a
// plain key. kvc: signed in. algId: the key's CNG algorithm name. keyBits: for RSA only. exportable: for certificates
// only.
//
// Non-zero: `key` describes the key, and the caller releases it with KVCFreeKVKey. 0: no key, or none that could be
// read back; `key` is not meaningful. Blocks for one to four exchanges, longer when throttled.
int KVCCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* algId, LONG keyBits, KVKey* key, DWORD exportable);

// The plain way. encodedName: the vault's form of keyName. Asks for a key in hardware first, and once for one in
// software.
int KVCLowLevelCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId, LONG keyBits,
                         KVKey* key);
