// Certificates from an authority outside the vault, for the control interface.
#pragma once

#include "vaultsim/vault.h"

namespace vaultsim {

// {"key","subject","dnsNames","notBefore","notAfter","size"}: a certificate of the named key's current version, or
// without "key" of a new P-256 key; "size" is that of the DER form. Returns {"pem","der","thumbprint","hash"}; "pem"
// includes the new key. Throws std::exception for what isn't possible.
Json IssueCertificate(Vault& vault, const Json& body);

}  // namespace vaultsim
