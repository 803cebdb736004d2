#include <utility>

#include "keyvault/endpoints.h"
#include "keyvault/join.h"
#include "keyvault/signin.h"
#include "keyvault/vault_name.h"
#include "support/clock.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr int64_t kTokenLifeSeconds = 3600;

KVCLogOnResult SignIn(KVCClient* client, Token* token)
{
    KVCLogOnResult result = KVCLogOnResult::Refused;
    if ((client->authn & KVC_AUTHN_CLIENT_CREDENTIALS) != 0)
        result = SignInWithClientCredentials(client, token);
    if (result != KVCLogOnResult::Ready && (client->authn & KVC_AUTHN_MANAGED_IDENTITY) != 0) {
        const KVCLogOnResult second = SignInWithManagedIdentity(client, token);
        // If the first method got a token but had no memory to keep it, that isn't a refusal.
        if (second == KVCLogOnResult::Ready || result == KVCLogOnResult::Refused)
            result = second;
    }
    return result;
}

void Replace(BldStr*& field, BldStr* value)
{
    BldStrFree(field);
    field = value;
}

// Stores the outcome of a sign-in in the client, atomically for other threads. now: when the sign-in began.
void Publish(KVCClient* client, KVCLogOnResult result, Token token, int64_t now)
{
    BldStrPtr name;
    BldStrPtr host;
    if (result == KVCLogOnResult::Ready && TextEqual(KVCText(client->kvname), kIdentityNameMarker))
        name = VaultNameFromIdentity(KVCText(token.text ? token.text.get() : client->accessToken),
                                     KVCText(client->kvname));
    if (name)
        host = JoinText(0, {name->cStr, kVaultHostSuffix});
    const ExclusiveLock lock(&client->lock);
    if (token.text)
        Replace(client->accessToken, token.text.release());
    if (token.type)
        Replace(client->tokenType, token.type.release());
    if (name && host) {
        Replace(client->kvname, name.release());
        Replace(client->host, host.release());
    }
    if (result == KVCLogOnResult::Ready) {
        client->tokenExpiry = now + kTokenLifeSeconds;
    } else {
        client->failedSignIns++;
        client->lastFailure = result;
    }
}

// Signs in if the client's token has expired; the caller holds its signInLock. failuresSeen: the number of failed
// sign-ins before the caller waited for that lock.
KVCLogOnResult Renew(KVCClient* client, uint32_t failuresSeen)
{
    const int64_t now = ClockUnixTime();
    if (client->tokenExpiry > now)
        return KVCLogOnResult::Ready;
    LogNumber(TEXT("KVCAuthenticate KVCKeyCert"), TEXT("kvc->authn"), static_cast<LONG>(client->authn), LOG_STEP_LEVEL);
    // Another thread tried and failed while this one waited. If every waiting thread tried again, they would fail one
    // by one, each after minutes of retries.
    if (client->failedSignIns != failuresSeen)
        return client->lastFailure;
    Token token;
    const KVCLogOnResult result = SignIn(client, &token);
    Publish(client, result, std::move(token), now);
    return result;
}

uint32_t FailedSignIns(KVCClient* client)
{
    const ExclusiveLock lock(&client->lock);
    return client->failedSignIns;
}

}  // namespace

KVCLogOnResult KVCLogOn(KVC* call)
{
    KVCClient* client = call->client;
    const uint32_t failuresSeen = FailedSignIns(client);
    const ExclusiveLock signIn(&client->signInLock);
    LogString(TEXT("KVCAuthenticate"), KVCText(client->kvname), LOG_STEP_LEVEL);
    const KVCLogOnResult result = Renew(client, failuresSeen);
    if (result == KVCLogOnResult::Ready)
        KVCTakeHeldToken(call);
    else if (result == KVCLogOnResult::NoMemory)
        LogString(TEXT("KVCAuthenticate Out of memory"), KVCText(client->kvname), LOG_ERROR_LEVEL);
    else
        LogString(TEXT("KVCAuthenticate Logon failure"), KVCText(client->kvname), LOG_ERROR_LEVEL);
    return result;
}

int KVCAuthenticate(KVC* kvc)
{
    return KVCLogOn(kvc) == KVCLogOnResult::Ready ? 1 : 0;
}

void KVCTakeHeldToken(KVC* call)
{
    KVCClient* client = call->client;
    const ExclusiveLock lock(&client->lock);
    Replace(call->tokenType, BldStrShare(client->tokenType));
    Replace(call->accessToken, BldStrShare(client->accessToken));
    Replace(call->kvname, BldStrShare(client->kvname));
    Replace(call->host, BldStrShare(client->host));
}
