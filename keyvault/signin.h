// The two sign-in methods and the vault name that follows the identity. Internal to sign-in: the caller holds the
// client's lock.
#pragma once

#include "keyvault/kvc.h"

// Each signs `kvc` in and replaces its token strings. true on success; failures are logged. Block for the network.
bool SignInWithClientCredentials(KVC* kvc);
bool SignInWithManagedIdentity(KVC* kvc);

// Takes the members "access_token" and "token_type" of a sign-in answer into the client. `body` is zero-terminated
// text.
struct TokenAnswer {
    bool accessToken;  // it was there and has been taken
    bool tokenType;
};
TokenAnswer TakeTokenAnswer(KVC* kvc, const char* body);

// Replaces the vault name by one derived from the token's object id; silent on any failure, which leaves the name as it
// is.
void NameVaultAfterIdentity(KVC* kvc);
