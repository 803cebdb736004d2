#include "provider/entry_points.h"
#include "support/log.h"

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE KelvaroFunctionTable = {
    NCRYPT_KEY_STORAGE_INTERFACE_VERSION,
    KelvaroOpenProvider,
    KelvaroOpenKey,
    KelvaroCreatePersistedKey,
    KelvaroGetProviderProperty,
    KelvaroGetKeyProperty,
    KelvaroSetProviderProperty,
    KelvaroSetKeyProperty,
    KelvaroFinalizeKey,
    KelvaroDeleteKey,
    KelvaroFreeProvider,
    KelvaroFreeKey,
    KelvaroFreeBuffer,
    KelvaroEncrypt,
    KelvaroDecrypt,
    KelvaroIsAlgSupported,
    KelvaroEnumAlgorithms,
    KelvaroEnumKeys,
    KelvaroImportKey,
    KelvaroExportKey,
    KelvaroSignHash,
    KelvaroVerifySignature,
    KelvaroPromptUser,
    KelvaroNotifyChangeKey,
    KelvaroSecretAgreement,
    KelvaroDeriveKey,
    KelvaroFreeSecret,
};

extern "C" SECURITY_STATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                                         NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                                         DWORD /*dwFlags*/)
{
    LogString(TEXT("GetKeyStorageInterface"), pszProviderName, LOG_ENTRY_LEVEL);
    // The published type isn't const, but nothing writes to the table.
    *ppFunctionTable = const_cast<NCRYPT_KEY_STORAGE_FUNCTION_TABLE*>(&KelvaroFunctionTable);
    return ERROR_SUCCESS;
}
