#include "keyvault/key_creation.h"

#include "keyvault/hardware_first.h"
#include "keyvault/json_body.h"
#include "keyvault/key_certificate_creation.h"
#include "support/log.h"

namespace {

// NULL: no memory. The size of an RSA key is text here, unlike in a certificate's policy.
SecretBytesPtr BuildRequest(const KeyKind& kind, const WCHAR* hsmSuffix, const WCHAR* algId, const WCHAR* keyName)
{
    JsonBody body(500);
    body.Text(TEXT("{\"kty\":\"")).Text(kind.kty).Text(hsmSuffix).Text(TEXT("\""));
    if (kind.crv)
        body.Text(TEXT(",\"crv\":\"")).Text(kind.crv).Text(TEXT("\""));
    else
        body.Text(TEXT(",\"key_size\":\"")).Number(kind.bits).Text(TEXT("\""));
    body.Text(TEXT(",\"tags\": {"));
    body.Text(TEXT("\"AlgID\":\"")).Value(algId).Text(TEXT("\""));
    body.Text(TEXT(",\"KeyName\":\"")).Value(keyName).Text(TEXT("\""));
    body.Text(TEXT("}}"));
    // The line is in the log twice: before and after the conversion to bytes.
    LogString(TEXT("KVCCreateKey JSON Body"), body.text(), LOG_DETAIL_LEVEL);
    SecretBytesPtr bytes = body.Bytes();
    LogString(TEXT("KVCCreateKey JSON Body"), body.text(), LOG_DETAIL_LEVEL);
    return bytes;
}

int Send(KVC* kvc, const WCHAR* encodedName, const char* body)
{
    VaultRequest request;
    request.verb = TEXT("POST");
    request.keyName = encodedName;
    request.actionverb = TEXT("create");
    request.apiVersion = kApiVersionWrite;
    request.body = body;
    const int good = SendToVault(kvc, request);
    if (!good)
        LogError(TEXT("KVCLowLevelCreateKey REST Call Error"), kvc->lastStatus, LOG_ERROR_LEVEL);
    return good;
}

int Fail(const WCHAR* message)
{
    LogLine(message, LOG_ERROR_LEVEL);
    return 0;
}

}  // namespace

int KVCCreateKey(KVC* kvc, const WCHAR* keyName, const WCHAR* algId, LONG keyBits, KVKey* key, DWORD exportable)
{
    LogLine(TEXT("KVCCreateKey"), LOG_STEP_LEVEL);
    if (!kvc || !keyName)
        return Fail(TEXT("KVCCreateKey Bad (NULL) KVC or Key Name"));
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    if (!KVCConvertClearKeyNameToEncoded(keyName, encodedName, &encoded))
        return Fail(TEXT("KVCCreateKey KVCConvertClearKeyNameToEncoded Failed"));
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
    SecretBytesPtr body;
    const auto send = [&](const WCHAR* hsmSuffix) {
        body = BuildRequest(kind, hsmSuffix, algId, keyName);
        return body ? Send(kvc, encodedName, body.get()) : 0;
    };
    CreateHardwareFirst(kvc, TEXT("KVCLowLevelCreateKey ActionThrottled"), send, [&] {
        LogError(TEXT("KVCLowLevelCreateKey HSM Key Failed - retry with software key"), kvc->lastStatus,
                 LOG_WARNING_LEVEL);
    });
    if (!body)
        return Fail(TEXT("KVCLowLevelCreateKey Out of memory"));
    if (kvc->lastStatus == HTTP_OK)
        return KVCParseJSONKey(encodedName, kvc->lastBody, key);
    if (kvc->lastStatus != HTTP_THROTTLED)
        LogError(TEXT("KVCLowLevelCreateKey Failed"), kvc->lastStatus, LOG_ERROR_LEVEL);
    return 0;
}
