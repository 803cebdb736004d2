#include "provider/entry_points.h"
#include "provider/vault_transform.h"
#include "support/log.h"

SECURITY_STATUS WINAPI KelvaroEncrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* /*pPaddingInfo*/, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags)
{
    constexpr WCHAR kEntryPoint[] = TEXT("KelvaroEncrypt");
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (key->fFinalized == 0)
        return FailStatus(NTE_BAD_KEY_STATE, kEntryPoint);
    if (!pbInput || cbInput == 0 || !pcbResult)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kTransformFlags) != 0 || (dwFlags & NCRYPT_NO_PADDING_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);

    const VaultTransform transform = {TEXT("encrypt"), TEXT("KelvaroEncrypt Authenticate Failed "), pbInput, cbInput,
                                      dwFlags};
    return Finish(TransformInVault(*provider, *key, transform, {pbOutput, cbOutput, pcbResult}), kEntryPoint);
}
