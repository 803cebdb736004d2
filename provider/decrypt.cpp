#include "provider/entry_points.h"
#include "provider/vault_transform.h"
#include "support/log.h"

// Unlike encryption it doesn't test the key's state, and the key's usage comes between the two tests of the flags.
SECURITY_STATUS WINAPI KelvaroDecrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                      DWORD cbInput, VOID* /*pPaddingInfo*/, PBYTE pbOutput, DWORD cbOutput,
                                      DWORD* pcbResult, DWORD dwFlags)
{
    constexpr WCHAR kEntryPoint[] = TEXT("KelvaroDecrypt");
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pbInput || cbInput == 0 || !pcbResult)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kTransformFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if ((key->dwKeyUsage & NCRYPT_ALLOW_DECRYPT_FLAG) == 0)
        return FailStatus(NTE_PERM, kEntryPoint);
    if ((dwFlags & NCRYPT_NO_PADDING_FLAG) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);

    const VaultTransform transform = {TEXT("decrypt"), TEXT("KelvaroDecrypt Authenticate Failed "), pbInput, cbInput,
                                      dwFlags};
    return Finish(TransformInVault(*provider, *key, transform, {pbOutput, cbOutput, pcbResult}), kEntryPoint);
}
