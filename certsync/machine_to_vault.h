// Publishes the certificate that a host has installed for a key in the vault.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/kvkey.h"

// The key being released; all borrowed.
struct PublishedKey {
    const WCHAR* name;     // clear name, not NULL
    const WCHAR* algName;  // CNG algorithm name
    DWORD bitLength;
    DWORD exportPolicy;
    bool isMachine;
    KVKey* kvk;  // its buffers are released or replaced
};

// Merges the newest certificate that is bound to the key in the store of its scope into the key's certificate in the
// vault, unless they are already in step. client: the key's client, or NULL. Uses the client's current token without
// signing in. Returns nothing: after a failure, which is logged, a later release of the key tries again. But if only
// the merge failed, the certificate counts as in step. Blocks for up to four exchanges, longer when throttled.
void PublishKeyCertificate(KVCClient* client, const PublishedKey& key);
