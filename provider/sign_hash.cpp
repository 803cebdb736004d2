#include <algorithm>

#include "keyvault/crypto_op.h"
#include "keyvault/key_algorithms.h"
#include "platform/find_row.h"
#include "provider/answers.h"
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

constexpr DWORD kUnknownSignature = 512;

// The size reported to a host, an upper bound: every curve reports the largest curve's.
DWORD SignatureSizeBound(const KVKey& kvk)
{
    if (!kvk.isEC)
        return kvk.n_siz != 0 ? kvk.n_siz : kUnknownSignature;
    DWORD largest = 0;
    bool isKnown = false;
    for (const Curve& curve : kCurves) {
        largest = std::max(largest, 2 * curve.cbCoordinate);
        isKnown |= kvk.x_siz == curve.cbCoordinate;
    }
    return isKnown ? largest : kUnknownSignature;
}

bool IsCurveAlgName(const WCHAR* algName)
{
    return FindRow(kCurves, [name = View(algName)](const Curve& curve) {
        return TextEqualNoCase(name, View(curve.ecdh)) || TextEqualNoCase(name, View(curve.ecdsa));
    });
}

// Only a hash that is sent unchanged needs an algorithm name that the provider knows.
SECURITY_STATUS ChooseCurve(const KSP_KEY& key, const HostHash& hash, SignatureRequest* request)
{
    const SECURITY_STATUS status = ChooseCurveSignature(kTexts, key.pszAlgName, hash, request);
    if (status != ERROR_SUCCESS || request->reshaped || IsCurveAlgName(key.pszAlgName))
        return status;
    LogString(TEXT("KelvaroSignHash Bad Alg"), key.pszAlgName, LOG_ERROR_LEVEL);
    return NTE_INVALID_PARAMETER;
}

SECURITY_STATUS Choose(const KSP_KEY& key, const HostHash& hash, SignatureRequest* request)
{
    if (!key.kvk.isEC && (hash.dwFlags & kSignaturePaddingFlags) != 0)
        return ChooseRsaSignature(kTexts, hash, request);
    if (key.kvk.isEC && hash.dwFlags == 0)
        return ChooseCurve(key, hash, request);
    LogNumber(kEntryPoint, TEXT("Bad Flag"), static_cast<LONG>(hash.dwFlags), LOG_ERROR_LEVEL);
    return NTE_INVALID_PARAMETER;
}

SECURITY_STATUS Sign(const KSP_PROVIDER& provider, const KSP_KEY& key, const HostHash& hash,
                     const HostOutput& signature)
{
    LogNumber(kEntryPoint, TEXT("dwFlags"), static_cast<LONG>(hash.dwFlags), LOG_STEP_LEVEL);
    LogNumber(kEntryPoint, key.kvk.isEC ? TEXT("ECC cbHashValue") : TEXT("RSA cbHashValue"),
              static_cast<LONG>(hash.size), LOG_STEP_LEVEL);
    SignatureRequest request;
    SECURITY_STATUS status = Choose(key, hash, &request);
    if (status != ERROR_SUCCESS)
        return status;
    LogLine(TEXT("KelvaroSignHash pbSignature is NOT NULL"), LOG_STEP_LEVEL);

    KVCCall call;
    status =
        BeginVaultCall(ProviderClient(&provider, key.fMachineKey), TEXT("KelvaroSignHash Authenticate Failed "), &call);
    if (status != ERROR_SUCCESS)
        return status;
    LogString(TEXT("KelvaroSignHash algId and Data"), request.alg, LOG_DETAIL_LEVEL);
    *signature.cbResult = signature.size;
    return KVCCryptoOp(call.get(), TEXT("sign"), key.kvk.keyName, key.kvk.version, 0, request.alg, request.digest,
                       request.cbDigest, signature.bytes, signature.cbResult);
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
        return FailStatus(NTE_INVALID_HANDLE, kEntryPoint);
    if (!pcbResult)
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    if ((dwFlags & ~kSignatureFlags) != 0)
        return FailStatus(NTE_BAD_FLAGS, kEntryPoint);
    if (key->fFinalized == 0)
        return FailStatus(NTE_BAD_KEY_STATE, kEntryPoint);
    if ((key->dwKeyUsage & NCRYPT_ALLOW_SIGNING_FLAG) == 0)
        return FailStatus(NTE_PERM, kEntryPoint);

    if (!pbSignature) {
        LogLine(TEXT("KelvaroSignHash pbSignature is NULL - return kvk.n_siz bytes"), LOG_STEP_LEVEL);
        *pcbResult = SignatureSizeBound(key->kvk);
        return ERROR_SUCCESS;
    }
    if (!pbHashValue) {
        LogLine(TEXT("KelvaroSignHash pbHashValue is NULL"), LOG_ERROR_LEVEL);
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    }
    if (cbHashValue == 0) {
        LogLine(TEXT("KelvaroSignHash cbHashValue is 0"), LOG_ERROR_LEVEL);
        return FailStatus(NTE_INVALID_PARAMETER, kEntryPoint);
    }
    const HostHash hash = {pPaddingInfo, dwFlags, pbHashValue, cbHashValue};
    return Finish(Sign(*provider, *key, hash, {pbSignature, cbSignature, pcbResult}), kEntryPoint);
}
