// The signature algorithms, by their JSON Web Algorithms names, and their parameters for the provider.
#pragma once

#include <string>

#include "kelvaroctl/public_key.h"
#include "platform/owner.h"

namespace kelvaroctl {

enum class SignatureFamily { Pkcs1, Pss, Curve };

struct SignatureAlgorithm {
    const char* name;
    SignatureFamily family;
    const WCHAR* hash;
    size_t digestSize;  // bytes
    const char* curve;  // of the key, NULL for RSA
    Bytes objectId;     // in a certificate request; empty: not used there
};

// Ignores letter case. Throws a usage failure for an unknown name.
const SignatureAlgorithm& FindSignatureAlgorithm(const std::string& name);
std::string SignatureAlgorithmNames();  // separated by commas

// The one that certificate requests and `doctor` use. curve: the key's, "P-256"; anything else: an RSA key.
const SignatureAlgorithm& AlgorithmFor(const std::string& curve);
const SignatureAlgorithm& AlgorithmFor(const PublicKey& key);

// Throws a usage failure if the key does not support the algorithm.
void CheckKeyFits(const SignatureAlgorithm& algorithm, const PublicKey& key, const std::string& keyName);

// The padding information of a call; must live as long as the call.
struct Padding : NonCopyable {
    explicit Padding(const SignatureAlgorithm& algorithm);

    BCRYPT_PKCS1_PADDING_INFO pkcs1 = {};
    BCRYPT_PSS_PADDING_INFO pss = {};
    void* info = nullptr;
    DWORD flags = 0;
};

// Bytes of a signature in the vault's form.
size_t SignatureSize(const PublicKey& key);

}  // namespace kelvaroctl
