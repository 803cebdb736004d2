#include "keyvault/endpoints.h"
#include "keyvault/join.h"
#include "keyvault/signin.h"
#include "keyvault/web_call.h"
#include "support/codepage.h"
#include "support/fail.h"
#include "support/guards.h"
#include "support/random_uuid.h"
#include "support/text.h"

namespace {

// Replaces loginUrl and resource. False: no memory.
bool SetEndpoints(KVCClient* kvc)
{
    LogString(TEXT("KVCGetLoginUrl called"), KVCText(kvc->kvname), LOG_STEP_LEVEL);
    BldStrPtr loginUrl = JoinText(0, {kSignInBaseUrl, KVCText(kvc->tenant)});
    BldStrPtr resource = JoinText(0, {kVaultResource});
    if (!loginUrl || !resource)
        return false;
    BldStrFree(kvc->loginUrl);
    kvc->loginUrl = loginUrl.release();
    BldStrFree(kvc->resource);
    kvc->resource = resource.release();
    LogStrings(TEXT("KVCGetLoginUrl Success"), kvc->loginUrl->cStr, kvc->resource->cStr, LOG_DETAIL_LEVEL);
    return true;
}

// Splits the sign-in URL into the host and the path of the token service. False: malformed URL, or no memory.
bool SplitLoginUrl(const WCHAR* url, BldStrPtr& host, BldStrPtr& path)
{
    constexpr TextView kScheme(TEXT("https://"));
    const TextView text = View(url);
    const size_t scheme = text.find(kScheme);
    if (scheme == TextView::npos)
        return false;
    const size_t begin = scheme + kScheme.size();
    const size_t end = text.find(TEXT('/'), begin);
    if (end == TextView::npos)
        return false;
    host = JoinText(0, {url + begin});
    path = JoinText(0, {url + end, TEXT("/oauth2/token")});
    if (!host || !path)
        return false;
    host->length = static_cast<DWORD>(end - begin);
    host->cStr[host->length] = 0;
    return true;
}

SecretStrPtr FormBody(const KVCClient* kvc)
{
    const WCHAR* secret = KVCText(kvc->clientSecret);
    return JoinSecretText(
        0, {TEXT("resource="), kvc->resource->cStr, TEXT("&grant_type=client_credentials"), TEXT("&client_id="),
            KVCText(kvc->clientId), *secret ? TEXT("&client_secret=") : nullptr, secret});
}

BldStrPtr HeaderBlock()
{
    constexpr DWORD kHeaderBlockChars = 1000;
    WCHAR requestId[kUuidTextChars];
    NewUuidText(requestId);
    return JoinText(
        kHeaderBlockChars,
        {TEXT("Content-Type: application/x-www-form-urlencoded\r\n"), TEXT("Accept: application/json\r\n"),
         TEXT("return-client-request-id: true\r\n"), TEXT("client-request-id: "), requestId, TEXT("\r\n\r\n")});
}

// The sign-in service's answer; NULL: no memory for the request or the answer.
KVCResponsePtr AskForToken(const KVCClient* kvc)
{
    BldStrPtr host;
    BldStrPtr path;
    if (!SplitLoginUrl(kvc->loginUrl->cStr, host, path))
        return nullptr;
    SecretStrPtr form = FormBody(kvc);
    const BldStrPtr headers = HeaderBlock();
    if (!form || !headers)
        return nullptr;
    const SecretBytesPtr formBytes(WStrToBytesStr(form->cStr));
    form.reset();
    if (!formBytes)
        return nullptr;
    return KVCResponsePtr(KVCDoWebCall(INTERNET_DEFAULT_HTTPS_PORT, host->cStr, path->cStr, TEXT("POST"), headers->cStr,
                                       formBytes.get()));
}

}  // namespace

KVCLogOnResult SignInWithClientCredentials(KVCClient* kvc, Token* token)
{
    LogString(TEXT("KVCAuthenticate KVCKeyCert"), KVCText(kvc->kvname), LOG_STEP_LEVEL);
    if (!SetEndpoints(kvc))
        return KVCLogOnResult::Refused;
    const KVCResponsePtr response = AskForToken(kvc);
    const DWORD error = GetLastError();
    if (!response || response->status != HTTP_OK)
        return Fail(KVCLogOnResult::Refused, TEXT("KVCAuthenticate KVCDoWebCall failure"), DWORD{1});
    if (!response->body)
        return Fail(KVCLogOnResult::Refused, TEXT("KVCAuthenticate WStrToBytesStr failure"), error);
    const TokenAnswer taken = TakeTokenAnswer(response->body, token);
    if (taken.noMemory)
        return KVCLogOnResult::NoMemory;
    return taken.text ? KVCLogOnResult::Ready : KVCLogOnResult::Refused;
}
