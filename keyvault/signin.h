// The two sign-in methods and the vault name that follows the identity. Internal to sign-in: the caller holds the
// client's signInLock, and puts what a method brings into the client.
#pragma once

#include "keyvault/kvc.h"
#include "support/guards.h"

// What a sign-in brought, members that were missing are NULL. A method that fails may still bring a type.
struct Token {
    SecretStrPtr type;
    SecretStrPtr text;
};

// NoMemory: a token came, but couldn't be kept.
// Each replaces the members of `token` that the service's answer has, and logs its failures. Both block for the
// network.
KVCLogOnResult SignInWithClientCredentials(KVCClient* kvc, Token* token);
KVCLogOnResult SignInWithManagedIdentity(const KVCClient* kvc, Token* token);

// Takes "access_token" and "token_type" out of a sign-in answer. Neither is taken when one of them has a character that
// isn't visible ASCII: the text would go out inside a header line.
// body: zero-terminated, or NULL.
struct TokenAnswer {
    bool text;  // taken
    bool type;
    bool noMemory;  // for either, so that neither is taken: half a token would count as one for an hour
};
TokenAnswer TakeTokenAnswer(const char* body, Token* token);

// The vault name that follows from an access token's object id; NULL without one, or without memory. Logs the present
// name.
BldStrPtr VaultNameFromIdentity(const WCHAR* accessToken, const WCHAR* presentName);
