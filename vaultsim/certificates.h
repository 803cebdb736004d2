// Certificates of a vault: reading and listing.
#pragma once

#include "vaultsim/refusal.h"
#include "vaultsim/request.h"

namespace vaultsim {

// With the vault locked.
Json CertificateBundle(const Vault& vault, const CertificateObject& certificate, const CertificateVersion& version);

Answer GetCertificate(const VaultRequest& request);
Answer ListCertificates(const VaultRequest& request);

Refusal CertificateNotFound(const std::string& name);

}  // namespace vaultsim
