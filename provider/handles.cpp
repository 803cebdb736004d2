#include <string.h>

#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/log.h"

namespace {

// Whether `object` begins with the size and the magic word of a record whose fixed part has cbFixed bytes. What a host
// passes in may be shorter than the record and unaligned.
bool HasHeader(const void* object, size_t cbFixed, DWORD magic)
{
    if (!object)
        return false;
    DWORD cbLength;
    memcpy(&cbLength, object, sizeof(cbLength));
    if (cbLength < cbFixed)
        return false;
    DWORD dwMagic;
    memcpy(&dwMagic, static_cast<const BYTE*>(object) + sizeof(cbLength), sizeof(dwMagic));
    return dwMagic == magic;
}

}  // namespace

KSP_PROVIDER* ProviderFromHandle(NCRYPT_PROV_HANDLE hProvider)
{
    void* object = reinterpret_cast<void*>(hProvider);
    return HasHeader(object, sizeof(KSP_PROVIDER), KSP_PROVIDER_MAGIC) ? static_cast<KSP_PROVIDER*>(object) : nullptr;
}

KSP_KEY* KeyFromHandle(NCRYPT_KEY_HANDLE hKey)
{
    void* object = reinterpret_cast<void*>(hKey);
    return HasHeader(object, sizeof(KSP_KEY), KSP_KEY_MAGIC) ? static_cast<KSP_KEY*>(object) : nullptr;
}

KSP_KEY* KeyFromHandles(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey)
{
    return ProviderFromHandle(hProvider) ? KeyFromHandle(hKey) : nullptr;
}

KVCClient* ProviderClient(const KSP_PROVIDER* provider, DWORD machineFlag)
{
    return machineFlag ? provider->machineKvc : provider->userKvc;
}

SECURITY_STATUS FailStatus(SECURITY_STATUS status, const WCHAR* where)
{
    LogError(where, status, LOG_ERROR_LEVEL);
    return status;
}

SECURITY_STATUS Finish(SECURITY_STATUS status, const WCHAR* where)
{
    return status == ERROR_SUCCESS ? status : FailStatus(status, where);
}
