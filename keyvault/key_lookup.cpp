#include "keyvault/key_lookup.h"

#include <string.h>

#include "keyvault/retry.h"
#include "support/log.h"

namespace {

// Texts and level of a failed read.
struct ReadFailure {
    const WCHAR* refused;
    const WCHAR* status;
    LONG level;
};
constexpr ReadFailure kError = {TEXT("KVCGetKey KVCDoKVRESTCall Error"), TEXT("KVCGetKey KVCDoKVRESTCall Failed"),
                                LOG_ERROR_LEVEL};
// The key may be missing.
constexpr ReadFailure kExpected = {TEXT("KVCGetKey KVCDoKVRESTCall SupressFailedReadError"),
                                   TEXT("KVCGetKey KVCDoKVRESTCall SupressFailedReadError"), LOG_DETAIL_LEVEL};

int TakeKey(const WCHAR* encodedName, const KVC* kvc, KVKey* kvk)
{
    const int parsed = KVCParseJSONKey(encodedName, kvc->lastBody, kvk);
    if (!parsed)
        LogString(TEXT("KVCGetKey KVCParseJSONKey Failed"), encodedName, LOG_ERROR_LEVEL);
    return parsed;
}

int ReadKey(KVC* kvc, const WCHAR* encodedName, KVKey* kvk, const ReadFailure& failure)
{
    VaultRequest request;
    request.keyName = encodedName;
    Retry retry(ThrottleRule(TEXT("KVCGetKey KVCDoKVRESTCall ActionThrottled")));
    const int good = SendWithRetry(kvc, retry, [&] {
        const int sent = SendToVault(kvc, request);
        if (!sent)
            LogLine(failure.refused, failure.level);
        return sent;
    });
    if (good && kvc->lastStatus == HTTP_OK)
        return TakeKey(encodedName, kvc, kvk);
    if (kvc->lastStatus != HTTP_THROTTLED)
        LogError(failure.status, kvc->lastStatus, failure.level);
    return 0;
}

}  // namespace

int KVCGetKey(KVC* kvc, const WCHAR* keyName, KVKey* kvk, int SupressFailedReadError)
{
    LogString(TEXT("KVCGetKey"), keyName, LOG_STEP_LEVEL);
    WCHAR encodedName[kEncodedNameChars] = {};
    if (kvk)
        memset(kvk, 0, sizeof(*kvk));
    int result = 0;
    if (kvc && keyName) {
        int encoded = 0;
        if (!KVCConvertClearKeyNameToEncoded(keyName, encodedName, &encoded)) {
            LogString(TEXT("KVCGetKey KVCConvertClearKeyNameToEncoded Failed"), keyName, LOG_STEP_LEVEL);
            return 0;
        }
        LogString(TEXT("KVCGetKey Encoded Name"), encodedName, LOG_STEP_LEVEL);
        result = ReadKey(kvc, encodedName, kvk, SupressFailedReadError ? kExpected : kError);
    }
    LogString(TEXT("KVCGetKey End"), keyName, LOG_DETAIL_LEVEL);
    return result;
}
