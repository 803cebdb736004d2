// A vault's answer and a key name, both from an untrusted source.
// The input's first line is the name in UTF-8, the rest is the answer.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "keyvault/kvkey.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/text.h"

namespace {

void Require(bool holds)
{
    if (!holds)
        abort();
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
    if (KVCConvertEncodedKeyNameToClear(name.data(), clear.get(), &decoded))
        Require(TextView(clear.get()).size() <= kClearNameLimit && (decoded == 0 || decoded == 1));
}

void CheckAnswer(TextView name, const char* answer)
{
    const MallocPtr<KVKey> key(static_cast<KVKey*>(malloc(sizeof(KVKey))));
    Require(KVCParseJSONKey(name.data(), answer, key.get()) == 1 && key->valid == 1);
    Require(TextView(key->keyName).size() < kEncodedNameChars && TextView(key->clearName).size() < kClearNameChars);
    Require(TextView(key->version).size() < kVersionChars && TextView(key->AlgID).size() < kAlgIDChars);
    Require((key->n || !key->n_siz) && (key->e || !key->e_siz) && (key->x || !key->x_siz) && (key->y || !key->y_siz));
    KVCFreeKVKey(key.get());
    Require(!key->n && !key->crv && !key->key_ops);
    KVCFreeKVKey(key.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t lineEnd = input.find('\n');
    const MallocPtr<WCHAR> name(BytesStrToWStr(input.substr(0, lineEnd).c_str()));
    if (!name)
        return 0;
    CheckClearName(name.get());
    CheckEncodedName(name.get());
    CheckAnswer(name.get(), lineEnd == std::string::npos ? "" : input.c_str() + lineEnd + 1);
    return 0;
}
