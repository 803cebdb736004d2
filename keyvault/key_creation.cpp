#include "keyvault/key_creation.h"

#include "keyvault/hardware_first.h"
#include "keyvault/key_certificate_creation.h"

namespace {

// NULL: no memory. Unlike in a certificate's policy, an RSA key's size is sent as text.
SecretBytesPtr BuildRequest(const KeyKind& kind, const WCHAR* hsmSuffix, const WCHAR* algId, const WCHAR* keyName)
{
    JsonBody body(500);
    body.Text(TEXT("{\"kty\":\"")).Text(kind.kty).Text(hsmSuffix).Text(TEXT("\""));
    if (kind.crv)
        body.Text(TEXT(",\"crv\":")).Quoted(kind.crv);
    else
        body.Text(TEXT(",\"key_size\":\"")).Number(kind.bits).Text(TEXT("\""));
    body.Text(TEXT(",\"tags\": {"));
    AddKeyTags(body, algId, keyName);
    // Deliberately logged twice: before and after the conversion to bytes.
    LogString(TEXT("KVCCreateKey JSON Body"), body.text(), LOG_DETAIL_LEVEL);
    SecretBytesPtr bytes = body.Bytes();
    LogString(TEXT("KVCCreateKey JSON Body"), body.text(), LOG_DETAIL_LEVEL);
    return bytes;
}

}  // namespace

int KVCCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* algId, LONG keyBits, KVKey* key, DWORD exportable)
{
    LogLine(TEXT("KVCCreateKey"), LOG_STEP_LEVEL);
    if (!kvc || !keyName)
        return Fail(0, TEXT("KVCCreateKey Bad (NULL) KVC or Key Name"));
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    if (!KVCConvertClearKeyNameToEncoded(keyName, encodedName, &encoded))
        return Fail(0, TEXT("KVCCreateKey KVCConvertClearKeyNameToEncoded Failed"));
    if (kvc->certificateMode) {
        LogLine(TEXT("KVCCreateKey Calling KVCLowLevelCreateKeyCertificate"), LOG_STEP_LEVEL);
        return KVCLowLevelCreateKeyCertificate(kvc, keyName, encodedName, algId, keyBits, key, exportable, nullptr, 0,
                                               nullptr);
    }
    LogLine(TEXT("KVCCreateKey Calling KVCLowLevelCreateKey"), LOG_STEP_LEVEL);
    return KVCLowLevelCreateKey(kvc, keyName, encodedName, algId, keyBits, key);
}

int KVCLowLevelCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* encodedName, const WCHAR* algId, LONG keyBits,
                         KVKey* key)
{
    LogLine(TEXT("KVCLowLevelCreateKey"), LOG_STEP_LEVEL);
    const KeyKind kind = KeyKindOf(algId, keyBits);
    const Creation creation = {0, encodedName, TEXT("KVCLowLevelCreateKey REST Call Error"),
                               TEXT("KVCLowLevelCreateKey ActionThrottled"),
                               TEXT("KVCLowLevelCreateKey Out of memory")};
    const auto build = [&](const WCHAR* hsmSuffix) { return BuildRequest(kind, hsmSuffix, algId, keyName); };
    const auto onSoftware = [&] {
        LogError(TEXT("KVCLowLevelCreateKey HSM Key Failed - retry with software key"), kvc->lastStatus,
                 LOG_WARNING_LEVEL);
    };
    if (!CreateHardwareFirst(kvc, creation, build, onSoftware))
        return 0;
    if (kvc->lastStatus == HTTP_OK)
        return KVCParseJSONKey(encodedName, kvc->lastBody, key);
    if (kvc->lastStatus != HTTP_THROTTLED)
        LogError(TEXT("KVCLowLevelCreateKey Failed"), kvc->lastStatus, LOG_ERROR_LEVEL);
    return 0;
}
