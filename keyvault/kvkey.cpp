#include "keyvault/kvkey.h"

#include <stdlib.h>
#include <string.h>

#include "keyvault/json.h"
#include "keyvault/key_algorithms.h"
#include "support/base64.h"
#include "support/bldstr.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

WCHAR* MemberText(json_object* object, const char* name)
{
    return BytesStrToWStr(JsonMemberText(object, name));
}

void ReadBytes(json_object* key, const char* name, BYTE** bytes, DWORD* size)
{
    const MallocPtr<WCHAR> text(MemberText(key, name));
    if (!text)
        return;
    BYTE* decoded = nullptr;
    DWORD cbDecoded = 0;
    // Without memory the decoder still succeeds, but returns only the size.
    if (KVCKelvaro_FromBase64(text.get(), &decoded, &cbDecoded, 1) && decoded) {
        *bytes = decoded;
        *size = cbDecoded;
    }
}

void ReadVersion(const char* kid, WCHAR (&version)[kVersionChars])
{
    const char* slash = kid ? strrchr(kid, '/') : nullptr;
    if (slash)
        TextWriter(version, kVersionChars).Bytes(slash + 1);
}

bool AppendOperation(BldStr* joined, const char* operation, bool isFirst)
{
    const MallocPtr<WCHAR> text(BytesStrToWStr(operation));
    return text && (isFirst || BldStrCat(joined, TEXT(","))) && BldStrCat(joined, text.get());
}

// The operations joined by ","; NULL if `operations` isn't an array, or without memory.
WCHAR* JoinOperations(json_object* operations)
{
    if (!json_object_is_type(operations, json_type_array))
        return nullptr;
    const BldStrPtr joined(BldStrNew(100));
    if (!joined || !joined->cStr)
        return nullptr;
    bool isFirst = true;
    const size_t count = json_object_array_length(operations);
    for (size_t i = 0; i < count; i++) {
        const char* operation = json_object_get_string(json_object_array_get_idx(operations, i));
        if (!operation)
            continue;
        if (!AppendOperation(joined.get(), operation, isFirst))
            return nullptr;
        isFirst = false;
    }
    const size_t cb = (size_t{joined->length} + 1) * sizeof(WCHAR);
    WCHAR* text = static_cast<WCHAR*>(calloc(1, cb));
    if (text)
        memcpy(text, joined->cStr, cb);
    return text;
}

void ReadKeyMembers(json_object* key, KVKey* theKey)
{
    ReadVersion(JsonMemberText(key, "kid"), theKey->version);
    theKey->crv = MemberText(key, "crv");
    theKey->d = MemberText(key, "d");
    theKey->dp = MemberText(key, "dp");
    theKey->dq = MemberText(key, "dq");
    ReadBytes(key, "e", &theKey->e, &theKey->e_siz);
    theKey->k = MemberText(key, "k");
    theKey->kty = MemberText(key, "kty");
    theKey->isEC = TextEqual(theKey->kty, TEXT("EC")) || TextEqual(theKey->kty, TEXT("EC-HSM")) ? 1 : 0;
    ReadBytes(key, "n", &theKey->n, &theKey->n_siz);
    theKey->p = MemberText(key, "p");
    theKey->q = MemberText(key, "q");
    theKey->qi = MemberText(key, "qi");
    ReadBytes(key, "x", &theKey->x, &theKey->x_siz);
    ReadBytes(key, "y", &theKey->y, &theKey->y_siz);
    theKey->key_ops = JoinOperations(JsonMember(key, "key_ops"));
}

// The purpose comes from the tag, the size from the curve. For an unknown curve AlgID is the text of the tag.
void AlgIDFromTag(KVKey* theKey, const char* tag)
{
    const MallocPtr<WCHAR> text(BytesStrToWStr(tag));
    TextCopy(theKey->AlgID, kAlgIDChars, View(text.get()));
    const bool isECDH = TextContains(theKey->AlgID, TEXT("ECDH"));
    if (const Curve* curve = CurveInText(theKey->crv))
        TextCopy(theKey->AlgID, kAlgIDChars, isECDH ? curve->ecdh : curve->ecdsa);
}

void AlgIDFromOperations(KVKey* theKey)
{
    const bool signs = TextContains(theKey->key_ops, TEXT("sign"));
    if (const Curve* curve = signs ? CurveInText(theKey->crv) : CurveNamed(theKey->crv))
        TextCopy(theKey->AlgID, kAlgIDChars, signs ? curve->ecdsa : curve->ecdh);
}

void SettleAlgID(json_object* tags, KVKey* theKey)
{
    if (!json_object_is_type(tags, json_type_object))
        return;
    const char* tag = JsonMemberText(tags, "AlgID");
    if (!theKey->isEC)
        TextCopy(theKey->AlgID, kAlgIDChars, BCRYPT_RSA_ALGORITHM);
    else if (tag)
        AlgIDFromTag(theKey, tag);
    else
        AlgIDFromOperations(theKey);
}

bool Refused(const void* argument, const WCHAR* message)
{
    if (!argument)
        LogLine(message, LOG_ERROR_LEVEL);
    return !argument;
}

template <typename T>
void FreeAndClear(T** block)
{
    free(*block);
    *block = nullptr;
}

void WipeAndClear(WCHAR** text)
{
    WipeFreeText(*text);
    *text = nullptr;
}

}  // namespace

int KVCParseJSONKey(const WCHAR* KeyName, const char* KeyJSON, KVKey* theKey)
{
    LogLine(TEXT("KVCParseJSONKey"), LOG_STEP_LEVEL);
    if (Refused(theKey, TEXT("KVCParseJSONKey theKey NULL")) ||
        Refused(KeyName, TEXT("KVCParseJSONKey KeyName NULL")) ||
        Refused(KeyJSON, TEXT("KVCParseJSONKey KeyJSON NULL")))
        return 0;

    memset(theKey, 0, sizeof(*theKey));
    TextCopyCut(theKey->keyName, kEncodedNameChars, KeyName);
    int encoded = 0;
    if (!KVCConvertEncodedKeyNameToClear(KeyName, theKey->clearName, &encoded))
        TextCopy(theKey->clearName, kClearNameChars, TEXT("InvalidName"));

    const JsonPtr root = JsonParseAnswer(TEXT("KVCParseJSONKey answer is not JSON"), KeyJSON);
    if (json_object* key = JsonMember(root.get(), "key")) {
        ReadKeyMembers(key, theKey);
        SettleAlgID(JsonMember(root.get(), "tags"), theKey);
    }
    theKey->valid = 1;
    return 1;
}

void KVCFreeKVKey(KVKey* theKey)
{
    if (!theKey || !theKey->valid)
        return;
    FreeAndClear(&theKey->crv);
    WipeAndClear(&theKey->d);
    WipeAndClear(&theKey->dp);
    WipeAndClear(&theKey->dq);
    FreeAndClear(&theKey->e);
    WipeAndClear(&theKey->k);
    FreeAndClear(&theKey->kty);
    FreeAndClear(&theKey->n);
    WipeAndClear(&theKey->p);
    WipeAndClear(&theKey->q);
    WipeAndClear(&theKey->qi);
    FreeAndClear(&theKey->x);
    FreeAndClear(&theKey->y);
    FreeAndClear(&theKey->key_ops);
}
