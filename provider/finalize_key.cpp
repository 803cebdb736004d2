#include "keyvault/key_creation.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroFinalizeKey");

constexpr DWORD kAllowedFlags = NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG | NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG;

// Runs on the token that the client holds, from the key's creation or a later operation. An imported key alone may come
// here before anything has signed in.
SECURITY_STATUS CreateInVault(KSP_KEY* key)
{
    const KVCCall call(key->kvc ? KVCBeginCall(key->kvc) : nullptr);
    if (key->kvc && (!call || !KVCTakeHeldToken(call.get())))
        return NTE_NO_MEMORY;
    if (call && !call->accessToken && !KVCAuthenticate(call.get()))
        return NTE_FAIL;
    // A length that was refused goes to the vault all the same.
    if (!KVCCreateKey(call.get(), key->pszKeyName, key->pszAlgName, static_cast<LONG>(key->dwBitLength), &key->kvk,
                      key->dwExportPolicy))
        return NTE_FAIL;
    return ERROR_SUCCESS;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroFinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandle(hKey);
    if (!ProviderFromHandle(hProvider) || !key || key->fFinalized == 1)
        return Fail(NTE_INVALID_HANDLE, kEntryPoint);
    if ((dwFlags & ~kAllowedFlags) != 0)
        return Fail(NTE_BAD_FLAGS, kEntryPoint);
    if ((dwFlags & NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG) != 0)
        return Fail(NTE_NOT_SUPPORTED, kEntryPoint);
    if (key->pszKeyName) {
        const SECURITY_STATUS status = CreateInVault(key);
        if (status != ERROR_SUCCESS)
            return Fail(status, kEntryPoint);
    }
    key->fFinalized = 1;
    return ERROR_SUCCESS;
}
