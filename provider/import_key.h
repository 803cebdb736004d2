// Key import: the material is checked, kept in the new key object in protected form, and never sent anywhere.
#pragma once

#include "provider/key_object.h"
#include "provider/provider.h"

// What a host asked for. All of it is borrowed for the length of the call.
struct ImportRequest {
    const KSP_PROVIDER* provider;
    const WCHAR* blobType;
    const NCryptBufferDesc* parameters;  // may be NULL
    const BYTE* data;                    // cbData bytes of any alignment, at least one
    DWORD cbData;
    DWORD flags;

    NCRYPT_PROV_HANDLE hProvider() const { return reinterpret_cast<NCRYPT_PROV_HANDLE>(provider); }
};

// One for each kind of blob. *key is set on success only and is the caller's then; a failure leaves nothing behind.
// The last two finalize unless NCRYPT_DO_NOT_FINALIZE_FLAG stands in the way, and a key with a name is then made in the
// vault, which blocks for that exchange.
SECURITY_STATUS ImportPublicBlob(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportPrivateBlob(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportEnvelopedKey(const ImportRequest& request, KeyPtr* key);
SECURITY_STATUS ImportPkcs8Key(const ImportRequest& request, KeyPtr* key);

// A pending RSA key with the client of its scope. name: may be NULL. The status of CreateNewKeyObject.
SECURITY_STATUS MakeImportedKey(const KSP_PROVIDER* provider, const WCHAR* name, DWORD machineFlag, KeyPtr* key);

// Tests the blob and keeps it in the key. NTE_BAD_KEY from the test, else the status of ProtectPrivateBlob.
SECURITY_STATUS KeepImportedBlob(KSP_KEY* key, const BYTE* blob, DWORD cbBlob, const WCHAR* blobType);

// KelvaroFinalizeKey on a key that the host does not have yet, unless the request forbids it.
SECURITY_STATUS FinalizeImportedKey(const ImportRequest& request, KSP_KEY* key, DWORD flags);
