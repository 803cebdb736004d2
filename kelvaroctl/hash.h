// Digests, computed by the platform.
#pragma once

#include <string>

#include "kelvaroctl/owner.h"
#include "kelvaroctl/text.h"

namespace kelvaroctl {

inline void CloseAlgorithm(BCRYPT_ALG_HANDLE algorithm)
{
    BCryptCloseAlgorithmProvider(algorithm, 0);
}
using AlgorithmProvider = Owner<void, CloseAlgorithm>;

// algorithm: "SHA1", "SHA256", "SHA384" or "SHA512".
Bytes Digest(const WCHAR* algorithm, size_t digestSize, const Bytes& data);

// The digest of a file of any size. Throws a usage failure if it cannot be read.
Bytes FileDigest(const WCHAR* algorithm, size_t digestSize, const std::string& fileName);

}  // namespace kelvaroctl
