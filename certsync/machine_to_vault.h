// A certificate that a host has installed for a key, on its way into the vault.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// The key that is being released, all borrowed.
struct PublishedKey {
    const WCHAR* name;     // clear name, not NULL
    const WCHAR* algName;  // CNG algorithm name
    DWORD bitLength;
    DWORD exportPolicy;
    bool isMachine;
    KVKey* kvk;  // given up: its buffers are released or replaced
};

// Merges the newest certificate that is bound to the key in the store of its scope into the key's certificate object of
// the vault, unless it is in step already. client: the key's client, or NULL. Does not sign in: the calls go out with
// the token that the client holds. No result: failures are logged and nothing is recorded, so that a later release
// tries again. Blocks for up to four exchanges, longer when throttled.
void PublishKeyCertificate(KVCClient* client, const PublishedKey& key);
