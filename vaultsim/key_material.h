// Key pairs: generation, PEM, and the public half as the service shows it.
#pragma once

#include <string>

#include "vaultsim/json.h"
#include "vaultsim/openssl_ptr.h"

namespace vaultsim {

struct Curve {
    const char* name;       // the service's: "P-256"
    const char* group;      // OpenSSL's
    const char* algorithm;  // the one algorithm that signs on it
    int bits;
};

const Curve* FindCurve(const std::string& name);  // null if there is none
const Curve* CurveOf(const EVP_PKEY* key);        // null for an RSA key
bool IsRsa(const EVP_PKEY* key);
int RsaBits(const EVP_PKEY* key);

// RSA: any size; EC: a curve of the table. Throw std::runtime_error.
Pkey GenerateRsa(int bits);
Pkey GenerateEc(const Curve& curve);

// The private key in a PEM text. Throws std::runtime_error.
Pkey KeyFromPem(const std::string& pem);
std::string PublicPem(EVP_PKEY* key);
std::string PrivatePem(EVP_PKEY* key);

bool SamePublicKey(const EVP_PKEY* a, const EVP_PKEY* b);

// Adds n and e, or crv, x and y. `leadingZero` puts a zero byte before n, x and y, as the service does for
// imported keys.
void AddPublicMembers(Json& jwk, const EVP_PKEY* key, bool leadingZero);

}  // namespace vaultsim
