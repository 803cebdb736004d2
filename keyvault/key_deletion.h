// Deleting keys in the vault.
#pragma once

#include "keyvault/kvc.h"

// Deletes the key with the clear name `keyName`, or its certificate if kvc->certificateMode is set, and purges it if
// kvc->purgeOnDelete is set. kvc: signed in.
// Non-zero: deleted, or deleted earlier and purged now. 0: neither. Blocks for one or two exchanges, longer if
// throttled or while the vault is still deleting.
int KVCKeyDelete(KVC* kvc, const WCHAR* keyName);

// The same by the encoded name, for a plain key and for a certificate.
int KVCLowLevelDeleteKey(KVC* kvc, const WCHAR* encodedName);
int KVCLowLevelDeleteKeyCertificate(KVC* kvc, const WCHAR* encodedName);
