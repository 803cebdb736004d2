// Certificates as an authority outside of the vault issues them, for the control interface.
#pragma once

#include "vaultsim/vault.h"

namespace vaultsim {

// {"key","subject","dnsNames","notBefore","notAfter","size"}: a certificate of the named key's current version, or
// without "key" of a new P-256 key; "size" is that of the DER form. {"pem","der","thumbprint"}, in "pem" the new key
// too. Throws std::exception for what cannot be.
Json IssueCertificate(Vault& vault, const Json& body);

}  // namespace vaultsim
