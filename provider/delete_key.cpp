#include "keyvault/key_deletion.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/vault_call.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroDeleteKey");

SECURITY_STATUS DeleteInVault(const KSP_PROVIDER& provider, const KSP_KEY& key)
{
    KVCCall call;
    const SECURITY_STATUS status = BeginVaultCall(ProviderClient(&provider, key.fMachineKey),
                                                  TEXT("KelvaroDeleteKey Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return status;
    return KVCKeyDelete(call.get(), key.pszKeyName) ? ERROR_SUCCESS : NTE_FAIL;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroDeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if ((dwFlags & ~static_cast<DWORD>(NCRYPT_SILENT_FLAG)) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    const SECURITY_STATUS status = DeleteInVault(*provider, *key);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);
    LogLine(TEXT("KelvaroDeleteKey Key Deleted - now free the storage"), LOG_ENTRY_LEVEL);
    return KelvaroFreeKey(hProvider, hKey);
}
