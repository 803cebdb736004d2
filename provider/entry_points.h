// The entry points of the function table, in the published order. Each is in the file of its name, KelvaroSignHash in
// sign_hash.cpp; the five that always refuse share not_offered.cpp.
#pragma once

#include <type_traits>

#include "platform/cng_provider.h"
#include "platform/platform.h"

// Declares a function by the published type of its slot, which is a pointer.
template <typename SlotType>
using EntryPoint = std::remove_pointer_t<SlotType>;

EntryPoint<NCryptOpenStorageProviderFn> KelvaroOpenProvider;
EntryPoint<NCryptOpenKeyFn> KelvaroOpenKey;
EntryPoint<NCryptCreatePersistedKeyFn> KelvaroCreatePersistedKey;
EntryPoint<NCryptGetProviderPropertyFn> KelvaroGetProviderProperty;
EntryPoint<NCryptGetKeyPropertyFn> KelvaroGetKeyProperty;
EntryPoint<NCryptSetProviderPropertyFn> KelvaroSetProviderProperty;
EntryPoint<NCryptSetKeyPropertyFn> KelvaroSetKeyProperty;
EntryPoint<NCryptFinalizeKeyFn> KelvaroFinalizeKey;
EntryPoint<NCryptDeleteKeyFn> KelvaroDeleteKey;
EntryPoint<NCryptFreeProviderFn> KelvaroFreeProvider;
EntryPoint<NCryptFreeKeyFn> KelvaroFreeKey;
EntryPoint<NCryptFreeBufferFn> KelvaroFreeBuffer;
EntryPoint<NCryptEncryptFn> KelvaroEncrypt;
EntryPoint<NCryptDecryptFn> KelvaroDecrypt;
EntryPoint<NCryptIsAlgSupportedFn> KelvaroIsAlgSupported;
EntryPoint<NCryptEnumAlgorithmsFn> KelvaroEnumAlgorithms;
EntryPoint<NCryptEnumKeysFn> KelvaroEnumKeys;
EntryPoint<NCryptImportKeyFn> KelvaroImportKey;
EntryPoint<NCryptExportKeyFn> KelvaroExportKey;
EntryPoint<NCryptSignHashFn> KelvaroSignHash;
EntryPoint<NCryptVerifySignatureFn> KelvaroVerifySignature;
EntryPoint<NCryptPromptUserFn> KelvaroPromptUser;
EntryPoint<NCryptNotifyChangeKeyFn> KelvaroNotifyChangeKey;
EntryPoint<NCryptSecretAgreementFn> KelvaroSecretAgreement;
EntryPoint<NCryptDeriveKeyFn> KelvaroDeriveKey;
EntryPoint<NCryptFreeSecretFn> KelvaroFreeSecret;

extern const NCRYPT_KEY_STORAGE_FUNCTION_TABLE KelvaroFunctionTable;

extern "C" SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                                         NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                                         DWORD dwFlags);
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
