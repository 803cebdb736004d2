// Certificates in files, as authorities hand them out.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/public_key.h"

namespace kelvaroctl {

// The certificates of a file in DER form: one in DER, or all that a PEM text holds, in its order. Throws a usage
// failure when there is none.
std::vector<Bytes> ReadCertificateFile(const std::string& name);

// Whether the certificate's public key is this one. Throws a usage failure when `der` is no certificate.
bool IsCertificateOf(const Bytes& der, const PublicKey& key);

}  // namespace kelvaroctl
