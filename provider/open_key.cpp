#include "certsync/vault_to_machine.h"
#include "keyvault/key_algorithms.h"
#include "keyvault/key_lookup.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/vault_call.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kFailure[] = TEXT("KelvaroOpenKey Error");

// If the record of a curve key names no algorithm, the curve decides.
const WCHAR* AlgNameOf(const KVKey& kvk)
{
    if (!kvk.isEC)
        return BCRYPT_RSA_ALGORITHM;
    if (kvk.AlgID[0] != 0)
        return kvk.AlgID;
    const Curve* curve = CurveNamed(kvk.crv);
    return curve ? curve->ecdh : TEXT("");
}

// The length is that of the modulus, so a curve key has none.
void TakeVaultDescription(KSP_KEY* key)
{
    TextCopy(key->pszAlgName, kAlgIDChars, View(AlgNameOf(key->kvk)));
    key->dwBitLength = 8 * key->kvk.n_siz;
    key->fFinalized = 1;
}

// The first open of a machine key on a provider fetches the vault's new certificates, best effort. The client has
// signed in.
void SyncCertificatesOnce(KSP_PROVIDER* provider, const KSP_KEY& key)
{
    if (!key.fMachineKey || !key.kvc->certificateMode || provider->fCertsSynced.exchange(1))
        return;
    const KVCCall call(KVCBeginCall(key.kvc));
    if (!call)
        return;
    KVCTakeHeldToken(call.get());
    KVCSyncCertsFromKVToMachine(call.get());
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroOpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                      DWORD /*dwLegacyKeySpec*/, DWORD dwFlags)
{
    LogNumber(TEXT("KelvaroOpenKey"), pszKeyName, static_cast<LONG>(dwFlags), LOG_ENTRY_LEVEL);
    KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider)
        return FailStatus(NTE_INVALID_HANDLE, kFailure);
    if (!phKey || !pszKeyName)
        return FailStatus(NTE_INVALID_PARAMETER, kFailure);

    const DWORD machineFlag = dwFlags & NCRYPT_MACHINE_KEY_FLAG;
    KSP_KEY* record = nullptr;
    SECURITY_STATUS status = CreateNewKeyObject(pszKeyName, TEXT(""), &record, machineFlag);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kFailure);
    KeyPtr key(record);
    key->kvc = ProviderClient(provider, machineFlag);
    if (!key->kvc)
        return FailStatus(FailStatus(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenKey pKey->kvc NULL")), kFailure);

    KVCCall call;
    status = BeginVaultCall(key->kvc, TEXT("KelvaroOpenKey Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kFailure);
    SyncCertificatesOnce(provider, *key);
    if (!KVCGetKey(call.get(), pszKeyName, &key->kvk, 1))
        return FailStatus(NTE_NOT_FOUND, kFailure);

    TakeVaultDescription(key.get());
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());  // the host owns it now
    return ERROR_SUCCESS;
}
