#include <utility>

#include "keyvault/key_creation.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/guards.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroFinalizeKey");

constexpr DWORD kAllowedFlags = NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG | NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG;

// Uses the client's current token, from the key's creation or a later operation. Only an imported key may get here
// before anything has signed in.
SECURITY_STATUS CreateInVault(const KSP_KEY& key, KVKey* kvk)
{
    const KVCCall call(key.kvc ? KVCBeginCall(key.kvc) : nullptr);
    if (key.kvc && !call)
        return NTE_NO_MEMORY;
    if (call)
        KVCTakeHeldToken(call.get());
    if (call && !call->accessToken) {
        const KVCLogOnResult result = KVCLogOn(call.get());
        if (result != KVCLogOnResult::Ready)
            return result == KVCLogOnResult::NoMemory ? NTE_NO_MEMORY : NTE_FAIL;
    }
    // Even a refused length is sent to the vault.
    if (!KVCCreateKey(call.get(), key.pszKeyName, key.pszAlgName, static_cast<LONG>(key.dwBitLength), kvk,
                      key.dwExportPolicy))
        return NTE_FAIL;
    return ERROR_SUCCESS;
}

// Lets one thread at a time create the key. For the others it counts as finalized already.
SECURITY_STATUS Claim(KSP_KEY* key, DWORD dwFlags)
{
    const ExclusiveLock lock(&key->lock);
    if (key->finalizing || key->fFinalized == 1)
        return NTE_INVALID_HANDLE;
    if ((dwFlags & ~kAllowedFlags) != 0)
        return NTE_BAD_FLAGS;
    if ((dwFlags & NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG) != 0)
        return NTE_NOT_SUPPORTED;
    key->finalizing = true;
    return ERROR_SUCCESS;
}

// Ends the claim. A key that is finalized now takes over the description.
void Settle(KSP_KEY* key, bool finalized, KVKeyOwner* made)
{
    const ExclusiveLock lock(&key->lock);
    key->finalizing = false;
    if (finalized) {
        std::swap(key->kvk, made->key);
        key->fFinalized = 1;
    }
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroFinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    SECURITY_STATUS status = Claim(key, dwFlags);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);
    KVKeyOwner made;
    if (key->pszKeyName)
        status = CreateInVault(*key, &made.key);
    Settle(key, status == ERROR_SUCCESS, &made);
    return Finish(status, kEntryPoint);
}
