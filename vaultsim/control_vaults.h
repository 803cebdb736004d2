// What the control interface does to the content of a vault.
#pragma once

#include <string>

#include "vaultsim/vault.h"

namespace vaultsim {

// All of them lock the vault themselves and throw std::exception for what cannot be.
Json DescribeVault(Vault& vault);
Pkey CurrentKey(Vault& vault, const std::string& name);

// {"name","kty","size","crv","key_ops","tags","enabled","nbf","exp","pem","leadingZero"}: a new version of the key.
Json AddKey(Vault& vault, const Json& body);
// {"keys","prefix","kty","size","crv","tags","shareMaterial"}: PREFIX000000 and on.
Json SeedKeys(Vault& vault, const Json& body);
// {"name","pem","subject","kty","size","crv","tags","enabled"} or {"count","prefix",..}: merged certificates with their
// keys.
Json AddCertificates(Vault& vault, const Json& body);

}  // namespace vaultsim
