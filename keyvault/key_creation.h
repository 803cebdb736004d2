// Creating keys in the vault.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Creates a key with the clear name `keyName`: as the key of a certificate if kvc->certificateMode is set, else as a
// plain key. kvc: signed in. algId: the key's CNG algorithm name. keyBits: for RSA only. exportable: for certificates
// only.
//
// Non-zero: `key` describes the key; the caller releases it with KVCFreeKVKey. 0: the key wasn't created, or couldn't
// be read back; `key` is undefined. Blocks for one to four exchanges, longer if throttled.
int KVCCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* algId, LONG keyBits, KVKey* key, DWORD exportable);

// The same for a plain key. encodedName: keyName as the vault stores it.
int KVCLowLevelCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId, LONG keyBits,
                         KVKey* key);
