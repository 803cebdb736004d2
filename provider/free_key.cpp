#include "certsync/machine_to_vault.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroFreeKey");

// Best effort: the host doesn't see the outcome.
void PublishCertificateOf(KSP_KEY* key)
{
    PublishedKey published = {};
    published.name = key->pszKeyName;
    published.algName = key->pszAlgName;
    published.bitLength = key->dwBitLength;
    published.exportPolicy = key->dwExportPolicy;
    published.isMachine = key->fMachineKey != 0;
    published.kvk = &key->kvk;
    PublishKeyCertificate(key->kvc, published);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroFreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);

    LogString(kEntryPoint, key->pszKeyName ? key->pszKeyName : TEXT("NULL Name"), LOG_RELEASE_LEVEL);
    if (key->pszKeyName && key->publishCert)
        PublishCertificateOf(key);

    KVCFreeKVKey(&key->kvk);
    return Finish(DeleteKeyObject(key), kEntryPoint);
}
