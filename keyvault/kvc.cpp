#include "keyvault/kvc.h"

#include "keyvault/join.h"
#include "keyvault/vault_name.h"
#include "support/guards.h"
#include "support/log.h"

namespace {

void FreeText(BldStr*& str)
{
    if (str)
        BldStrFree(str);
    str = nullptr;
}

void FreeSecret(BldStr*& str)
{
    BldStrWipeFree(str);
    str = nullptr;
}

void FreeRecord(KVC* kvc)
{
    FreeSecret(kvc->tokenType);
    FreeSecret(kvc->accessToken);
    FreeText(kvc->loginUrl);
    FreeText(kvc->resource);
    FreeText(kvc->kvname);
    FreeText(kvc->tenant);
    FreeText(kvc->clientId);
    FreeSecret(kvc->clientSecret);
    FreeText(kvc->clientCertId);
    // The last answer may have been that of a decryption.
    WipeFreeBytes(kvc->lastBody);
    free(kvc);
}

struct RecordFreer {
    void operator()(KVC* kvc) const { FreeRecord(kvc); }
};
using RecordPtr = std::unique_ptr<KVC, RecordFreer>;

RecordPtr NewRecord()
{
    return RecordPtr(static_cast<KVC*>(calloc(1, sizeof(KVC))));
}

// NULL for a NULL text too; `complete` turns false only when there was no memory.
BldStr* CopyText(const WCHAR* text, bool& complete)
{
    BldStr* copy = BldStrNewStr(text);
    if (!copy && text)
        complete = false;
    return copy;
}

KVC* FailNoMemory()
{
    LogLine(TEXT("KVCNew failed to allocate KVC"), LOG_ERROR_LEVEL);
    return nullptr;
}

}  // namespace

KVC* KVCNew(const WCHAR* kvname, DWORD authn, const WCHAR* tenant, const WCHAR* clientId, const WCHAR* clientSecret,
            const WCHAR* clientCertId, DWORD purgeOnDelete, DWORD certificateMode, DWORD exportableOption)
{
    LogLine(TEXT("KVCNew KeyVault and Authentication Type"), LOG_STEP_LEVEL);
    if (!kvname) {
        LogLine(TEXT("KVCNew NULL kvname"), LOG_ERROR_LEVEL);
        return nullptr;
    }
    RecordPtr kvc = NewRecord();
    if (!kvc)
        return FailNoMemory();
    kvc->purgeOnDelete = purgeOnDelete;
    kvc->certificateMode = certificateMode;
    kvc->exportableOption = exportableOption;

    WCHAR name[kVaultNameLimit + 1];
    VaultNameFromTemplate(kvname, name);
    bool complete = true;
    kvc->kvname = CopyText(name, complete);
    kvc->authn = authn ? authn : KVC_AUTHN_MANAGED_IDENTITY;
    kvc->clientId = CopyText(clientId, complete);
    LogNumber(TEXT("KVCNew KeyVault and Authentication Type"), name, static_cast<LONG>(authn), LOG_STEP_LEVEL);
    LogStrings(TEXT("KVCNew ClientID and Client Cert"), clientId, clientCertId, LOG_STEP_LEVEL);
    kvc->clientSecret = CopyText(clientSecret, complete);
    kvc->clientCertId = CopyText(clientCertId, complete);
    kvc->tenant = CopyText(tenant, complete);
    // Half an identity would sign in as somebody else, or nobody.
    if (!complete)
        return FailNoMemory();
    return kvc.release();
}

void KVCDelete(KVC* kvc)
{
    LogLine(TEXT("KVCDelete"), LOG_STEP_LEVEL);
    if (!kvc)
        return;
    const LastErrorKeeper keeper;
    FreeRecord(kvc);
}

KVC* KVCBeginCall(KVC* client)
{
    RecordPtr call = NewRecord();
    if (!call)
        return nullptr;
    call->authn = client->authn;
    call->purgeOnDelete = client->purgeOnDelete;
    call->certificateMode = client->certificateMode;
    call->exportableOption = client->exportableOption;
    call->client = client;
    return call.release();
}

void KVCEndCall(KVC* call)
{
    if (!call)
        return;
    const LastErrorKeeper keeper;
    FreeRecord(call);
}

const WCHAR* KVCText(const BldStr* str)
{
    return str && str->cStr ? str->cStr : TEXT("");
}
