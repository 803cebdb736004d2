// A key is asked for in hardware first, and in software where the vault has none.
#pragma once

#include "keyvault/key_creation_kind.h"
#include "keyvault/retry.h"

// Sends a creation until kvc->lastStatus is final. send(hsmSuffix): sends the request for a key type with this suffix,
// as SendWithRetry takes it. refused(): logs that the hardware was refused. throttled: the line of a throttled answer;
// both types share the waits.
template <typename Send, typename Refused>
void CreateHardwareFirst(KVC* kvc, const WCHAR* throttled, Send send, Refused refused)
{
    Retry retry(ThrottleRule(throttled));
    SendWithRetry(kvc, retry, [&] { return send(kHsmSuffix); });
    if (!IsHardwareRefusal(kvc->lastStatus))
        return;
    refused();
    SendWithRetry(kvc, retry, [&] { return send(TEXT("")); });
}
