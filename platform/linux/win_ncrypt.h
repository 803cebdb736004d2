// The client's side of the platform's own key storage provider, for the Linux build. It makes RSA keys that exist
// only in this process. Unlike everything else here, these calls return a status and don't set the last error.
#pragma once

#include "platform/linux/win_cng.h"

#define MS_KEY_STORAGE_PROVIDER u"Microsoft Software Key Storage Provider"

using HCRYPTPROV_OR_NCRYPT_KEY_HANDLE = ULONG_PTR;

// NTE_BAD_KEYSET for another provider's name; NULL means this one.
SECURITY_STATUS WINAPI NCryptOpenStorageProvider(NCRYPT_PROV_HANDLE* provider, LPCWSTR name, DWORD flags);

// The key is made by NCryptFinalizeKey. NTE_NOT_SUPPORTED for a key with a name and for anything but RSA.
SECURITY_STATUS WINAPI NCryptCreatePersistedKey(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE* key, LPCWSTR algorithm,
                                                LPCWSTR name, DWORD legacyKeySpec, DWORD flags);

// Only "Length", 4 bytes, of a key that is not finalized: 512 to 16384 bits in steps of 64.
SECURITY_STATUS WINAPI NCryptSetProperty(NCRYPT_HANDLE object, LPCWSTR property, PBYTE input, DWORD inputSize,
                                         DWORD flags);

// Makes the key, 2048 bits unless set otherwise. Slow, but doesn't block users of other keys.
SECURITY_STATUS WINAPI NCryptFinalizeKey(NCRYPT_KEY_HANDLE key, DWORD flags);

// Frees a provider or a key. A key outlives the provider that made it.
SECURITY_STATUS WINAPI NCryptFreeObject(NCRYPT_HANDLE object);
