#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>
#include <stdexcept>

#include "tests/common/independent_key.h"

namespace {
struct OpensslFree {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpensslFree>;

const unsigned char* In(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}
}  // namespace

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
    const size_t half = signature.size() / 2;
    const std::string read =
        rsa || form == SignatureForm::Der ? signature : DerOfPair(signature.substr(0, half), signature.substr(half));
    return EVP_PKEY_verify(context.get(), In(read), read.size(), In(digest), digest.size()) == 1;
}

std::string Digest(const std::string& data, const std::string& hash)
{
    std::string digest(EVP_MAX_MD_SIZE, 0);
    unsigned size = 0;
    if (EVP_Digest(data.data(), data.size(), reinterpret_cast<unsigned char*>(digest.data()), &size,
                   EVP_get_digestbyname(hash.c_str()), nullptr) != 1)
        throw std::runtime_error("no digest " + hash);
    digest.resize(size);
    return digest;
}
