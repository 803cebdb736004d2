#include "keyvault/crypto_op.h"
#include "provider/entry_points.h"
#include "provider/key_object.h"
#include "provider/provider.h"
#include "provider/signature_rules.h"
#include "provider/vault_call.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroSignHash");

constexpr SignatureTexts kTexts = {
    kEntryPoint,
    TEXT("KelvaroSignHash pPaddingInfo or pszAlgId NULL"),
    TEXT("KelvaroSignHash pPaddingInfo NULL"),
    TEXT("KelvaroSignHash Bad Hash Algorithm"),
    TEXT("KelvaroSignHash Resize Hash"),
    TEXT("KelvaroSignHash Resized the Hash"),
};

constexpr DWORD kLargestCurveSignature = 132;  // P-521; the answer for every curve is an upper bound
constexpr DWORD kUnknownSignature = 512;

constexpr const WCHAR* kCurveAlgNames[] = {
    TEXT("ECDH_P256"), TEXT("ECDH_P384"), TEXT("ECDH_P521"), TEXT("ECDSA_P256"), TEXT("ECDSA_P384"), TEXT("ECDSA_P521"),
};

DWORD SignatureSizeBound(const KVKey& kvk)
{
    if (!kvk.isEC)
        return kvk.n_siz != 0 ? kvk.n_siz : kUnknownSignature;
    const bool knownCurve = kvk.x_siz == 32 || kvk.x_siz == 48 || kvk.x_siz == 66;
    return knownCurve ? kLargestCurveSignature : kUnknownSignature;
}

bool IsCurveAlgName(const WCHAR* algName)
{
    for (const WCHAR* name : kCurveAlgNames) {
        if (TextEqualNoCase(View(algName), View(name)))
            return true;
    }
    return false;
}

// Only a hash that went unchanged needs a name that the provider knows.
SECURITY_STATUS ChooseCurve(const KSP_KEY& key, BYTE* hash, DWORD cbHash, SignatureRequest* request)
{
    const SECURITY_STATUS status = ChooseCurveSignature(kTexts, key.pszAlgName, hash, cbHash, request);
    if (status != ERROR_SUCCESS || request->digest != hash || IsCurveAlgName(key.pszAlgName))
        return status;
    LogString(TEXT("KelvaroSignHash Bad Alg"), key.pszAlgName, LOG_ERROR_LEVEL);
    return NTE_INVALID_PARAMETER;
}

SECURITY_STATUS Choose(const KSP_KEY& key, const void* paddingInfo, DWORD dwFlags, BYTE* hash, DWORD cbHash,
                       SignatureRequest* request)
{
    if (!key.kvk.isEC && (dwFlags & kSignaturePaddingFlags) != 0)
        return ChooseRsaSignature(kTexts, paddingInfo, dwFlags, hash, cbHash, request);
    if (key.kvk.isEC && dwFlags == 0)
        return ChooseCurve(key, hash, cbHash, request);
    LogNumber(kEntryPoint, TEXT("Bad Flag"), static_cast<LONG>(dwFlags), LOG_ERROR_LEVEL);
    return NTE_INVALID_PARAMETER;
}

void LogArguments(const KSP_KEY& key, DWORD dwFlags, DWORD cbHash)
{
    LogNumber(kEntryPoint, TEXT("dwFlags"), static_cast<LONG>(dwFlags), LOG_STEP_LEVEL);
    LogNumber(kEntryPoint, key.kvk.isEC ? TEXT("ECC cbHashValue") : TEXT("RSA cbHashValue"), static_cast<LONG>(cbHash),
              LOG_STEP_LEVEL);
}

// A hash that is there, from the choice of the algorithm to the signature.
SECURITY_STATUS SignPresentHash(const KSP_PROVIDER& provider, const KSP_KEY& key, const void* paddingInfo, BYTE* hash,
                                DWORD cbHash, BYTE* signature, DWORD cbSignature, DWORD* pcbResult, DWORD dwFlags)
{
    LogArguments(key, dwFlags, cbHash);
    SignatureRequest request;
    SECURITY_STATUS status = Choose(key, paddingInfo, dwFlags, hash, cbHash, &request);
    if (status != ERROR_SUCCESS)
        return status;
    LogLine(TEXT("KelvaroSignHash pbSignature is NOT NULL"), LOG_STEP_LEVEL);

    KVCCall call;
    status =
        BeginVaultCall(ProviderClient(&provider, key.fMachineKey), TEXT("KelvaroSignHash Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return status;
    LogString(TEXT("KelvaroSignHash algId and Data"), request.alg, LOG_DETAIL_LEVEL);
    *pcbResult = cbSignature;
    return KVCCryptoOp(call.get(), TEXT("sign"), key.kvk.keyName, key.kvk.version, 0, request.alg, request.digest,
                       request.cbDigest, signature, pcbResult);
}

}  // namespace

SECURITY_STATUS WINAPI KelvaroSignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, VOID* pPaddingInfo,
                                       PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature,
                                       DWORD* pcbResult, DWORD dwFlags)
{
    LogLine(kEntryPoint, LOG_ENTRY_LEVEL);
    const KSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    const KSP_KEY* key = KeyFromHandles(hProvider, hKey);
    if (!key)
        return Fail(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pcbResult)
        return Fail(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kSignatureFlags) != 0)
        return Fail(NTE_BAD_FLAGS, kEntryPoint);
    if (key->fFinalized == 0)
        return Fail(NTE_BAD_KEY_STATE, kEntryPoint);
    if ((key->dwKeyUsage & NCRYPT_ALLOW_SIGNING_FLAG) == 0)
        return Fail(NTE_PERM, kEntryPoint);

    if (!pbSignature) {
        LogLine(TEXT("KelvaroSignHash pbSignature is NULL - return kvk.n_siz bytes"), LOG_STEP_LEVEL);
        *pcbResult = SignatureSizeBound(key->kvk);
        return ERROR_SUCCESS;
    }
    if (!pbHashValue) {
        LogLine(TEXT("KelvaroSignHash pbHashValue is NULL"), LOG_ERROR_LEVEL);
        return Fail(NTE_INVALID_PARAMETER, kEntryPoint);
    }
    if (cbHashValue == 0) {
        LogLine(TEXT("KelvaroSignHash cbHashValue is 0"), LOG_ERROR_LEVEL);
        return Fail(NTE_INVALID_PARAMETER, kEntryPoint);
    }
    const SECURITY_STATUS status = SignPresentHash(*provider, *key, pPaddingInfo, pbHashValue, cbHashValue, pbSignature,
                                                   cbSignature, pcbResult, dwFlags);
    return status == ERROR_SUCCESS ? status : Fail(status, kEntryPoint);
}
