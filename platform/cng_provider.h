// The provider's side of the key storage interface, as published: what the CNG router calls in a key storage provider.
// mingw-w64 has the host's side only.
#pragma once

#include "platform/platform.h"

using NCryptOpenStorageProviderFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName,
                                                             DWORD dwFlags);
using NCryptOpenKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                                 LPCWSTR pszKeyName, DWORD dwLegacyKeySpec, DWORD dwFlags);
using NCryptCreatePersistedKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                                            LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                                            DWORD dwFlags);
using NCryptGetProviderPropertyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                                             PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                                             DWORD dwFlags);
using NCryptGetKeyPropertyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                        LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                                                        DWORD* pcbResult, DWORD dwFlags);
using NCryptSetProviderPropertyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                                             PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
using NCryptSetKeyPropertyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                        LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput,
                                                        DWORD dwFlags);
using NCryptFinalizeKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                     DWORD dwFlags);
using NCryptDeleteKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
using NCryptFreeProviderFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider);
using NCryptFreeKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey);
using NCryptFreeBufferFn = SECURITY_STATUS(WINAPI*)(PVOID pvInput);
using NCryptEncryptFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                 DWORD cbInput, VOID* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                                                 DWORD* pcbResult, DWORD dwFlags);
using NCryptDecryptFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                 DWORD cbInput, VOID* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                                                 DWORD* pcbResult, DWORD dwFlags);
using NCryptIsAlgSupportedFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags);
using NCryptEnumAlgorithmsFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations,
                                                        DWORD* pdwAlgCount, NCryptAlgorithmName** ppAlgList,
                                                        DWORD dwFlags);
using NCryptEnumKeysFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope,
                                                  NCryptKeyName** ppKeyName, PVOID* ppEnumState, DWORD dwFlags);
using NCryptImportKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey,
                                                   LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList,
                                                   NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData, DWORD dwFlags);
using NCryptExportKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                   NCRYPT_KEY_HANDLE hExportKey, LPCWSTR pszBlobType,
                                                   NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
                                                   DWORD* pcbResult, DWORD dwFlags);
using NCryptSignHashFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                  VOID* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                                  PBYTE pbSignature, DWORD cbSignature, DWORD* pcbResult,
                                                  DWORD dwFlags);
using NCryptVerifySignatureFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                         VOID* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                                         PBYTE pbSignature, DWORD cbSignature, DWORD dwFlags);
using NCryptPromptUserFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                                    LPCWSTR pszOperation, DWORD dwFlags);
using NCryptNotifyChangeKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, HANDLE* phEvent, DWORD dwFlags);
using NCryptSecretAgreementFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hPrivKey,
                                                         NCRYPT_KEY_HANDLE hPubKey,
                                                         NCRYPT_SECRET_HANDLE* phAgreedSecret, DWORD dwFlags);
using NCryptDeriveKeyFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret,
                                                   LPCWSTR pwszKDF, NCryptBufferDesc* pParameterList,
                                                   PBYTE pbDerivedKey, DWORD cbDerivedKey, DWORD* pcbResult,
                                                   ULONG dwFlags);
using NCryptFreeSecretFn = SECURITY_STATUS(WINAPI*)(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret);

struct NCRYPT_KEY_STORAGE_FUNCTION_TABLE {
    BCRYPT_INTERFACE_VERSION Version;
    NCryptOpenStorageProviderFn OpenProvider;
    NCryptOpenKeyFn OpenKey;
    NCryptCreatePersistedKeyFn CreatePersistedKey;
    NCryptGetProviderPropertyFn GetProviderProperty;
    NCryptGetKeyPropertyFn GetKeyProperty;
    NCryptSetProviderPropertyFn SetProviderProperty;
    NCryptSetKeyPropertyFn SetKeyProperty;
    NCryptFinalizeKeyFn FinalizeKey;
    NCryptDeleteKeyFn DeleteKey;
    NCryptFreeProviderFn FreeProvider;
    NCryptFreeKeyFn FreeKey;
    NCryptFreeBufferFn FreeBuffer;
    NCryptEncryptFn Encrypt;
    NCryptDecryptFn Decrypt;
    NCryptIsAlgSupportedFn IsAlgSupported;
    NCryptEnumAlgorithmsFn EnumAlgorithms;
    NCryptEnumKeysFn EnumKeys;
    NCryptImportKeyFn ImportKey;
    NCryptExportKeyFn ExportKey;
    NCryptSignHashFn SignHash;
    NCryptVerifySignatureFn VerifySignature;
    NCryptPromptUserFn PromptUser;
    NCryptNotifyChangeKeyFn NotifyChangeKey;
    NCryptSecretAgreementFn SecretAgreement;
    NCryptDeriveKeyFn DeriveKey;
    NCryptFreeSecretFn FreeSecret;
};

// The type of the module's one export, "GetKeyStorageInterface". The table belongs to the module.
using GetKeyStorageInterfaceFn = NTSTATUS(WINAPI*)(LPCWSTR pszProviderName,
                                                   NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable, DWORD dwFlags);
