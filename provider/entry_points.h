// The entry points of the function table, in the published order. Each is in the file of its name, KelvaroSignHash in
// sign_hash.cpp; the five that always refuse share not_offered.cpp.
#pragma once

#include <type_traits>
#include <utility>

#include "platform/cng_provider.h"
#include "platform/platform.h"

// The type of the function that a slot of the published table points to.
template <auto kSlot>
using EntryPoint =
    std::remove_pointer_t<std::remove_reference_t<decltype(std::declval<NCRYPT_KEY_STORAGE_FUNCTION_TABLE>().*kSlot)>>;

EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::OpenProvider> KelvaroOpenProvider;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::OpenKey> KelvaroOpenKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::CreatePersistedKey> KelvaroCreatePersistedKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::GetProviderProperty> KelvaroGetProviderProperty;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::GetKeyProperty> KelvaroGetKeyProperty;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::SetProviderProperty> KelvaroSetProviderProperty;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::SetKeyProperty> KelvaroSetKeyProperty;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FinalizeKey> KelvaroFinalizeKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::DeleteKey> KelvaroDeleteKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FreeProvider> KelvaroFreeProvider;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FreeKey> KelvaroFreeKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FreeBuffer> KelvaroFreeBuffer;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Encrypt> KelvaroEncrypt;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::Decrypt> KelvaroDecrypt;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::IsAlgSupported> KelvaroIsAlgSupported;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::EnumAlgorithms> KelvaroEnumAlgorithms;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::EnumKeys> KelvaroEnumKeys;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::ImportKey> KelvaroImportKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::ExportKey> KelvaroExportKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::SignHash> KelvaroSignHash;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::VerifySignature> KelvaroVerifySignature;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::PromptUser> KelvaroPromptUser;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::NotifyChangeKey> KelvaroNotifyChangeKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::SecretAgreement> KelvaroSecretAgreement;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::DeriveKey> KelvaroDeriveKey;
EntryPoint<&NCRYPT_KEY_STORAGE_FUNCTION_TABLE::FreeSecret> KelvaroFreeSecret;

extern const NCRYPT_KEY_STORAGE_FUNCTION_TABLE KelvaroFunctionTable;

extern "C" SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                                         NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                                         DWORD dwFlags);
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
