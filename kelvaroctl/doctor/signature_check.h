// Verifies a signature on this machine, without the vault. Each system has its own source, chosen by the build.
#pragma once

#include "kelvaroctl/signature_algorithms.h"

namespace kelvaroctl {

// blob: the public key, as the module exports it. Only PKCS#1 and curves; signature: in the vault's form.
bool IsSignatureOf(const Bytes& blob, const SignatureAlgorithm& algorithm, const Bytes& digest, const Bytes& signature);

}  // namespace kelvaroctl
