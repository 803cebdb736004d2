// Reading one key and listing all.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// Reads the latest version of the key with the clear name `keyName` into `kvk`, which is zeroed here and released by
// the caller with KVCFreeKVKey. SupressFailedReadError: non-zero when a missing key is expected, so that failures go
// out at level 10. 1 or 0. Blocks for one exchange, longer when throttled.
int KVCGetKey(KVC* kvc, const WCHAR* keyName, KVKey* kvk, int SupressFailedReadError);

// Lists the clear names of all keys. *names: a heap array (free) of `count` texts (free each), owned by the caller, who
// passes NULL and 0 in. 1 when the last page was read; 0 on failure, when names of earlier pages may have been handed
// over all the same.
int KVCGetKeys(KVC* kvc, WCHAR*** names, DWORD* count);

// Releases what KVCGetKeys returned.
void KVCFreeNames(WCHAR** names, DWORD count);
