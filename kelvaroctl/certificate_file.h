// Certificate files as issued by authorities.
#pragma once

#include <string>
#include <vector>

#include "kelvaroctl/public_key.h"

namespace kelvaroctl {

// The certificates of a file, in DER: one from a DER file, or all from a PEM file in its order. Throws a usage failure
// if there is none.
std::vector<Bytes> ReadCertificateFile(const std::string& name);

// Whether the certificate has this public key. Throws a usage failure if `der` is not a certificate.
bool IsCertificateOf(const Bytes& der, const PublicKey& key);

}  // namespace kelvaroctl
