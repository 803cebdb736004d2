// Private RSA blobs in CNG's own form, which a host imports into a key object. They are never sent anywhere.
#pragma once

#include "provider/key_object.h"

// Checks a blob of cbBlob bytes and, if it is valid, sets pKey->dwBitLength. 0 or NTE_BAD_KEY.
SECURITY_STATUS CheckRsaBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob);

// Stores a blob that has passed CheckRsaBlob in the key object, encrypted, replacing an earlier one, and sets
// pKey->dwBitLength with it. pszBlobType: "RSAPRIVATEBLOB", "RSAFULLPRIVATEBLOB" or "PRIVATEBLOB" (kept as
// "RSAPRIVATEBLOB"). 0; NTE_INTERNAL_ERROR if the platform refuses; NTE_NO_MEMORY.
SECURITY_STATUS ProtectPrivateBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob, const WCHAR* pszBlobType);

// CheckRsaBlob, then ProtectPrivateBlob.
SECURITY_STATUS KeepPrivateBlob(KSP_KEY* pKey, const BYTE* pbBlob, DWORD cbBlob, const WCHAR* pszBlobType);
