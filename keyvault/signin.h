// The two sign-in methods, and the vault name that follows from the identity. Internal to sign-in: the caller holds the
// client's signInLock, and stores the result in the client.
#pragma once

#include "keyvault/kvc.h"
#include "keyvault/token_answer.h"

// Both replace the members of `token` that the service's answer has, log their failures, and block for the network.
// NoMemory: a token was granted but couldn't be kept.
KVCLogOnResult SignInWithClientCredentials(KVCClient* kvc, Token* token);
KVCLogOnResult SignInWithManagedIdentity(const KVCClient* kvc, Token* token);

// The vault name made from an access token's object id; NULL if the token has none, or without memory. Logs the present
// name.
BldStrPtr VaultNameFromIdentity(const WCHAR* accessToken, const WCHAR* presentName);
