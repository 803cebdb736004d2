#include "keyvault/rest_call.h"

#include "keyvault/join.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/random_uuid.h"

namespace {

bool HasText(const BldStr* str)
{
    return str && str->cStr;
}

bool IsGood(DWORD status)
{
    return status == HTTP_OK || status == HTTP_CREATED || status == HTTP_ACCEPTED || status == HTTP_NO_CONTENT;
}

BldStrPtr Url(const VaultRequest& request, const WCHAR* apiVersion)
{
    if (request.rawURL)
        return JoinText(0, {request.rawURL});
    return JoinText(0,
                    {TEXT("/"), request.useCertificates ? TEXT("certificates") : TEXT("keys"),
                     request.keyName ? TEXT("/") : nullptr, request.keyName, request.actionverb ? TEXT("/") : nullptr,
                     request.actionverb, TEXT("?api-version="), apiVersion});
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

VaultRequest PostRequest(const WCHAR* keyName, const WCHAR* actionverb)
{
    VaultRequest request;
    request.verb = TEXT("POST");
    request.keyName = keyName;
    request.actionverb = actionverb;
    request.apiVersion = kApiVersionWrite;
    return request;
}

int SendToVault(KVC* kvc, const VaultRequest& request)
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
    const WCHAR* apiVersion = request.apiVersion;
    if (!apiVersion) {
        LogLine(TEXT("KVCDoKVRESTCall API Version 2016-10-01"), LOG_DETAIL_LEVEL);
        apiVersion = kApiVersionRead;
    }
    LogPart(TEXT("KVCDoKVRESTCall Keyname"), request.keyName);
    LogPart(TEXT("KVCDoKVRESTCall actionverb"), request.actionverb);

    BldStrPtr url = Url(request, apiVersion);
    if (!url)
        return 0;
    LogString(TEXT("KVCDoKVRESTCall host"), KVCText(kvc->host), LOG_DETAIL_LEVEL);
    LogString(TEXT("KVCDoKVRESTCall url"), url->cStr, LOG_DETAIL_LEVEL);
    SecretStrPtr headers = HeaderBlock(kvc);
    if (!headers)
        return 0;
    const KVCResponsePtr response(KVCDoWebCall(INTERNET_DEFAULT_HTTPS_PORT, KVCText(kvc->host), url->cStr, request.verb,
                                               headers->cStr, request.body));
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

int KVCDoKVRESTCall(KVC* kvc, const WCHAR* rawURL, int useCertificates, const WCHAR* keyName, const WCHAR* verb,
                    const WCHAR* actionverb, const char* body, const WCHAR* apiVersion)
{
    VaultRequest request;
    request.verb = verb;
    request.rawURL = rawURL;
    request.useCertificates = useCertificates;
    request.keyName = keyName;
    request.actionverb = actionverb;
    request.apiVersion = apiVersion;
    request.body = body;
    return SendToVault(kvc, request);
}
