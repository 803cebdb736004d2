// What the vault and the sign-in services send: keys, lists, tokens, and whole operations.
#include "certsync/certificate_fetch.h"
#include "certsync/certificate_listing.h"
#include "fuzz/harness.h"
#include "keyvault/certificate_merge.h"
#include "keyvault/crypto_op.h"
#include "keyvault/key_creation.h"
#include "keyvault/key_deletion.h"
#include "keyvault/key_lookup.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/text.h"
#include "tests/common/test_root.h"

using namespace fuzz;

namespace {

void QueueRest(Input& input)
{
    while (!input.AtEnd())
        QueueAnswer(input.Line());
}

bool IsVaultName(TextView name)
{
    for (const WCHAR ch : name) {
        if (!((ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '-'))
            return false;
    }
    return name.size() <= 127;
}

// Any key name of a host is a valid vault name once encoded, and decodes to itself.
void CheckClearName(TextView name)
{
    WCHAR encoded[kEncodedNameChars] = {};
    WCHAR back[kClearNameChars];
    int coded = -1;
    int decoded = -1;
    const int result = KVCConvertClearKeyNameToEncoded(name.data(), encoded, &coded);
    Require((result == 1) == (name.size() <= kClearNameLimit));
    if (!result)
        return;
    Require(IsVaultName(encoded));
    Require(KVCConvertEncodedKeyNameToClear(encoded, back, &decoded) == 1);
    Require(coded == decoded && name == TextView(back));
}

void CheckEncodedName(TextView name)
{
    // On the heap, where the sanitizer notices overruns on both sides.
    const MallocPtr<WCHAR> clear(static_cast<WCHAR*>(malloc(kClearNameChars * sizeof(WCHAR))));
    int decoded = -1;
    if (clear && KVCConvertEncodedKeyNameToClear(name.data(), clear.get(), &decoded))
        Require(TextView(clear.get()).size() <= kClearNameLimit && (decoded == 0 || decoded == 1));
}

void SignIn(Input& input, DWORD method)
{
    KVCClient* const client =
        KVCNew(TEXT("%G"), method, TEXT("tenant"), TEXT("client"), TEXT("secret"), nullptr, 1, 1, 0);
    KVC* const call = KVCBeginCall(client);
    {
        const FailingAllocation fault(input);
        QueueRest(input);
        const KVCLogOnResult result = KVCLogOn(call);
        Require(result != KVCLogOnResult::Ready || call->kvname);
        for (const WCHAR ch : View(KVCText(call->accessToken)))
            Require(ch > 0x20 && ch < 0x7F);
    }
    KVCEndCall(call);
    KVCDelete(client);
}

}  // namespace

FUZZ_TARGET(key_names)
{
    const MallocPtr<WCHAR> name(BytesStrToWStr(std::string(input.Rest()).c_str()));
    if (!name)
        return;
    CheckClearName(name.get());
    CheckEncodedName(name.get());
}

// The first line is the name, the rest the answer.
FUZZ_TARGET(key_record)
{
    const MallocPtr<WCHAR> name(BytesStrToWStr(std::string(input.Line()).c_str()));
    const MallocPtr<KVKey> key(static_cast<KVKey*>(malloc(sizeof(KVKey))));
    if (!name || !key)
        return;
    Require(KVCParseJSONKey(name.get(), std::string(input.Rest()).c_str(), key.get()) == 1 && key->valid == 1);
    Require(TextView(key->keyName).size() < kEncodedNameChars && TextView(key->clearName).size() < kClearNameChars);
    Require(TextView(key->version).size() < kVersionChars && TextView(key->AlgID).size() < kAlgIDChars);
    Require((key->n || !key->n_siz) && (key->e || !key->e_siz) && (key->x || !key->x_siz) && (key->y || !key->y_siz));
    KVCFreeKVKey(key.get());
    Require(!key->n && !key->crv && !key->key_ops);
    KVCFreeKVKey(key.get());
}

FUZZ_TARGET(key_list)
{
    const VaultCall call;
    WCHAR** names = nullptr;
    DWORD count = 0;
    {
        const FailingAllocation fault(input);
        QueueRest(input);
        KVCGetKeys(call.get(), &names, &count);
    }
    Require(names || count == 0);
    for (DWORD i = 0; i < count; i++)
        Require(View(names[i]).size() <= kClearNameLimit);
    KVCFreeNames(names, count);
}

FUZZ_TARGET(certificate_list)
{
    const VaultCall call;
    WCHAR** names = nullptr;
    WCHAR** thumbprints = nullptr;
    LONG count = 0;
    CertBlob blob = {};
    FailingAllocation fault(input);
    QueueRest(input);
    if (KVCGetCerts(call.get(), &names, &thumbprints, &count)) {
        for (LONG i = 0; i < count; i++)
            Require(View(names[i]).size() < kCertSlotChars && View(thumbprints[i]).size() < kCertSlotChars);
        KVCGetCertsFree(names, thumbprints);
    }
    Require(!KVCGetCert(call.get(), TEXT("web"), &blob) || blob.der);
}

FUZZ_TARGET(token_answer)
{
    SignIn(input, KVC_AUTHN_CLIENT_CREDENTIALS);
}

// The first line is the endpoint.
FUZZ_TARGET(identity)
{
    const std::string endpoint(input.Line());
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), endpoint.empty() ? nullptr : Wide(endpoint).c_str());
    SignIn(input, KVC_AUTHN_MANAGED_IDENTITY | KVC_AUTHN_CLIENT_CREDENTIALS);
}

// The first line says which call: its name's first letter.
FUZZ_TARGET(rest_call)
{
    const VaultCall vault;
    KVC* const call = vault.get();
    const std::string_view what = input.Line();
    const std::string_view lower = what.substr(0, 1);
    call->certificateMode = what.size() > 1 && what[1] == 'c';
    BYTE bytes[256] = {1, 2, 3};
    DWORD size = sizeof(bytes);
    KVKey key = {};
    const FailingAllocation fault(input);
    QueueRest(input);
    if (lower == "s")
        KVCCryptoOp(call, TEXT("sign"), TEXT("rsa"), TEXT("1"), 0, TEXT("RS256"), bytes, 32, bytes, &size);
    else if (lower == "v")
        KVCCryptoOp(call, TEXT("verify"), TEXT("web"), TEXT("1"), 1, TEXT("ES256"), bytes, 64, bytes, &size);
    else if (lower == "d")
        KVCKeyDelete(call, TEXT("a \"name\""));
    else if (lower == "m")
        KVCImportCertificate(call, TEXT("web"), bytes, size);
    else
        KVCCreateKey(call, TEXT("web"), lower == "r" ? TEXT("RSA") : TEXT("ECDSA_P256"), 2048, &key, 0);
    Require(size <= 8192);
    KVCFreeKVKey(&key);
}
