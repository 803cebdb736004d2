// Signatures and encryption by the service's algorithm names.
#pragma once

#include <string>

#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

struct SignatureAlgorithm {
    const char* name;
    const char* curve;   // null: an RSA algorithm
    const char* digest;  // OpenSSL's name; null: the input is signed as it is
    size_t digestSize;   // bytes; 0: as many as PKCS#1 has room for
    bool pss;
};

struct EncryptionAlgorithm {
    const char* name;
    const char* oaepDigest;  // null: PKCS#1 version 1.5
};

const SignatureAlgorithm* FindSignatureAlgorithm(const std::string& name);
const EncryptionAlgorithm* FindEncryptionAlgorithm(const std::string& name);

// The key must be of the algorithm's kind and the digest of its size. EC signatures are r and s concatenated.
std::string SignDigest(EVP_PKEY* key, const SignatureAlgorithm& algorithm, const std::string& digest);
bool VerifyDigest(EVP_PKEY* key, const SignatureAlgorithm& algorithm, const std::string& digest,
                  const std::string& signature);

// Throw std::runtime_error if the input doesn't fit or doesn't decrypt.
std::string Encrypt(EVP_PKEY* key, const EncryptionAlgorithm& algorithm, const std::string& plain);
std::string Decrypt(EVP_PKEY* key, const EncryptionAlgorithm& algorithm, const std::string& cipher);

}  // namespace vaultsim
