// The PKCS#10 request of a pending certificate.
#pragma once

#include <string>

#include "vaultsim/openssl_ptr.h"
#include "vaultsim/policy.h"

namespace vaultsim {

// DER, signed by the key with SHA-256. Throws std::runtime_error.
std::string MakeCertificateRequest(const Policy& policy, EVP_PKEY* key);

}  // namespace vaultsim
