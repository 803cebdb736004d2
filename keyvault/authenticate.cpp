#include "keyvault/join.h"
#include "keyvault/json.h"
#include "keyvault/signin.h"
#include "keyvault/vault_name.h"
#include "support/clock.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr int64_t kTokenLifeSeconds = 3600;

bool SignIn(KVC* client)
{
    if ((client->authn & KVC_AUTHN_CLIENT_CREDENTIALS) != 0 && SignInWithClientCredentials(client))
        return true;
    return (client->authn & KVC_AUTHN_MANAGED_IDENTITY) != 0 && SignInWithManagedIdentity(client);
}

// Makes the client's token valid; the caller holds its lock. failuresSeen: the count of failed sign-ins before the lock
// was asked for.
bool Renew(KVC* client, uint32_t failuresSeen)
{
    const int64_t now = ClockUnixTime();
    if (client->tokenExpiry > now)
        return true;
    LogNumber(TEXT("KVCAuthenticate KVCKeyCert"), TEXT("kvc->authn"), static_cast<LONG>(client->authn), LOG_STEP_LEVEL);
    // Somebody tried while this thread waited, and failed. To try again would make the waiting threads fail one after
    // the other, each after minutes of repeats.
    if (client->signInRound.load() != failuresSeen)
        return false;
    if (!SignIn(client)) {
        client->signInRound.fetch_add(1);
        return false;
    }
    client->tokenExpiry = now + kTokenLifeSeconds;
    if (TextEqual(KVCText(client->kvname), kIdentityNameMarker))
        NameVaultAfterIdentity(client);
    return true;
}

// True with a copy, or with NULL for NULL.
bool Copy(const BldStr* from, SecretStrPtr& to)
{
    if (!from)
        return true;
    to.reset(BldStrNewStr(from->cStr));
    return to != nullptr;
}

void Replace(BldStr*& field, SecretStrPtr& value)
{
    BldStrWipeFree(field);
    field = value.release();
}

// Hands token and vault name over to a call record, all or nothing.
bool HandOver(const KVC* client, KVC* call)
{
    SecretStrPtr tokenType;
    SecretStrPtr accessToken;
    SecretStrPtr kvname;
    if (!Copy(client->tokenType, tokenType) || !Copy(client->accessToken, accessToken) || !Copy(client->kvname, kvname))
        return false;
    Replace(call->tokenType, tokenType);
    Replace(call->accessToken, accessToken);
    Replace(call->kvname, kvname);
    call->tokenExpiry = client->tokenExpiry;
    return true;
}

// True with a copy, or with NULL for a missing member.
bool CopyMember(json_object* answer, const char* name, SecretStrPtr& to)
{
    const char* text = JsonMemberText(answer, name);
    if (!text)
        return true;
    to.reset(BldStrNewStrFromAscii(text));
    return to != nullptr;
}

}  // namespace

int KVCAuthenticate(KVC* kvc)
{
    KVC* client = kvc->client ? kvc->client : kvc;
    const uint32_t failuresSeen = client->signInRound.load();
    const ExclusiveLock lock(&client->lock);
    LogString(TEXT("KVCAuthenticate"), KVCText(client->kvname), LOG_STEP_LEVEL);
    if (Renew(client, failuresSeen) && (client == kvc || HandOver(client, kvc)))
        return 1;
    LogString(TEXT("KVCAuthenticate Logon failure"), KVCText(client->kvname), LOG_ERROR_LEVEL);
    return 0;
}

int KVCTakeHeldToken(KVC* call)
{
    const ExclusiveLock lock(&call->client->lock);
    return HandOver(call->client, call) ? 1 : 0;
}

TokenAnswer TakeTokenAnswer(KVC* kvc, const char* body)
{
    const JsonPtr answer = JsonParse(body);
    SecretStrPtr accessToken;
    SecretStrPtr tokenType;
    // Without memory for one of them neither is taken: half a token would count as one for an hour.
    const bool copied = CopyMember(answer.get(), "access_token", accessToken);
    if (!CopyMember(answer.get(), "token_type", tokenType) || !copied)
        return {false, false};
    const TokenAnswer taken = {accessToken != nullptr, tokenType != nullptr};
    if (accessToken)
        Replace(kvc->accessToken, accessToken);
    if (tokenType)
        Replace(kvc->tokenType, tokenType);
    return taken;
}
