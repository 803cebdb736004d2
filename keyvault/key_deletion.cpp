#include "keyvault/key_deletion.h"

#include <algorithm>

#include "keyvault/join.h"
#include "keyvault/kvkey.h"
#include "keyvault/rest_call.h"
#include "support/clock.h"
#include "support/log.h"

namespace {

struct PhaseTexts {
    const WCHAR* busy;  // throttled or in conflict
    const WCHAR* failed;
};

// Where objects of a kind are deleted and purged, and what the log calls that.
struct DeletionKind {
    int useCertificates;
    const WCHAR* deletedArea;
    PhaseTexts deletion;
    PhaseTexts purge;
};

constexpr DeletionKind kPlainKey = {
    0,
    TEXT("/deletedkeys/"),
    {TEXT("KVCLowLevelDeleteKey Failed - Throttled or Conflict - Retry"), TEXT("KVCLowLevelDeleteKey Failed")},
    {TEXT("KVCLowLevelDeleteKey PURGE Failed - Throttled or Conflict - Retry"),
     TEXT("KVCLowLevelDeleteKey PURGE Failed")},
};
constexpr DeletionKind kCertificate = {
    1,
    TEXT("/deletedcertificates/"),
    {TEXT("KVCLowLevelDeleteKeyCertificate Failed - Throttled or Conflict - Retry"),
     TEXT("KVCLowLevelDeleteKeyCertificate Failed")},
    {TEXT("KVCLowLevelDeleteKeyCertificate PURGE Failed - Throttled or Conflict - Retry"),
     TEXT("KVCLowLevelDeleteKeyCertificate PURGE Failed")},
};

// The waits of one deletion, shared by both phases: a conflict is final once 1, 2, 4, 8 and 16 seconds have been
// waited, while a throttled call goes on with longer ones.
class DeletionWaits {
  public:
    // True when a conflict is worth a wait.
    bool ConflictMayPass() const { return waitMs_ <= kLongestConflictWaitMs; }

    void Wait()
    {
        ClockSleep(waitMs_);
        waitMs_ = std::min(2 * waitMs_, kLongestWaitMs);
    }

  private:
    static constexpr DWORD kLongestConflictWaitMs = 16000;
    static constexpr DWORD kLongestWaitMs = 64000;

    DWORD waitMs_ = 1000;
};

bool IsGone(DWORD status)
{
    return status == HTTP_OK || status == HTTP_NO_CONTENT;
}

// Repeats `call` until it has succeeded or failed for good. call: gives the result of KVCDoKVRESTCall.
template <typename Call>
int RunPhase(const KVC* kvc, const PhaseTexts& texts, DeletionWaits& waits, Call call)
{
    constexpr int kMostThrottled = 20;
    int throttled = 0;
    for (;;) {
        if (call())
            return IsGone(kvc->lastStatus);
        const DWORD status = kvc->lastStatus;
        if (status != HTTP_CONFLICT && status != HTTP_THROTTLED) {
            LogError(texts.failed, status, LOG_ERROR_LEVEL);
            return 0;
        }
        LogError(texts.busy, status, LOG_ERROR_LEVEL);
        if (status == HTTP_CONFLICT && !waits.ConflictMayPass())
            return 0;
        waits.Wait();
        if (status == HTTP_CONFLICT ? !waits.ConflictMayPass() : ++throttled == kMostThrottled)
            return 0;
    }
}

int DeleteAndPurge(KVC* kvc, const WCHAR* encodedName, const DeletionKind& kind)
{
    DeletionWaits waits;
    const int deleted = RunPhase(kvc, kind.deletion, waits, [&] {
        return KVCDoKVRESTCall(kvc, nullptr, kind.useCertificates, encodedName, TEXT("DELETE"), nullptr, nullptr,
                               kApiVersionWrite);
    });
    if (!kvc->purgeOnDelete)
        return deleted;
    const BldStrPtr path = JoinText(0, {kind.deletedArea, encodedName, TEXT("?api-version="), kApiVersionWrite});
    if (!path) {
        LogLine(TEXT("KVCKeyDelete Out of memory"), LOG_ERROR_LEVEL);
        return deleted;
    }
    // What cannot be deleted may have been deleted before.
    const int purged = RunPhase(kvc, kind.purge, waits, [&] {
        return KVCDoKVRESTCall(kvc, path->cStr, kind.useCertificates, encodedName, TEXT("DELETE"), nullptr, nullptr,
                               nullptr);
    });
    return purged || deleted;
}

}  // namespace

int KVCKeyDelete(KVC* kvc, const WCHAR* keyName)
{
    LogLine(TEXT("KVCKeyDelete"), LOG_STEP_LEVEL);
    if (!keyName || !kvc) {
        LogLine(TEXT("KVCKeyDelete NULL Parameter"), LOG_ERROR_LEVEL);
        return 0;
    }
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    // A longer name has no form in the vault, and no key there either.
    if (!KVCConvertClearKeyNameToEncoded(keyName, encodedName, &encoded))
        return 0;
    return kvc->certificateMode ? KVCLowLevelDeleteKeyCertificate(kvc, encodedName)
                                : KVCLowLevelDeleteKey(kvc, encodedName);
}

int KVCLowLevelDeleteKey(KVC* kvc, const WCHAR* encodedName)
{
    return DeleteAndPurge(kvc, encodedName, kPlainKey);
}

int KVCLowLevelDeleteKeyCertificate(KVC* kvc, const WCHAR* encodedName)
{
    return DeleteAndPurge(kvc, encodedName, kCertificate);
}
