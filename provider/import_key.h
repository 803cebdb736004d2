// Key import, by the type of the blob.
#pragma once

#include "provider/imported_key.h"

// *key is set only on success, and owned by the caller; a failure leaves nothing behind. ImportPublicBlob always fails,
// and ImportPrivateBlob fails without NCRYPT_DO_NOT_FINALIZE_FLAG. The other two finalize the key unless that flag is
// set; a key with a name is then created in the vault, which blocks for that exchange.
SECURITY_STATUS ImportPublicBlob(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportPrivateBlob(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportEnvelopedKey(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportPkcs8Key(const ImportRequest& request, KeyPtr* key);
