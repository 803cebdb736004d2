#include "keyvault/key_deletion.h"

#include "keyvault/join.h"
#include "keyvault/kvkey.h"
#include "keyvault/retry.h"
#include "support/fail.h"

namespace {

struct PhaseTexts {
    const WCHAR* busy;  // throttled or in conflict
    const WCHAR* failed;
};

// A conflict is final after waits of 1, 2, 4, 8 and 16 seconds, counted over both phases; throttled calls continue with
// longer waits.
constexpr RetryRule PhaseRule(const PhaseTexts& texts)
{
    return {texts.busy, LOG_ERROR_LEVEL, {{HTTP_CONFLICT, 16000, 0}, {HTTP_THROTTLED, 64000, 20}}};
}

// Where keys or certificates are deleted, and the texts of the log.
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

bool IsGone(DWORD status)
{
    return status == HTTP_OK || status == HTTP_NO_CONTENT;
}

int RunPhase(KVC* kvc, const PhaseTexts& texts, Retry& retry, const VaultRequest& request)
{
    if (SendWithRetry(kvc, retry, [&] { return SendToVault(kvc, request); }))
        return IsGone(kvc->lastStatus);
    if (kvc->lastStatus != HTTP_CONFLICT && kvc->lastStatus != HTTP_THROTTLED)
        LogError(texts.failed, kvc->lastStatus, LOG_ERROR_LEVEL);
    return 0;
}

int DeleteAndPurge(KVC* kvc, const WCHAR* encodedName, const DeletionKind& kind)
{
    VaultRequest deletion;
    deletion.verb = TEXT("DELETE");
    deletion.useCertificates = kind.useCertificates;
    deletion.keyName = encodedName;
    deletion.apiVersion = kApiVersionWrite;
    Retry deletionRetry(PhaseRule(kind.deletion));
    const int deleted = RunPhase(kvc, kind.deletion, deletionRetry, deletion);
    if (!kvc->purgeOnDelete)
        return deleted;
    const BldStrPtr path = JoinText(0, {kind.deletedArea, encodedName, TEXT("?api-version="), kApiVersionWrite});
    if (!path)
        return Fail(deleted, TEXT("KVCKeyDelete Out of memory"));
    // Purge even after a failed deletion: the key may have been deleted earlier.
    VaultRequest purge = deletion;
    purge.rawURL = path->cStr;
    purge.apiVersion = nullptr;
    Retry purgeRetry(PhaseRule(kind.purge), deletionRetry.nextWaitMs());
    return RunPhase(kvc, kind.purge, purgeRetry, purge) || deleted;
}

}  // namespace

int KVCKeyDelete(KVC* kvc, const WCHAR* keyName)
{
    LogLine(TEXT("KVCKeyDelete"), LOG_STEP_LEVEL);
    if (!keyName || !kvc)
        return Fail(0, TEXT("KVCKeyDelete NULL Parameter"));
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    // A longer name has no encoded form, so there is no such key.
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
