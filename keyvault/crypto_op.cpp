#include "keyvault/crypto_op.h"

#include "keyvault/join.h"
#include "keyvault/json.h"
#include "keyvault/json_body.h"
#include "keyvault/retry.h"
#include "support/base64.h"
#include "support/codepage.h"
#include "support/fail.h"
#include "support/guards.h"

namespace {

struct Data {
    const BYTE* bytes;
    DWORD size;
};

// Appends a member in Base64. Empty data can't be encoded and is left out; the vault then refuses the request.
void AddMember(JsonBody& body, const WCHAR* opening, const Data& data)
{
    const SecretTextPtr base64(KVCKelvaro_ToBase64(data.bytes, data.size));
    const bool isEncodable = data.bytes && data.size;
    if (base64 || isEncodable)
        body.Text(opening).Text(base64.get()).Text(TEXT("\""));
}

// digest: for a verification, else NULL. NULL: no memory.
SecretBytesPtr BuildRequest(const WCHAR* alg, const Data* digest, const Data& value)
{
    JsonBody body(500);
    body.Text(TEXT("{\"alg\":")).Quoted(alg);
    if (digest)
        AddMember(body, TEXT(",\"digest\":\""), *digest);
    AddMember(body, TEXT(",\"value\":\""), value);
    return body.Text(TEXT("}")).Bytes();
}

// The result of SendToVault in the last attempt.
int Send(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyPath, const char* body)
{
    VaultRequest request = PostRequest(keyPath, actionverb);
    request.body = body;
    Retry retry(ThrottleRule(TEXT("KVCCryptoOp ActionThrottled")));
    return SendWithRetry(kvc, retry, [&] { return SendToVault(kvc, request); });
}

SECURITY_STATUS TakeVerdict(json_object* value)
{
    return json_object_get_boolean(value) ? ERROR_SUCCESS : NTE_BAD_SIGNATURE;
}

SECURITY_STATUS TakeResult(json_object* value, BYTE* output, DWORD* outputLen)
{
    // May be the plaintext of a decryption.
    const SecretTextPtr text(BytesStrToWStr(json_object_get_string(value)));
    if (!text)
        return NTE_INVALID_PARAMETER;
    return KVCKelvaro_FromBase64(text.get(), &output, outputLen, 0) ? ERROR_SUCCESS : NTE_FAIL;
}

}  // namespace

SECURITY_STATUS KVCCryptoOp(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyName, const WCHAR* version, int isVerify,
                            const WCHAR* alg, const BYTE* input, DWORD inputLen, BYTE* output, DWORD* outputLen)
{
    LogString(TEXT("KVCCryptoOp called"), actionverb, LOG_STEP_LEVEL);
    if (!keyName)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KVCCryptoOp NULL Key Name"));
    if (!kvc)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KVCCryptoOp NULL KVC"));
    if (!actionverb || !version || !alg || !outputLen)
        return NTE_INVALID_PARAMETER;

    const Data digest = {output, *outputLen};
    const SecretBytesPtr body = BuildRequest(alg, isVerify ? &digest : nullptr, {input, inputLen});
    const BldStrPtr keyPath = JoinText(0, {keyName, TEXT("/"), version});
    if (!body || !keyPath)
        return Fail(NTE_FAIL, TEXT("KVCCryptoOp Out of memory"));
    if (!Send(kvc, actionverb, keyPath->cStr, body.get()))
        return Fail(NTE_FAIL, TEXT("KVCCryptoOp KVCDoKVRESTCall Error"), kvc->lastStatus);
    if (kvc->lastStatus != HTTP_OK || !kvc->lastBody)
        return Fail(NTE_FAIL, TEXT("KVCCryptoOp Failed"), kvc->lastStatus);

    const JsonPtr answer = JsonParseAnswer(TEXT("KVCCryptoOp answer is not JSON"), kvc->lastBody);
    json_object* value = JsonMember(answer.get(), "value");
    if (!value)
        return NTE_INVALID_PARAMETER;
    return isVerify ? TakeVerdict(value) : TakeResult(value, output, outputLen);
}
