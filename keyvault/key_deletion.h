// The end of a key in the vault.
#pragma once

#include "keyvault/kvc.h"

// Deletes the key with the clear name `keyName`, or the certificate that it belongs to when kvc->certificateMode is
// set, and purges what was deleted when kvc->purgeOnDelete is set. kvc: signed in.
// Non-zero: it is deleted, or was deleted before and is purged now. 0: neither. Blocks for one or two exchanges, longer
// when throttled or while the vault is still busy deleting.
int KVCKeyDelete(KVC* kvc, const WCHAR* keyName);

// The same by the vault's name: of a plain key, and of a certificate.
int KVCLowLevelDeleteKey(KVC* kvc, const WCHAR* encodedName);
int KVCLowLevelDeleteKeyCertificate(KVC* kvc, const WCHAR* encodedName);
