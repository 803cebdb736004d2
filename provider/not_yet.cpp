// Creation, finalization, deletion and import are not offered yet.
#include "provider/entry_points.h"
#include "provider/provider.h"

SECURITY_STATUS WINAPI KelvaroCreatePersistedKey(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE* /*phKey*/,
                                                 LPCWSTR /*pszAlgId*/, LPCWSTR /*pszKeyName*/,
                                                 DWORD /*dwLegacyKeySpec*/, DWORD /*dwFlags*/)
{
    return Fail(NTE_NOT_SUPPORTED, TEXT("KelvaroCreatePersistedKey"));
}

SECURITY_STATUS WINAPI KelvaroFinalizeKey(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE /*hKey*/,
                                          DWORD /*dwFlags*/)
{
    return Fail(NTE_NOT_SUPPORTED, TEXT("KelvaroFinalizeKey"));
}

SECURITY_STATUS WINAPI KelvaroDeleteKey(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE /*hKey*/, DWORD /*dwFlags*/)
{
    return Fail(NTE_NOT_SUPPORTED, TEXT("KelvaroDeleteKey"));
}

SECURITY_STATUS WINAPI KelvaroImportKey(NCRYPT_PROV_HANDLE /*hProvider*/, NCRYPT_KEY_HANDLE /*hImportKey*/,
                                        LPCWSTR /*pszBlobType*/, NCryptBufferDesc* /*pParameterList*/,
                                        NCRYPT_KEY_HANDLE* /*phKey*/, PBYTE /*pbData*/, DWORD /*cbData*/,
                                        DWORD /*dwFlags*/)
{
    return Fail(NTE_NOT_SUPPORTED, TEXT("KelvaroImportKey"));
}
