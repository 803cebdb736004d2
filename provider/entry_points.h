// The entry points of the function table, in the published order. Each is in the file of its name, KelvaroSignHash in
// sign_hash.cpp; the five that only refuse share not_offered.cpp.
#pragma once

#include "platform/cng_provider.h"
#include "platform/platform.h"

SECURITY_STATUS WINAPI KelvaroOpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroOpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                      DWORD dwLegacyKeySpec, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                                 LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                                 DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroGetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbOutput,
                                                  DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroGetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroSetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty, PBYTE pbInput,
                                                  DWORD cbInput, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroSetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                             PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroFinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroDeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroFreeProvider(NCRYPT_PROV_HANDLE hProvider);
SECURITY_STATUS WINAPI KelvaroFreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey);
SECURITY_STATUS WINAPI KelvaroFreeBuffer(PVOID pvInput);
SECURITY_STATUS WINAPI KelvaroEncrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroDecrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroIsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgOperations, DWORD* pdwAlgCount,
                                             NCryptAlgorithmName** ppAlgList, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope, NCryptKeyName** ppKeyName,
                                       PVOID* ppEnumState, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey, LPCWSTR pszBlobType,
                                        NCryptBufferDesc* pParameterList, NCRYPT_KEY_HANDLE* phKey, PBYTE pbData,
                                        DWORD cbData, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                        NCRYPT_KEY_HANDLE hExportKey, LPCWSTR pszBlobType,
                                        NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
                                        DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroSignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo,
                                       PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature,
                                       DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroVerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo,
                                              PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature,
                                              DWORD cbSignature, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroPromptUser(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, LPCWSTR pszOperation,
                                         DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroNotifyChangeKey(NCRYPT_PROV_HANDLE hProvider, HANDLE* phEvent, DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroSecretAgreement(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hPrivKey,
                                              NCRYPT_KEY_HANDLE hPubKey, NCRYPT_SECRET_HANDLE* phAgreedSecret,
                                              DWORD dwFlags);
SECURITY_STATUS WINAPI KelvaroDeriveKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret,
                                        LPCWSTR pwszKDF, NCryptBufferDesc* pParameterList, PBYTE pbDerivedKey,
                                        DWORD cbDerivedKey, DWORD* pcbResult, ULONG dwFlags);
SECURITY_STATUS WINAPI KelvaroFreeSecret(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret);

extern const NCRYPT_KEY_STORAGE_FUNCTION_TABLE KelvaroFunctionTable;

extern "C" SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                                         NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                                         DWORD dwFlags);
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
