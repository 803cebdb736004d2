#include <utility>

#include "keyvault/arc_secret.h"
#include "keyvault/endpoints.h"
#include "keyvault/join.h"
#include "keyvault/signin.h"
#include "keyvault/web_call.h"
#include "support/clock.h"
#include "support/fail.h"
#include "support/guards.h"
#include "support/text.h"

namespace {

constexpr INTERNET_PORT kArcPort = 40342;
constexpr DWORD kEndpointChars = 500;
constexpr DWORD kHostChars = 200;
constexpr DWORD kRepeatWaitMs = 1000;
constexpr DWORD kPathChars = 200;
constexpr DWORD kHeaderBlockChars = 1000;

// The state of one sign-in.
struct IdentityCall {
    WCHAR identityHost[kHostChars] = {};
    INTERNET_PORT identityPort = INTERNET_DEFAULT_HTTP_PORT;
    BldStrPtr identityPath;
    SecretStrPtr identityHeaders;
    bool arcChallengeOpen = true;
    LONG attemptsLeft = 240;
};

void FindEndpoint(IdentityCall& call)
{
    TextCopy(call.identityHost, kHostChars, View(kInstanceMetadataHost));
    WCHAR endpoint[kEndpointChars] = {};
    const DWORD length = GetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), endpoint, kEndpointChars);
    if (length == 0 || length >= kEndpointChars)
        return;
    LogString(TEXT("KVCAuthenticate MSIAuthenticate - Found IDENTITY_ENDPOINT Environment"), endpoint, LOG_STEP_LEVEL);
    WCHAR host[kHostChars] = {};
    URL_COMPONENTS parts = {};
    parts.dwStructSize = sizeof(parts);
    parts.lpszHostName = host;
    parts.dwHostNameLength = kHostChars;
    if (!WinHttpCrackUrl(endpoint, 0, ICU_DECODE, &parts))
        return;
    TextCopy(call.identityHost, kHostChars, TextView(host));
    call.identityPort = parts.nPort;
    LogString(TEXT("KVCAuthenticate MSIAuthenticate - Found Host"), call.identityHost, LOG_STEP_LEVEL);
}

// False: no memory.
bool BuildRequest(const KVCClient* kvc, IdentityCall& call)
{
    const WCHAR* clientId = KVCText(kvc->clientId);
    const WCHAR* version =
        call.identityPort == kArcPort ? TEXT("&api-version=2020-06-01") : TEXT("&api-version=2018-02-01");
    call.identityHeaders = JoinSecretText(kHeaderBlockChars, {TEXT("Metadata: True\r\n")});
    call.identityPath = JoinText(kPathChars, {TEXT("/metadata/identity/oauth2/token?resource="), kVaultResource,
                                              version, *clientId ? TEXT("&client_id=") : nullptr, clientId});
    return call.identityHeaders && call.identityPath;
}

// Appends the contents of the secret file, unchanged, to the headers.
bool AddSecret(const WCHAR* path, IdentityCall& call)
{
    char bytes[kArcSecretChars] = {};
    WCHAR text[kArcSecretChars] = {};
    SecretStrPtr headers;
    if (ReadArcSecret(path, bytes)) {
        TextWriter(text, kArcSecretChars).Bytes(bytes);
        headers = JoinSecretText(kHeaderBlockChars,
                                 {call.identityHeaders->cStr, TEXT("Authorization: Basic "), text, TEXT("\r\n")});
    } else {
        LogString(TEXT("KVCAuthenticate MSIAuthenticate failure - Could not open secret file"), path, LOG_ERROR_LEVEL);
    }
    Wipe(bytes, sizeof(bytes));
    Wipe(text, sizeof(text));
    if (!headers)
        return false;
    call.identityHeaders = std::move(headers);
    return true;
}

