#include "keyvault/crypto_op.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/signature_rules.h"
#include "provider/vault_call.h"
#include "support/log.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroVerifySignature");

constexpr SignatureTexts kTexts = {
    kEntryPoint,
    TEXT("KelvaroVerifySignature pPaddingInfo or pszAlgId NULL"),
    TEXT("KelvaroVerifySignature pPaddingInfo NULL"),
    TEXT("KelvaroVerifySignature Bad Hash Algorithm"),
    TEXT("KelvaroVerifySignature Resize Hash"),
    TEXT("KelvaroVerifySignature Resized the Hash"),
};

// Unlike in signing, a curve key accepts the silent flag, and its algorithm name needn't be known.
SECURITY_STATUS Choose(const KSP_KEY& key, const HostHash& hash, SignatureRequest* request)
{
    const bool padded = (hash.dwFlags & kSignaturePaddingFlags) != 0;
    if (key.kvk.isEC && !padded)
        return ChooseCurveSignature(kTexts, key.pszAlgName, hash, request);
    if (!key.kvk.isEC && padded)
        return ChooseRsaSignature(kTexts, hash, request);
    LogLine(TEXT("KelvaroVerifySignature Non ECC but not BCRYPT_PAD_PKCS1 or BCRYPT_PAD_PSS"), LOG_ERROR_LEVEL);
    return NTE_NOT_SUPPORTED;
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroVerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo,
                                              PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature,
                                              DWORD cbSignature, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (key->fFinalized == 0)
        return FailStatus(NTE_BAD_KEY_STATE, kEntryPoint);
    if (!pbHashValue || cbHashValue == 0)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kSignatureFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);

    SignatureRequest request;
    SECURITY_STATUS status = Choose(*key, {pPaddingInfo, dwFlags, pbHashValue, cbHashValue}, &request);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);

    KVCCall call;
    status = BeginVaultCall(ProviderClient(provider, key->fMachineKey),
                            TEXT("KelvaroVerifySignature Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return FailStatus(status, kEntryPoint);
    DWORD cbDigest = request.cbDigest;
    status = KVCCryptoOp(call.get(), TEXT("verify"), key->kvk.keyName, key->kvk.version, 1, request.alg, pbSignature,
                         cbSignature, request.digest, &cbDigest);
    return status < 0 ? FailStatus(status, kEntryPoint) : ERROR_SUCCESS;
}
