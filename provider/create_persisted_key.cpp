#include "keyvault/key_algorithms.h"
#include "keyvault/key_lookup.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/vault_call.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroCreatePersistedKey");

constexpr DWORD kAllowedFlags = NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG | NCRYPT_OVERWRITE_KEY_FLAG;

// A key that can't be read counts as missing, whatever the reason.
bool KeyExists(KVC* call, const WCHAR* keyName)
{
    KVKeyOwner found;
    return KVCGetKey(call, keyName, &found.key, 1) != 0;
}

// Signs in, since the finalization won't, and checks that the name is free, unless the host overwrites: then it is up
// to the vault to create a new version.
SECURITY_STATUS PrepareVault(KVCClient* client, const WCHAR* keyName, DWORD dwFlags)
{
    KVCCall call;
    const SECURITY_STATUS status =
        BeginVaultCall(client, TEXT("KelvaroCreatePersistedKey Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return status;
    const bool overwrites = (dwFlags & NCRYPT_OVERWRITE_KEY_FLAG) != 0;
    return !overwrites && KeyExists(call.get(), keyName) ? NTE_EXISTS : ERROR_SUCCESS;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                                 LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                                 DWORD dwFlags)
{
    LogStrings(TEXT("KelvaroCreatePersistedKey Name"), pszKeyName, pszAlgId, LOG_ENTRY_LEVEL);
    LogNumber(kEntryPoint, TEXT("dwFlags"), static_cast<LONG>(dwFlags), LOG_STEP_LEVEL);
    LogNumber(kEntryPoint, TEXT("dwLegacyKeySpec"), static_cast<LONG>(dwLegacyKeySpec), LOG_STEP_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!phKey || !pszAlgId)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kAllowedFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if (!IsKeyAlgorithm(pszAlgId)) {
        LogString(TEXT("KelvaroCreatePersistedKey Invalid Algorithm"), pszAlgId, LOG_ERROR_LEVEL);
        return FailStatus(NTE_NOT_SUPPORTED, kEntryPoint);
    }

    const DWORD machineFlag = dwFlags & NCRYPT_MACHINE_KEY_FLAG;
    KSP_KEY* record = nullptr;
    SECURITY_STATUS status = CreateNewKeyObject(pszKeyName, pszAlgId, &record, machineFlag);
    if (status != ERROR_SUCCESS) {
        LogLine(TEXT("KelvaroCreatePersistedKey CreateNewKeyObject Failed"), LOG_ERROR_LEVEL);
        return FailStatus(status, kEntryPoint);
    }
    KeyPtr key(record);
    key->kvc = ProviderClient(provider, machineFlag);
    if (pszKeyName) {
        status = PrepareVault(key->kvc, pszKeyName, dwFlags);
        if (status != ERROR_SUCCESS)
            return FailStatus(status, kEntryPoint);
    }
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());  // the host owns it now
    return ERROR_SUCCESS;
}
