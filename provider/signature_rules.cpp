#include "provider/signature_rules.h"

#include <string.h>

#include "keyvault/key_algorithms.h"
#include "platform/find_row.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr DWORD kSha1Size = 20;
constexpr DWORD kAnySize = 0;

// PKCS#1's DigestInfo in DER, up to the hash itself.
constexpr BYTE kSha1DigestInfo[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                                    0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
static_assert(sizeof(kSha1DigestInfo) + kSha1Size == 35 && 35 <= kHashWorkSize,
              "the DigestInfo is built in the work buffer");

struct RsaRule {
    DWORD padding;
    const WCHAR* hashName;
    DWORD cbHash;  // kAnySize: left to the vault
    const WCHAR* alg;
    bool digestInfo;
};
constexpr RsaRule kRsaRules[] = {
    {BCRYPT_PAD_PKCS1, TEXT("SHA1"), kSha1Size, TEXT("RSNULL"), true},
    {BCRYPT_PAD_PKCS1, TEXT("SHA256"), kAnySize, TEXT("RS256"), false},
    {BCRYPT_PAD_PKCS1, TEXT("SHA384"), kAnySize, TEXT("RS384"), false},
    {BCRYPT_PAD_PKCS1, TEXT("SHA512"), kAnySize, TEXT("RS512"), false},
    {BCRYPT_PAD_PSS, TEXT("SHA256"), kAnySize, TEXT("PS256"), false},
    {BCRYPT_PAD_PSS, TEXT("SHA384"), kAnySize, TEXT("PS384"), false},
    {BCRYPT_PAD_PSS, TEXT("SHA512"), kAnySize, TEXT("PS512"), false},
};

const RsaRule* FindRsaRule(DWORD padding, const WCHAR* hashName, DWORD cbHash)
{
    return FindRow(kRsaRules, [=](const RsaRule& rule) {
        return rule.padding == padding && TextEqualNoCase(View(hashName), View(rule.hashName)) &&
               (rule.cbHash == kAnySize || rule.cbHash == cbHash);
    });
}

// The first curve is used for every name that contains no other curve's number.
const Curve& CurveFor(const WCHAR* algName)
{
    const Curve* other =
        FindRow(kCurves, [=](const Curve& curve) { return &curve != kCurves && TextContains(algName, curve.number); });
    return other ? *other : kCurves[0];
}

// The hash name in the padding information. NULL, logged, if there is none.
const WCHAR* HashName(const SignatureTexts& texts, const void* paddingInfo, DWORD padding)
{
    if (padding == BCRYPT_PAD_PKCS1) {
        const auto* info = static_cast<const BCRYPT_PKCS1_PADDING_INFO*>(paddingInfo);
        if (info && info->pszAlgId)
            return info->pszAlgId;
        LogLine(texts.noPaddingOrHashName, LOG_ERROR_LEVEL);
        return nullptr;
    }

    const auto* info = static_cast<const BCRYPT_PSS_PADDING_INFO*>(paddingInfo);
    if (!info) {
        LogLine(texts.noPadding, LOG_ERROR_LEVEL);
        return nullptr;
    }
    LogNumber(texts.entryPoint, info->pszAlgId, static_cast<LONG>(info->cbSalt), LOG_STEP_LEVEL);
    if (!info->pszAlgId)
        LogString(texts.entryPoint, TEXT("phashinfo->pszAlgId == NULL"), LOG_ERROR_LEVEL);
    return info->pszAlgId;
}

void UseHostBytes(const HostHash& hash, SignatureRequest* request)
{
    request->digest = hash.bytes;
    request->cbDigest = hash.size;
}

void UseWorkBuffer(DWORD cbDigest, SignatureRequest* request)
{
    request->digest = request->work;
    request->cbDigest = cbDigest;
    request->reshaped = true;
}

}  // namespace

SECURITY_STATUS ChooseRsaSignature(const SignatureTexts& texts, const HostHash& hash, SignatureRequest* request)
{
    const DWORD padding = (hash.dwFlags & BCRYPT_PAD_PKCS1) != 0 ? BCRYPT_PAD_PKCS1 : BCRYPT_PAD_PSS;
    const WCHAR* hashName = HashName(texts, hash.paddingInfo, padding);
    if (!hashName)
        return NTE_NOT_SUPPORTED;
    const RsaRule* rule = FindRsaRule(padding, hashName, hash.size);
    if (!rule) {
        LogString(texts.badHash, hashName, LOG_ERROR_LEVEL);
        return NTE_NOT_SUPPORTED;
    }

    request->alg = rule->alg;
    UseHostBytes(hash, request);
    if (rule->digestInfo) {
        memcpy(request->work, kSha1DigestInfo, sizeof(kSha1DigestInfo));
        memcpy(request->work + sizeof(kSha1DigestInfo), hash.bytes, kSha1Size);
        UseWorkBuffer(sizeof(kSha1DigestInfo) + kSha1Size, request);
    }
    return ERROR_SUCCESS;
}

SECURITY_STATUS ChooseCurveSignature(const SignatureTexts& texts, const WCHAR* algName, const HostHash& hash,
                                     SignatureRequest* request)
{
    const Curve& curve = CurveFor(algName);
    request->alg = curve.signatureAlg;
    UseHostBytes(hash, request);
    if (hash.size == curve.cbHash)
        return ERROR_SUCCESS;

    LogNumber(texts.resize, algName, static_cast<LONG>(hash.size), LOG_STEP_LEVEL);
    if (hash.size > kHashWorkSize)
        return NTE_INVALID_PARAMETER;
    const DWORD cbKept = hash.size < curve.cbHash ? hash.size : curve.cbHash;
    memset(request->work, 0, sizeof(request->work));
    memcpy(request->work + (curve.cbHash - cbKept), hash.bytes, cbKept);
    UseWorkBuffer(curve.cbHash, request);
    LogLine(texts.resized, LOG_DETAIL_LEVEL);
    return ERROR_SUCCESS;
}
