#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/log.h"

namespace {
constexpr WCHAR kEntryPoint[] = TEXT("KelvaroFreeKey");
}

SECURITY_STATUS WINAPI KelvaroFreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandle(hKey);
    if (!ProviderFromHandle(hProvider) || !key)
        return Fail(NTE_INVALID_HANDLE, kEntryPoint);

    LogString(kEntryPoint, key->pszKeyName ? key->pszKeyName : TEXT("NULL Name"), LOG_RELEASE_LEVEL);

    KVCFreeKVKey(&key->kvk);
    const SECURITY_STATUS status = DeleteKeyObject(key);
    return status == ERROR_SUCCESS ? status : Fail(status, kEntryPoint);
}
