// Creating a key in hardware or, if the vault doesn't offer that, in software.
#pragma once

#include "keyvault/json_body.h"
#include "keyvault/key_creation_kind.h"
#include "keyvault/retry.h"
#include "support/fail.h"

struct Creation {
    int useCertificates;
    const WCHAR* encodedName;
    // Texts of the log.
    const WCHAR* refused;
    const WCHAR* throttled;
    const WCHAR* noMemory;
};

// Sends one creation; the result of SendToVault.
int SendCreation(KVC* kvc, const Creation& creation, const char* body);

// The tags that identify a key later, and the end of the request: "AlgID":"algId","KeyName":"keyName"}}
void AddKeyTags(JsonBody& body, const WCHAR* algId, const WCHAR* keyName);

// Sends a creation until kvc->lastStatus is final; both key types share the waits for throttled answers.
// build(hsmSuffix): the body for a key type with this suffix, NULL without memory. onSoftware(): called before the
// software key is tried.
// 1: the answer is in `kvc`. 0, logged: no memory for the request.
template <typename Build, typename OnSoftware>
int CreateHardwareFirst(KVC* kvc, const Creation& creation, Build build, OnSoftware onSoftware)
{
    Retry retry(ThrottleRule(creation.throttled));
    SecretBytesPtr body;
    const auto create = [&](const WCHAR* hsmSuffix) {
        SendWithRetry(kvc, retry, [&] {
            body = build(hsmSuffix);
            return body ? SendCreation(kvc, creation, body.get()) : 0;
        });
    };
    create(kHsmSuffix);
    if (IsHardwareRefusal(kvc->lastStatus)) {
        onSoftware();
        create(TEXT(""));
    }
    return body ? 1 : Fail(0, creation.noMemory);
}
