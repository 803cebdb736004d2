#include "keyvault/key_algorithms.h"
#include "provider/entry_points.h"
#include "provider/provider.h"
#include "support/log.h"

SECURITY_STATUS WINAPI KelvaroIsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags)
{
    constexpr WCHAR kEntryPoint[] = TEXT("KelvaroIsAlgSupported");
    LogString(kEntryPoint, pszAlgId, LOG_ENTRY_LEVEL);
    if (!ProviderFromHandle(hProvider))
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pszAlgId)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~NCRYPT_SILENT_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if (!IsKeyAlgorithm(pszAlgId))
        return FailStatus(NTE_NOT_SUPPORTED, kEntryPoint);
    return ERROR_SUCCESS;
}
