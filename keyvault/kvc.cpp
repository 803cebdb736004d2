#include "keyvault/kvc.h"

#include "keyvault/endpoints.h"
#include "keyvault/join.h"
#include "keyvault/vault_name.h"
#include "support/fail.h"
#include "support/guards.h"

namespace {

constexpr WCHAR kNoMemory[] = TEXT("KVCNew failed to allocate KVC");

void FreeClient(KVCClient* client)
{
    BldStrWipeFree(client->tokenType);
    BldStrWipeFree(client->accessToken);
    BldStrFree(client->loginUrl);
    BldStrFree(client->resource);
    BldStrFree(client->kvname);
    BldStrFree(client->host);
    BldStrFree(client->tenant);
    BldStrFree(client->clientId);
    BldStrWipeFree(client->clientSecret);
    BldStrFree(client->clientCertId);
    free(client);
}

// A copy of `text`, NULL for NULL. Sets `complete` to false if memory runs out.
BldStr* CopyText(const WCHAR* text, bool& complete)
{
    BldStr* copy = BldStrNewStr(text);
    if (!copy && text)
        complete = false;
    return copy;
}

}  // namespace

KVCClient* KVCNew(const WCHAR* kvname, DWORD authn, const WCHAR* tenant, const WCHAR* clientId,
                  const WCHAR* clientSecret, const WCHAR* clientCertId, DWORD purgeOnDelete, DWORD certificateMode,
                  DWORD exportableOption)
{
    LogLine(TEXT("KVCNew KeyVault and Authentication Type"), LOG_STEP_LEVEL);
    if (!kvname)
        return Fail(nullptr, TEXT("KVCNew NULL kvname"));
    Owner<KVCClient, FreeClient> kvc(static_cast<KVCClient*>(calloc(1, sizeof(KVCClient))));
    if (!kvc)
        return Fail(nullptr, kNoMemory);
    kvc->purgeOnDelete = purgeOnDelete;
    kvc->certificateMode = certificateMode;
    kvc->exportableOption = exportableOption;

    WCHAR name[kVaultNameLimit + 1];
    VaultNameFromTemplate(kvname, name);
    bool complete = true;
    kvc->kvname = CopyText(name, complete);
    kvc->host = JoinText(0, {name, kVaultHostSuffix}).release();
    kvc->authn = authn ? authn : KVC_AUTHN_MANAGED_IDENTITY;
    kvc->clientId = CopyText(clientId, complete);
    LogNumber(TEXT("KVCNew KeyVault and Authentication Type"), name, static_cast<LONG>(authn), LOG_STEP_LEVEL);
    LogStrings(TEXT("KVCNew ClientID and Client Cert"), clientId, clientCertId, LOG_STEP_LEVEL);
    kvc->clientSecret = CopyText(clientSecret, complete);
    kvc->clientCertId = CopyText(clientCertId, complete);
    kvc->tenant = CopyText(tenant, complete);
    // With an incomplete identity the client could sign in as someone else.
    if (!complete || !kvc->host)
        return Fail(nullptr, kNoMemory);
    return kvc.release();
}

void KVCDelete(KVCClient* client)
{
    LogLine(TEXT("KVCDelete"), LOG_STEP_LEVEL);
    if (!client)
        return;
    const LastErrorKeeper keeper;
    FreeClient(client);
}

KVC* KVCBeginCall(KVCClient* client)
{
    KVC* call = static_cast<KVC*>(calloc(1, sizeof(KVC)));
    if (!call)
        return nullptr;
    call->client = client;
    call->purgeOnDelete = client->purgeOnDelete;
    call->certificateMode = client->certificateMode;
    return call;
}

void KVCEndCall(KVC* call)
{
    if (!call)
        return;
    const LastErrorKeeper keeper;
    // The client's tokens are marked as secret; marking them here would race with other calls.
    BldStrFree(call->tokenType);
    BldStrFree(call->accessToken);
    BldStrFree(call->kvname);
    BldStrFree(call->host);
    // May be the answer to a decryption.
    WipeFreeBytes(call->lastBody);
    free(call);
}

const WCHAR* KVCText(const BldStr* str)
{
    return str && str->cStr ? str->cStr : TEXT("");
}
