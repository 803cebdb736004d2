// Input from the vault and the sign-in services: keys, lists, tokens, and whole operations.
#include <ctype.h>
#include <stdlib.h>

#include <filesystem>

#include "certsync/certificate_fetch.h"
#include "certsync/certificate_listing.h"
#include "certsync/machine_to_vault.h"
#include "certsync/vault_to_machine.h"
#include "fuzz/harness.h"
#include "keyvault/certificate_merge.h"
#include "keyvault/crypto_op.h"
#include "keyvault/key_creation.h"
#include "keyvault/key_deletion.h"
#include "keyvault/key_lookup.h"
#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"
#include "keyvault/rest_call.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/settings.h"
#include "support/text.h"

using namespace fuzz;

namespace {

// Runs a function with a call on a new client.
template <typename Action>
void WithCall(DWORD method, const WCHAR* vault, const Action& action)
{
    KVCClient* const client = KVCNew(vault, method, TEXT("tenant"), TEXT("client"), TEXT("secret"), nullptr, 1, 1, 0);
    KVC* const call = KVCBeginCall(client);
    action(call);
    KVCEndCall(call);
    KVCDelete(client);
}

template <typename Action>
void WithSignedInCall(const Action& action)
{
    WithCall(KVC_AUTHN_CLIENT_CREDENTIALS, TEXT("vault"), [&](KVC* call) {
        Require(KVCAuthenticate(call) != 0);
        action(call);
    });
}

// The first line says which allocation fails, the others are the service's answers.
AllocFault Plan(std::string_view& input)
{
    const std::string_view fault = TakeLine(input);
    while (!input.empty())
        QueueAnswer(TakeLine(input));
    return FaultFrom(fault);
}

// Once encoded, any key name is a valid vault name, and it decodes to itself.
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
    for (const WCHAR ch : TextView(encoded))
        Require(ch < 0x80 && (isalnum(ch) || ch == '-'));
    Require(TextView(encoded).size() <= 127);
    Require(KVCConvertEncodedKeyNameToClear(encoded, back, &decoded) == 1);
    Require(coded == decoded && name == TextView(back));
}

void CheckEncodedName(TextView name)
{
    // On the heap, where the sanitizer notices overruns at both ends.
    const MallocPtr<WCHAR> clear(static_cast<WCHAR*>(malloc(kClearNameChars * sizeof(WCHAR))));
    int decoded = -1;
    if (clear && KVCConvertEncodedKeyNameToClear(name.data(), clear.get(), &decoded))
        Require(TextView(clear.get()).size() <= kClearNameLimit && (decoded == 0 || decoded == 1));
}

void SignIn(std::string_view input, DWORD method)
{
    WithCall(method, TEXT("%G"), [&](KVC* call) {
        const AllocFault fault = Plan(input);
        const KVCLogOnResult result = KVCLogOn(call);
        Require(result != KVCLogOnResult::Ready || call->kvname);
        for (const WCHAR ch : View(KVCText(call->accessToken)))
            Require(ch > 0x20 && ch < 0x7F);
    });
}

}  // namespace

FUZZ_TARGET(key_names)
{
    const MallocPtr<WCHAR> name(BytesStrToWStr(std::string(input).c_str()));
    if (!name)
        return;
    CheckClearName(name.get());
    CheckEncodedName(name.get());
}

// The first line is the name, the rest the answer.
FUZZ_TARGET(key_record)
{
    const MallocPtr<WCHAR> name(BytesStrToWStr(std::string(TakeLine(input)).c_str()));
    const MallocPtr<KVKey> key(static_cast<KVKey*>(malloc(sizeof(KVKey))));
    if (!name || !key)
        return;
    Require(KVCParseJSONKey(name.get(), std::string(input).c_str(), key.get()) == 1 && key->valid == 1);
    Require(TextView(key->keyName).size() < kEncodedNameChars && TextView(key->clearName).size() < kClearNameChars);
    Require(TextView(key->version).size() < kVersionChars && TextView(key->AlgID).size() < kAlgIDChars);
    Require((key->n || !key->n_siz) && (key->e || !key->e_siz) && (key->x || !key->x_siz) && (key->y || !key->y_siz));
    KVCFreeKVKey(key.get());
    Require(!key->n && !key->crv && !key->key_ops);
    KVCFreeKVKey(key.get());
}

