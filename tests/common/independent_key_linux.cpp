#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>

#include "tests/common/independent_key.h"

namespace {
struct OpensslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(OSSL_PARAM_BLD* p) const { OSSL_PARAM_BLD_free(p); }
    void operator()(OSSL_PARAM* p) const { OSSL_PARAM_free(p); }
    void operator()(BIGNUM* p) const { BN_free(p); }
    void operator()(ECDSA_SIG* p) const { ECDSA_SIG_free(p); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

const unsigned char* In(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* Out(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

Owned<BIGNUM> Number(const std::string& bigEndian)
{
    return Owned<BIGNUM>(BN_bin2bn(In(bigEndian), static_cast<int>(bigEndian.size()), nullptr));
}

// What an i2d function of OpenSSL writes.
template <typename T>
std::string Encoded(int (*encode)(const T*, unsigned char**), const T* object)
{
    std::string der(static_cast<size_t>(encode(object, nullptr)), 0);
    unsigned char* at = Out(der);
    encode(object, &at);
    return der;
}

std::string Build(const char* type, OSSL_PARAM_BLD* builder)
{
    const Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(builder));
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1)
        throw std::runtime_error(std::string("OpenSSL does not take these numbers for a key of ") + type);
    const Owned<EVP_PKEY> owned(key);
    return Encoded<EVP_PKEY>(i2d_PUBKEY, key);
}

// r and s side by side as the structure that OpenSSL reads.
std::string DerSignature(const std::string& raw)
{
    const size_t half = raw.size() / 2;
    const Owned<ECDSA_SIG> pair(ECDSA_SIG_new());
    ECDSA_SIG_set0(pair.get(), Number(raw.substr(0, half)).release(), Number(raw.substr(half)).release());
    return Encoded<ECDSA_SIG>(i2d_ECDSA_SIG, pair.get());
}
}  // namespace

std::string IndependentKey::DerOfNumbers(const std::string& modulus, const std::string& exponent)
{
    const Owned<BIGNUM> n = Number(modulus);
    const Owned<BIGNUM> e = Number(exponent);
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
    return Build("RSA", builder.get());
}

std::string IndependentKey::DerOfPoint(const std::string& group, const std::string& point)
{
    const std::string octets = "\4" + point;  // uncompressed
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, group.c_str(), 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, octets.data(), octets.size());
    return Build("EC", builder.get());
}

bool IndependentKey::CanTellOf(const std::string&, SignatureForm) const
{
    return true;
}

bool IndependentKey::Verifies(const std::string& digest, const std::string& signature, const std::string& hash,
                              SignatureForm form) const
{
    const unsigned char* at = In(der_);
    const Owned<EVP_PKEY> key(d2i_PUBKEY(nullptr, &at, static_cast<long>(der_.size())));
    const Owned<EVP_PKEY_CTX> context(key ? EVP_PKEY_CTX_new(key.get(), nullptr) : nullptr);
    if (!context || EVP_PKEY_verify_init(context.get()) != 1)
        throw std::runtime_error("OpenSSL cannot verify with this key");
    const bool rsa = EVP_PKEY_is_a(key.get(), "RSA") == 1;
    const bool pss = form == SignatureForm::Pss;
    if (rsa && (EVP_PKEY_CTX_set_rsa_padding(context.get(), pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) != 1 ||
                EVP_PKEY_CTX_set_signature_md(context.get(), EVP_get_digestbyname(hash.c_str())) != 1 ||
                (pss && EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), RSA_PSS_SALTLEN_DIGEST) != 1)))
        throw std::runtime_error("OpenSSL cannot verify so");
    const std::string read = rsa || form == SignatureForm::Der ? signature : DerSignature(signature);
    return EVP_PKEY_verify(context.get(), In(read), read.size(), In(digest), digest.size()) == 1;
}

std::string Digest(const std::string& data, const std::string& hash)
{
    std::string digest(EVP_MAX_MD_SIZE, 0);
    unsigned size = 0;
    if (EVP_Digest(data.data(), data.size(), Out(digest), &size, EVP_get_digestbyname(hash.c_str()), nullptr) != 1)
        throw std::runtime_error("no digest " + hash);
    digest.resize(size);
    return digest;
}
