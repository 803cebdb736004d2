// The signature algorithms, by their JSON Web Algorithms names, and their parameters for the provider.
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

// Ignores letter case. Throws a usage failure for an unknown name.
const SignatureAlgorithm& FindSignatureAlgorithm(const std::string& name);
std::string SignatureAlgorithmNames();  // separated by commas

// Throws a usage failure if the key does not support the algorithm.
void CheckKeyFits(const SignatureAlgorithm& algorithm, const PublicKey& key, const std::string& keyName);

// Bytes of a signature in the vault's form.
size_t SignatureSize(const PublicKey& key);

}  // namespace kelvaroctl
