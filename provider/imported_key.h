// What the importers of all blob types do with a key: the material is checked and kept in the new key object,
// encrypted; it is never sent anywhere.
#pragma once

#include "provider/key_object.h"
#include "provider/provider.h"

// What a host asked for, borrowed for the call.
struct ImportRequest {
    const KSP_PROVIDER* provider;
    const WCHAR* blobType;
    const NCryptBufferDesc* parameters;  // may be NULL
    const BYTE* data;                    // cbData bytes of any alignment, at least one
    DWORD cbData;
    DWORD flags;
};

// A pending RSA key with the client of its scope. name: may be NULL. The status of CreateNewKeyObject.
SECURITY_STATUS MakeImportedKey(const KSP_PROVIDER* provider, const WCHAR* name, DWORD machineFlag, KeyPtr* key);

// KelvaroFinalizeKey on a key that the host does not have yet, unless the request forbids it.
SECURITY_STATUS FinalizeImportedKey(const ImportRequest& request, KSP_KEY* key, DWORD flags);
