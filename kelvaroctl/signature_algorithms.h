// The signature algorithms by their names in JSON Web Algorithms, and what a host says to have each.
#pragma once

#include <string>

#include "kelvaroctl/public_key.h"

namespace kelvaroctl {

enum class SignatureFamily { Pkcs1, Pss, Curve };

struct SignatureAlgorithm {
    const char* name;
    SignatureFamily family;
    const WCHAR* hash;
    size_t digestSize;  // bytes
    const char* curve;  // of the key, NULL for RSA
};

// Letter case does not count. Throws a usage failure for a name that is not one of them.
const SignatureAlgorithm& FindSignatureAlgorithm(const std::string& name);
std::string SignatureAlgorithmNames();  // divided by commas

// Throws a usage failure when keys of this kind do not sign so.
void CheckKeyFits(const SignatureAlgorithm& algorithm, const PublicKey& key, const std::string& keyName);

// Bytes of a signature as the vault makes it.
size_t SignatureSize(const PublicKey& key);

}  // namespace kelvaroctl
