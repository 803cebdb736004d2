// The provider's side of the key storage interface, as published: what the CNG router calls in a key storage provider.
// mingw-w64 has the host's side only.
#pragma once

#include "platform/platform.h"

// A pointer to one of the provider's functions, whose parameters have these types.
template <typename... Parameters>
using Slot = SECURITY_STATUS(WINAPI*)(Parameters...);

struct NCRYPT_KEY_STORAGE_FUNCTION_TABLE {
    BCRYPT_INTERFACE_VERSION Version;
    Slot<NCRYPT_PROV_HANDLE*, LPCWSTR, DWORD> OpenProvider;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE*, LPCWSTR, DWORD, DWORD> OpenKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE*, LPCWSTR, LPCWSTR, DWORD, DWORD> CreatePersistedKey;
    Slot<NCRYPT_PROV_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD*, DWORD> GetProviderProperty;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD*, DWORD> GetKeyProperty;
    Slot<NCRYPT_PROV_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD> SetProviderProperty;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, PBYTE, DWORD, DWORD> SetKeyProperty;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, DWORD> FinalizeKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, DWORD> DeleteKey;
    Slot<NCRYPT_PROV_HANDLE> FreeProvider;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE> FreeKey;
    Slot<PVOID> FreeBuffer;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, PBYTE, DWORD, VOID*, PBYTE, DWORD, DWORD*, DWORD> Encrypt;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, PBYTE, DWORD, VOID*, PBYTE, DWORD, DWORD*, DWORD> Decrypt;
    Slot<NCRYPT_PROV_HANDLE, LPCWSTR, DWORD> IsAlgSupported;
    Slot<NCRYPT_PROV_HANDLE, DWORD, DWORD*, NCryptAlgorithmName**, DWORD> EnumAlgorithms;
    Slot<NCRYPT_PROV_HANDLE, LPCWSTR, NCryptKeyName**, PVOID*, DWORD> EnumKeys;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, NCryptBufferDesc*, NCRYPT_KEY_HANDLE*, PBYTE, DWORD, DWORD>
        ImportKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, NCryptBufferDesc*, PBYTE, DWORD, DWORD*,
         DWORD>
        ExportKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, VOID*, PBYTE, DWORD, PBYTE, DWORD, DWORD*, DWORD> SignHash;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, VOID*, PBYTE, DWORD, PBYTE, DWORD, DWORD> VerifySignature;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, DWORD> PromptUser;
    Slot<NCRYPT_PROV_HANDLE, HANDLE*, DWORD> NotifyChangeKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_SECRET_HANDLE*, DWORD> SecretAgreement;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE, LPCWSTR, NCryptBufferDesc*, PBYTE, DWORD, DWORD*, ULONG> DeriveKey;
    Slot<NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE> FreeSecret;
};

// The type of the module's one export, "GetKeyStorageInterface". The table belongs to the module.
using GetKeyStorageInterfaceFn = NTSTATUS(WINAPI*)(LPCWSTR pszProviderName,
                                                   NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable, DWORD dwFlags);
