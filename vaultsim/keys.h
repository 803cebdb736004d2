// Keys of a vault: creation, reading, listing.
#pragma once

#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

// What a request for a new key asks for, be it a key or the policy of a certificate.
struct KeyKind {
    bool rsa = true;
    bool hardware = false;
    int bits = 2048;              // RSA
    const char* curve = nullptr;  // otherwise
};

// Throws a Refusal for a kind that the service has not, and for a hardware key of a standard vault.
KeyKind ReadKeyKind(const Vault& vault, const Json& object);
Pkey MakeMaterial(const KeyKind& kind);
std::vector<std::string> DefaultOperations(bool rsa);

// These two are called with the vault locked.
Json KeyBundle(const Vault& vault, const KeyObject& key, const KeyVersion& version);
const KeyVersion& FindVersion(const KeyObject& key, const std::string& version);  // empty: the current one

Answer CreateKey(const VaultRequest& request);
Answer GetKey(const VaultRequest& request);
Answer ListKeys(const VaultRequest& request);

Refusal KeyNotFound(const std::string& name);

}  // namespace vaultsim
