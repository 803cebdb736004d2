#include "provider/signature_rules.h"

#include <string.h>

#include "support/log.h"
#include "support/text.h"

namespace {

constexpr DWORD kSha1Size = 20;
constexpr DWORD kAnySize = 0;

// DER of the DigestInfo of PKCS#1 up to the hash itself.
constexpr BYTE kSha1DigestInfo[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                                    0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
static_assert(sizeof(kSha1DigestInfo) + kSha1Size == 35 && 35 <= kHashWorkSize,
              "the DigestInfo is built in the work buffer");

struct RsaRule {
    DWORD padding;
    const WCHAR* hashName;
    DWORD cbHash;  // kAnySize: the vault judges the size
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

struct CurveRule {
    const WCHAR* digits;
    const WCHAR* alg;
    DWORD cbHash;
};
// The first row whose digits stand in the algorithm's name counts; the last one takes every name. P-521 is signed over
// 64 bytes.
constexpr CurveRule kCurveRules[] = {
    {TEXT("384"), TEXT("ES384"), 48},
    {TEXT("521"), TEXT("ES512"), 64},
    {TEXT(""), TEXT("ES256"), 32},
};

const RsaRule* FindRsaRule(DWORD padding, const WCHAR* hashName, DWORD cbHash)
{
    for (const RsaRule& rule : kRsaRules) {
        if (rule.padding == padding && TextEqualNoCase(View(hashName), View(rule.hashName)) &&
            (rule.cbHash == kAnySize || rule.cbHash == cbHash))
            return &rule;
    }
    return nullptr;
}

const CurveRule& FindCurveRule(const WCHAR* algName)
{
    const CurveRule* rule = kCurveRules;
    while (!TextContains(algName, View(rule->digits)))
        ++rule;
    return *rule;
}

// The hash name of the padding information, or NULL, logged, when it is missing.
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

void UseHostBytes(BYTE* hash, DWORD cbHash, SignatureRequest* request)
{
    request->digest = hash;
    request->cbDigest = cbHash;
}

void UseWorkBuffer(DWORD cbDigest, SignatureRequest* request)
{
    request->digest = request->work;
    request->cbDigest = cbDigest;
}

}  // namespace

SECURITY_STATUS ChooseRsaSignature(const SignatureTexts& texts, const void* paddingInfo, DWORD dwFlags, BYTE* hash,
                                   DWORD cbHash, SignatureRequest* request)
{
    const DWORD padding = (dwFlags & BCRYPT_PAD_PKCS1) != 0 ? BCRYPT_PAD_PKCS1 : BCRYPT_PAD_PSS;
    const WCHAR* hashName = HashName(texts, paddingInfo, padding);
    if (!hashName)
        return NTE_NOT_SUPPORTED;
    const RsaRule* rule = FindRsaRule(padding, hashName, cbHash);
    if (!rule) {
        LogString(texts.badHash, hashName, LOG_ERROR_LEVEL);
        return NTE_NOT_SUPPORTED;
    }

    request->alg = rule->alg;
    UseHostBytes(hash, cbHash, request);
    if (rule->digestInfo) {
        memcpy(request->work, kSha1DigestInfo, sizeof(kSha1DigestInfo));
        memcpy(request->work + sizeof(kSha1DigestInfo), hash, kSha1Size);
        UseWorkBuffer(sizeof(kSha1DigestInfo) + kSha1Size, request);
    }
    return ERROR_SUCCESS;
}

SECURITY_STATUS ChooseCurveSignature(const SignatureTexts& texts, const WCHAR* algName, BYTE* hash, DWORD cbHash,
                                     SignatureRequest* request)
{
    const CurveRule& rule = FindCurveRule(algName);
    request->alg = rule.alg;
    UseHostBytes(hash, cbHash, request);
    if (cbHash == rule.cbHash)
        return ERROR_SUCCESS;

    LogNumber(texts.resize, algName, static_cast<LONG>(cbHash), LOG_STEP_LEVEL);
    if (cbHash > kHashWorkSize)
        return NTE_INVALID_PARAMETER;
    const DWORD cbKept = cbHash < rule.cbHash ? cbHash : rule.cbHash;
    memset(request->work, 0, sizeof(request->work));
    memcpy(request->work + (rule.cbHash - cbKept), hash, cbKept);
    UseWorkBuffer(rule.cbHash, request);
    LogLine(texts.resized, LOG_DETAIL_LEVEL);
    return ERROR_SUCCESS;
}
