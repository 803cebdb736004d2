// Reading one key, and listing all keys.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Reads the latest version of the key with the clear name `keyName` into `kvk`, which is zeroed first; the caller
// releases it with KVCFreeKVKey. SupressFailedReadError: non-zero if the key may be missing; failures are then logged
// at level 10. 1 or 0. Blocks for one exchange, longer if throttled.
int KVCGetKey(KVC* kvc, const WCHAR* keyName, KVKey* kvk, int SupressFailedReadError);

// Lists the clear names of all keys. Pass in NULL and 0; the caller releases *names with KVCFreeNames. 1: all pages
// were read. 0 on failure; the names of earlier pages may have been returned even then.
int KVCGetKeys(KVC* kvc, WCHAR*** names, DWORD* count);

// Releases what KVCGetKeys returned.
void KVCFreeNames(WCHAR** names, DWORD count);
