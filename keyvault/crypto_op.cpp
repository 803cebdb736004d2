#include "keyvault/crypto_op.h"

#include "keyvault/join.h"
#include "keyvault/json.h"
#include "keyvault/json_text.h"
#include "keyvault/rest_call.h"
#include "keyvault/throttle.h"
#include "support/base64.h"
#include "support/codepage.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// A member that cannot be encoded is left out: the service refuses such a request.
bool AppendBytes(BldStr* json, const WCHAR* opening, const BYTE* bytes, DWORD size)
{
    const MallocPtr<WCHAR> base64(KVCKelvaro_ToBase64(bytes, size));
    if (!base64)
        return true;
    const bool appended = BldStrCat(json, opening) && BldStrCat(json, base64.get()) && BldStrCat(json, TEXT("\""));
    // The bytes may be the plain text of an encryption.
    Wipe(base64.get(), View(base64.get()).size() * sizeof(WCHAR));
    return appended;
}

// digest: NULL without the member "digest". NULL: no memory for the text.
BldStr* BuildRequest(const WCHAR* alg, const DWORD* cbDigest, const BYTE* digest, const BYTE* input, DWORD inputLen)
{
    SecretStrPtr json(BldStrNew(500));
    if (!json)
        return nullptr;
    const bool built = BldStrCat(json.get(), TEXT("{\"alg\":\"")) && BldStrCatJson(json.get(), alg) &&
                       BldStrCat(json.get(), TEXT("\"")) &&
                       (!cbDigest || AppendBytes(json.get(), TEXT(",\"digest\":\""), digest, *cbDigest)) &&
                       AppendBytes(json.get(), TEXT(",\"value\":\""), input, inputLen) &&
                       BldStrCat(json.get(), TEXT("}"));
    return built ? json.release() : nullptr;
}

// The result of the last attempt's KVCDoKVRESTCall.
int Send(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyPath, const char* body)
{
    Throttle throttle;
    int good = 0;
    do {
        kvc->lastStatus = 0;
        good = KVCDoKVRESTCall(kvc, nullptr, 0, keyPath, TEXT("POST"), actionverb, body, kApiVersionWrite);
    } while (kvc->lastStatus == HTTP_THROTTLED &&
             throttle.WaitAndRetry(TEXT("KVCCryptoOp ActionThrottled"), kvc->lastStatus));
    return good;
}

SECURITY_STATUS Fail(const WCHAR* message, SECURITY_STATUS status)
{
    LogLine(message, LOG_ERROR_LEVEL);
    return status;
}

SECURITY_STATUS FailWithAnswer(const KVC* kvc, const WCHAR* message)
{
    LogError(message, kvc->lastStatus, LOG_ERROR_LEVEL);
    return NTE_FAIL;
}

SECURITY_STATUS TakeVerdict(json_object* value)
{
    return json_object_get_boolean(value) ? ERROR_SUCCESS : NTE_BAD_SIGNATURE;
}

SECURITY_STATUS TakeResult(json_object* value, BYTE* output, DWORD* outputLen)
{
    const MallocPtr<WCHAR> text(BytesStrToWStr(json_object_get_string(value)));
    if (!text)
        return NTE_INVALID_PARAMETER;
    const int decoded = KVCKelvaro_FromBase64(text.get(), &output, outputLen, 0);
    // It may be the plain text of a decryption.
    Wipe(text.get(), View(text.get()).size() * sizeof(WCHAR));
    return decoded ? ERROR_SUCCESS : NTE_FAIL;
}

}  // namespace

SECURITY_STATUS KVCCryptoOp(KVC* kvc, const WCHAR* actionverb, const WCHAR* keyName, const WCHAR* version, int isVerify,
                            const WCHAR* alg, const BYTE* input, DWORD inputLen, BYTE* output, DWORD* outputLen)
{
    LogString(TEXT("KVCCryptoOp called"), actionverb, LOG_STEP_LEVEL);
    if (!keyName)
        return Fail(TEXT("KVCCryptoOp NULL Key Name"), NTE_INVALID_PARAMETER);
    if (!kvc)
        return Fail(TEXT("KVCCryptoOp NULL KVC"), NTE_INVALID_PARAMETER);
    if (!actionverb || !version || !alg || !outputLen)
        return NTE_INVALID_PARAMETER;

    int good = 0;
    {
        const SecretStrPtr json(BuildRequest(alg, isVerify ? outputLen : nullptr, output, input, inputLen));
        const BldStrPtr keyPath = JoinText(0, {keyName, TEXT("/"), version});
        if (!json || !keyPath)
            return Fail(TEXT("KVCCryptoOp Out of memory"), NTE_FAIL);
        const SecretBytesPtr body(WStrToBytesStr(json->cStr));
        good = Send(kvc, actionverb, keyPath->cStr, body.get());
    }
    if (!good)
        return FailWithAnswer(kvc, TEXT("KVCCryptoOp KVCDoKVRESTCall Error"));
    if (kvc->lastStatus != HTTP_OK || !kvc->lastBody)
        return FailWithAnswer(kvc, TEXT("KVCCryptoOp Failed"));

    const JsonPtr answer = JsonParse(kvc->lastBody);
    json_object* value = JsonMember(answer.get(), "value");
    if (!value)
        return NTE_INVALID_PARAMETER;
    if (isVerify)
        return TakeVerdict(value);
    const SECURITY_STATUS status = TakeResult(value, output, outputLen);
    JsonWipeMember(answer.get(), "value");
    return status;
}
