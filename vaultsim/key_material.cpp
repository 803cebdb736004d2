#include "vaultsim/key_material.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <iterator>
#include <stdexcept>

#include "vaultsim/base64url.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

constexpr Curve kCurves[] = {
    {"P-256", "prime256v1", "ES256", 256},
    {"P-256K", "secp256k1", "ES256K", 256},
    {"P-384", "secp384r1", "ES384", 384},
    {"P-521", "secp521r1", "ES512", 521},
};

std::string Number(const EVP_PKEY* key, const char* parameter, int width)
{
    BIGNUM* raw = nullptr;
    if (EVP_PKEY_get_bn_param(key, parameter, &raw) != 1)
        throw std::runtime_error(std::string("no key parameter ") + parameter);
    const BignumPtr number(raw);
    const int size = width > 0 ? width : BN_num_bytes(number.get());
    std::string bytes(static_cast<size_t>(size), '\0');
    if (BN_bn2binpad(number.get(), reinterpret_cast<unsigned char*>(bytes.data()), size) != size)
        throw std::runtime_error("key parameter too wide");
    return bytes;
}

}  // namespace

const Curve* FindCurve(const std::string& name)
{
    return FindByName(kCurves, name);
}

const Curve* CurveOf(const EVP_PKEY* key)
{
    char group[64] = "";
    if (IsRsa(key) || EVP_PKEY_get_group_name(key, group, sizeof group, nullptr) != 1)
        return nullptr;
    for (const Curve& curve : kCurves) {
        if (std::string(group) == curve.group)
            return &curve;
    }
    return nullptr;
}

bool IsRsa(const EVP_PKEY* key)
{
    return EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA;
}

int RsaBits(const EVP_PKEY* key)
{
    return EVP_PKEY_get_bits(key);
}

Pkey GenerateRsa(int bits)
{
    Pkey key = OwnPkey(EVP_RSA_gen(static_cast<unsigned>(bits)));
    if (!key)
        throw std::runtime_error("RSA key generation failed");
    return key;
}

Pkey GenerateEc(const Curve& curve)
{
    Pkey key = OwnPkey(EVP_EC_gen(curve.group));
    if (!key)
        throw std::runtime_error("EC key generation failed");
    return key;
}

Pkey KeyFromPem(const std::string& pem)
{
    Pkey key = OwnPkey(ReadPem(pem, PEM_read_bio_PrivateKey));
    if (!key || (!IsRsa(key.get()) && !CurveOf(key.get())))
        throw std::runtime_error("the PEM text has no usable key");
    return key;
}

std::string PublicPem(EVP_PKEY* key)
{
    return WritePem([&](BIO* bio) { return PEM_write_bio_PUBKEY(bio, key); });
}

std::string PrivatePem(EVP_PKEY* key)
{
    return WritePem(
        [&](BIO* bio) { return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr); });
}

bool SamePublicKey(const EVP_PKEY* a, const EVP_PKEY* b)
{
    return a && b && EVP_PKEY_eq(a, b) == 1;
}

void AddPublicMembers(Json& jwk, const EVP_PKEY* key, bool leadingZero)
{
    const std::string padding(leadingZero ? 1 : 0, '\0');
    if (IsRsa(key)) {
        jwk["n"] = ToBase64Url(padding + Number(key, OSSL_PKEY_PARAM_RSA_N, 0));
        jwk["e"] = ToBase64Url(Number(key, OSSL_PKEY_PARAM_RSA_E, 0));
        return;
    }
    const Curve& curve = *CurveOf(key);
    const int width = (curve.bits + 7) / 8;
    jwk["crv"] = curve.name;
    jwk["x"] = ToBase64Url(padding + Number(key, OSSL_PKEY_PARAM_EC_PUB_X, width));
    jwk["y"] = ToBase64Url(padding + Number(key, OSSL_PKEY_PARAM_EC_PUB_Y, width));
}

}  // namespace vaultsim