FUZZ_TARGET(key_list)
{
    WithSignedInCall([&](KVC* call) {
        WCHAR** names = nullptr;
        DWORD count = 0;
        const AllocFault fault = Plan(input);
        KVCGetKeys(call, &names, &count);
        Require(names || count == 0);
        for (DWORD i = 0; i < count; i++)
            Require(View(names[i]).size() <= kClearNameLimit);
        KVCFreeNames(names, count);
    });
}

FUZZ_TARGET(certificate_list)
{
    WithSignedInCall([&](KVC* call) {
        WCHAR** names = nullptr;
        WCHAR** thumbprints = nullptr;
        LONG count = 0;
        CertBlob blob = {};
        const AllocFault fault = Plan(input);
        if (KVCGetCerts(call, &names, &thumbprints, &count)) {
            for (LONG i = 0; i < count; i++)
                Require(View(names[i]).size() < kCertSlotChars && View(thumbprints[i]).size() < kCertSlotChars);
            KVCGetCertsFree(names, thumbprints);
        }
        Require(!KVCGetCert(call, TEXT("web"), &blob) || blob.der);
    });
}

FUZZ_TARGET(token_answer)
{
    SignIn(input, KVC_AUTHN_CLIENT_CREDENTIALS);
}

// The first line is the endpoint.
FUZZ_TARGET(identity)
{
    const std::string endpoint(TakeLine(input));
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), endpoint.empty() ? nullptr : Wide(endpoint).c_str());
    SignIn(input, KVC_AUTHN_MANAGED_IDENTITY | KVC_AUTHN_CLIENT_CREDENTIALS);
}

// The first line is the call's letter, followed by "c" if keys are certificates.
FUZZ_TARGET(rest_call)
{
    WithSignedInCall([&](KVC* call) {
        const std::string_view what = TakeLine(input);
        const std::string_view which = what.substr(0, 1);
        call->certificateMode = what.size() > 1 && what[1] == 'c';
        BYTE bytes[256] = {1, 2, 3};
        DWORD size = sizeof(bytes);
        KVKey key = {};
        const AllocFault fault = Plan(input);
        if (which == "s")
            KVCCryptoOp(call, TEXT("sign"), TEXT("rsa"), TEXT("1"), 0, TEXT("RS256"), bytes, 32, bytes, &size);
        else if (which == "v")
            KVCCryptoOp(call, TEXT("verify"), TEXT("web"), TEXT("1"), 1, TEXT("ES256"), bytes, 64, bytes, &size);
        else if (which == "d")
            KVCKeyDelete(call, TEXT("a \"name\""));
        else if (which == "m")
            KVCImportCertificate(call, TEXT("web"), bytes, size);
        else if (which == "t")
            KVCDoKVRESTCall(call, nullptr, 0, TEXT("web"), TEXT("POST"), TEXT("sign"), "{}", TEXT("7.3"));
        else
            KVCCreateKey(call, TEXT("web"), which == "r" ? TEXT("RSA") : TEXT("ECDSA_P256"), 2048, &key, 0);
        Require(size <= 8192);
        KVCFreeKVKey(&key);
    });
}

// The second line is the number of hashes on the list, the third the name of the key to publish, the others are
// answers. Runs each direction, then repeats with what the first run left.
FUZZ_TARGET(certificate_sync)
{
    const std::string plan(TakeLine(input));
    std::string list(41 * (strtoul(std::string(TakeLine(input)).c_str(), nullptr, 10) % 1000), 'A');
    for (size_t i = 0; i < list.size() / 41; i++) {
        const std::string number = std::to_string(i);
        list.replace(41 * i + 40 - number.size(), number.size() + 1, number + ",");
    }
    const TextString name = Wide(std::string(TakeLine(input)));
    std::filesystem::remove_all(Root().directory() + "/root/certstore");
    Root().SetText(HKEY_LOCAL_MACHINE, "CertSync", list);
    WithSignedInCall([&](KVC* call) {
        while (!input.empty())
            QueueAnswer(TakeLine(input));
        const AllocFault fault = FaultFrom(plan);
        for (int i = 0; i < 2; i++) {
            SettingsWriteNumber(HKEY_LOCAL_MACHINE, TEXT("FromKVLastSyncTime"), 0);
            KVCSyncCertsFromKVToMachine(call);
            SettingsWriteText(HKEY_LOCAL_MACHINE, TEXT("CertSync"), TEXT(""));
            KVKey key = {};
            PublishKeyCertificate(call->client, {name.c_str(), TEXT("RSA"), 2048, 0, true, &key});
            KVCFreeKVKey(&key);
        }
    });
}
