#include "keyvault/key_lookup.h"

#include <string.h>

#include "keyvault/retry.h"
#include "support/log.h"

namespace {

// A read that failed goes out as an error, or as a detail when the caller only asked whether the key is there.
class ReadFailureLog {
  public:
    explicit ReadFailureLog(bool isExpected) : isExpected_(isExpected) {}

    void Refused() const { LogLine(isExpected_ ? kExpected : TEXT("KVCGetKey KVCDoKVRESTCall Error"), level()); }
    void Status(DWORD status) const
    {
        LogError(isExpected_ ? kExpected : TEXT("KVCGetKey KVCDoKVRESTCall Failed"), status, level());
    }

  private:
    static constexpr const WCHAR* kExpected = TEXT("KVCGetKey KVCDoKVRESTCall SupressFailedReadError");

    LONG level() const { return isExpected_ ? LOG_DETAIL_LEVEL : LOG_ERROR_LEVEL; }

    bool isExpected_;
};

int TakeKey(const WCHAR* encodedName, const KVC* kvc, KVKey* kvk)
{
    const int parsed = KVCParseJSONKey(encodedName, kvc->lastBody, kvk);
    if (!parsed)
        LogString(TEXT("KVCGetKey KVCParseJSONKey Failed"), encodedName, LOG_ERROR_LEVEL);
    return parsed;
}

int ReadKey(KVC* kvc, const WCHAR* encodedName, KVKey* kvk, const ReadFailureLog& failures)
{
    VaultRequest request;
    request.keyName = encodedName;
    Retry retry(ThrottleRule(TEXT("KVCGetKey KVCDoKVRESTCall ActionThrottled")));
    const int good = SendWithRetry(kvc, retry, [&] {
        const int sent = SendToVault(kvc, request);
        if (!sent)
            failures.Refused();
        return sent;
    });
    if (good && kvc->lastStatus == HTTP_OK)
        return TakeKey(encodedName, kvc, kvk);
    if (kvc->lastStatus != HTTP_THROTTLED)
        failures.Status(kvc->lastStatus);
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
        result = ReadKey(kvc, encodedName, kvk, ReadFailureLog(SupressFailedReadError != 0));
    }
    LogString(TEXT("KVCGetKey End"), keyName, LOG_DETAIL_LEVEL);
    return result;
}
