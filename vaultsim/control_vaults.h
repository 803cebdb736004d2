// The control interface's operations on a vault's content.
#pragma once

#include <string>

#include "vaultsim/vault.h"

namespace vaultsim {

// All of them lock the vault and throw std::exception for what isn't possible.
Json DescribeVault(Vault& vault);
Pkey CurrentKey(Vault& vault, const std::string& name);

// {"name","kty","size","crv","key_ops","tags","enabled","nbf","exp","pem","leadingZero"}: a new version of the key.
Json AddKey(Vault& vault, const Json& body);
// {"keys","prefix","kty","size","crv","tags","shareMaterial"}: PREFIX000000 and up.
Json SeedKeys(Vault& vault, const Json& body);
// {"name","pem","subject","kty","size","crv","tags","enabled"} or {"count","prefix",..}: merged certificates with their
// keys.
Json AddCertificates(Vault& vault, const Json& body);

}  // namespace vaultsim