// Answers the challenge in the headers of a response. True: send the request again, even if the headers name no file.
// False: the sign-in has failed.
bool AnswerChallenge(const WCHAR* head, IdentityCall& call)
{
    constexpr TextView kRealm(TEXT("Basic realm="));
    LogLine(TEXT("KVCAuthenticate MSIAuthenticate Arc Retry"), LOG_STEP_LEVEL);
    call.arcChallengeOpen = false;
    const TextView text = View(head);
    const size_t realm = text.find(kRealm);
    if (realm == TextView::npos) {
        LogLine(TEXT("KVCAuthenticate MSIAuthenticate failure - Could not find Arc Basic realm 2"), LOG_ERROR_LEVEL);
        call.arcChallengeOpen = true;
        return true;
    }
    const size_t begin = realm + kRealm.size();
    const size_t end = text.find(TEXT("\r\n"), begin);
    if (end == TextView::npos) {
        LogLine(TEXT("KVCAuthenticate MSIAuthenticate failure - Could not find Arc Basic realm 1"), LOG_ERROR_LEVEL);
        call.arcChallengeOpen = true;
        return true;
    }
    WCHAR path[kArcPathChars] = {};
    if (!TextCopy(path, kArcPathChars, text.substr(begin, end - begin))) {
        TextCopyCut(path, kArcPathChars, text.substr(begin));
        LogString(TEXT("KVCAuthenticate MSIAuthenticate failure - Could not open secret file"), path, LOG_ERROR_LEVEL);
        return false;
    }
    return AddSecret(path, call);
}

void LogRefusal(const KVCResponse* response)
{
    LogError(TEXT("KVCAuthenticate MSIAuthenticate failure - Return Code"), response->status, LOG_ERROR_LEVEL);
    if (response->body && response->headers)
        LogAscii(TEXT("KVCAuthenticate MSIAuthenticate failure - Return String"), response->body);
}

enum class Step { SignedIn, Failed, NoMemory, Repeat };

Step Evaluate(IdentityCall& call, const KVCResponse* response, Token* token)
{
    if (response->status == HTTP_OK) {
        const TokenAnswer taken = TakeTokenAnswer(response->body, token);
        if (taken.noMemory)
            return Step::NoMemory;
        return taken.text || taken.type ? Step::SignedIn : Step::Failed;
    }
    const bool challenged = response->headers && call.identityPort == kArcPort && call.arcChallengeOpen;
    if (challenged && AnswerChallenge(response->headers->cStr, call))
        return Step::Repeat;
    LogRefusal(response);
    return Step::Failed;
}

Step Ask(IdentityCall& call, Token* token)
{
    const KVCResponsePtr response(KVCDoWebCall(call.identityPort, call.identityHost, call.identityPath->cStr,
                                               TEXT("GET"), call.identityHeaders->cStr, nullptr));
    if (response)
        return Evaluate(call, response.get(), token);
    LogLine(TEXT("KVCAuthenticate MSIAuthenticate Response NULL"), LOG_STEP_LEVEL);
    return Fail(Step::Failed, TEXT("KVCAuthenticate MSIAuthenticate failure - Response NULL"));
}

}  // namespace

KVCLogOnResult SignInWithManagedIdentity(const KVCClient* kvc, Token* token)
{
    IdentityCall call;
    FindEndpoint(call);
    LogString(TEXT("KVCAuthenticate MSIAuthenticate - Azure or Arc VM"), KVCText(kvc->kvname), LOG_STEP_LEVEL);
    if (!BuildRequest(kvc, call))
        return KVCLogOnResult::Refused;
    Step step = Ask(call, token);
    while (step == Step::Repeat) {
        ClockSleep(kRepeatWaitMs);
        if (call.attemptsLeft-- == 0)
            break;
        step = Ask(call, token);
    }
    if (step == Step::NoMemory)
        return KVCLogOnResult::NoMemory;
    return step == Step::SignedIn ? KVCLogOnResult::Ready : KVCLogOnResult::Refused;
}
