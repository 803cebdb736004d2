#include "keyvault/rest_call.h"

#include "keyvault/endpoints.h"
#include "keyvault/join.h"
#include "support/log.h"
#include "support/random_uuid.h"

namespace {

bool HasText(const BldStr* str)
{
    return str && str->cStr;
}

bool IsGood(DWORD status)
{
    return status == 200 || status == 201 || status == 202 || status == 204;
}

BldStrPtr Url(const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* actionverb,
              const WCHAR* apiVersion)
{
    if (rawURL)
        return JoinText(0, {rawURL});
    return JoinText(0, {TEXT("/"), useCertificates ? TEXT("certificates") : TEXT("keys"), keyName ? TEXT("/") : nullptr,
                        keyName, actionverb ? TEXT("/") : nullptr, actionverb, TEXT("?api-version="), apiVersion});
}

SecretStrPtr HeaderBlock(const KVC* kvc)
{
    constexpr DWORD kHeaderBlockChars = 1000;
    WCHAR requestId[kUuidTextChars];
    NewUuidText(requestId);
    return JoinSecretText(
        kHeaderBlockChars,
        {TEXT("Content-Type: application/json; charset=utf-8\r\n"), TEXT("Accept: application/json\r\n"),
         TEXT("return-client-request-id: true\r\n"), TEXT("Authorization: "), kvc->tokenType->cStr, TEXT(" "),
         kvc->accessToken->cStr, TEXT("\r\n"), TEXT("client-request-id: "), requestId, TEXT("\r\n\r\n")});
}

void LogPart(const WCHAR* message, const WCHAR* text)
{
    if (text)
        LogString(message, text, LOG_DETAIL_LEVEL);
}

}  // namespace

int KVCDoKVRESTCall(KVC* kvc, const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* verb,
                    const WCHAR* actionverb, const char* body, const WCHAR* apiVersion)
{
    LogLine(TEXT("KVCDoKVRESTCall"), LOG_DETAIL_LEVEL);
    if (!kvc || !HasText(kvc->tokenType) || !HasText(kvc->accessToken)) {
        LogError(TEXT("KVCDoKVRESTCall Failed - kvc, kvc->tokenType or kvc->accessToken or kvc->tokenType->cStr or "
                      "kvc->accessToken->cStr NULL"),
                 DWORD{ERROR_INVALID_PARAMETER}, LOG_DETAIL_LEVEL);
        return 0;
    }
    WipeFreeBytes(kvc->lastBody);
    kvc->lastBody = nullptr;
    if (!apiVersion) {
        LogLine(TEXT("KVCDoKVRESTCall API Version 2016-10-01"), LOG_DETAIL_LEVEL);
        apiVersion = kApiVersionRead;
    }
    LogPart(TEXT("KVCDoKVRESTCall Keyname"), keyName);
    LogPart(TEXT("KVCDoKVRESTCall actionverb"), actionverb);

    BldStrPtr host = JoinText(0, {KVCText(kvc->kvname), kVaultHostSuffix});
    BldStrPtr url = Url(rawURL, useCertificates, keyName, actionverb, apiVersion);
    if (!host || !url)
        return 0;
    LogString(TEXT("KVCDoKVRESTCall host"), host->cStr, LOG_DETAIL_LEVEL);
    LogString(TEXT("KVCDoKVRESTCall url"), url->cStr, LOG_DETAIL_LEVEL);
    SecretStrPtr headers = HeaderBlock(kvc);
    if (!headers)
        return 0;
    const KVCResponsePtr response(
        KVCDoWebCall(INTERNET_DEFAULT_HTTPS_PORT, host->cStr, url->cStr, verb, headers->cStr, body));
    host.reset();
    url.reset();
    headers.reset();
    if (!response)
        return 0;

    kvc->lastStatus = response->status;
    kvc->lastBody = response->body;
    response->body = nullptr;
    if (!IsGood(kvc->lastStatus)) {
        LogError(TEXT("KVCDoKVRESTCall Failed - JSON"), response->error, LOG_DETAIL_LEVEL);
        return 0;
    }
    LogLine(TEXT("KVCDoKVRESTCall Good - JSON"), LOG_DETAIL_LEVEL);
    return 1;
}
