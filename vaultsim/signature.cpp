#include "vaultsim/signature.h"

#include <openssl/err.h>
#include <openssl/rsa.h>

#include <stdexcept>

#include "vaultsim/key_material.h"
#include "vaultsim/text.h"

namespace vaultsim {

namespace {

constexpr SignatureAlgorithm kSignatureAlgorithms[] = {
    {"RS256", nullptr, "SHA256", 32, false},  {"RS384", nullptr, "SHA384", 48, false},
    {"RS512", nullptr, "SHA512", 64, false},  {"RSNULL", nullptr, nullptr, 0, false},
    {"PS256", nullptr, "SHA256", 32, true},   {"PS384", nullptr, "SHA384", 48, true},
    {"PS512", nullptr, "SHA512", 64, true},   {"ES256", "P-256", nullptr, 32, false},
    {"ES256K", "P-256K", nullptr, 32, false}, {"ES384", "P-384", nullptr, 48, false},
    {"ES512", "P-521", nullptr, 64, false},
};

constexpr EncryptionAlgorithm kEncryptionAlgorithms[] = {
    {"RSA1_5", nullptr},
    {"RSA-OAEP", "SHA1"},
    {"RSA-OAEP-256", "SHA256"},
};

using Operation = int (*)(EVP_PKEY_CTX*, unsigned char*, size_t*, const unsigned char*, size_t);

const unsigned char* Data(const std::string& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

void Require(int result, const char* what)
{
    if (result > 0)
        return;
    ERR_clear_error();
    throw std::runtime_error(what);
}

std::string Run(EVP_PKEY_CTX* context, Operation operation, const std::string& input, const char* what)
{
    size_t size = 0;
    Require(operation(context, nullptr, &size, Data(input), input.size()), what);
    std::string output(size, '\0');
    Require(operation(context, reinterpret_cast<unsigned char*>(output.data()), &size, Data(input), input.size()),
            what);
    output.resize(size);
    return output;
}

void SetPadding(EVP_PKEY_CTX* context, const SignatureAlgorithm& algorithm)
{
    if (algorithm.curve)
        return;
    Require(EVP_PKEY_CTX_set_rsa_padding(context, algorithm.pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING),
            "padding");
    if (algorithm.digest)
        Require(EVP_PKEY_CTX_set_signature_md(context, EVP_get_digestbyname(algorithm.digest)), "digest");
    if (algorithm.pss)
        Require(EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST), "salt length");
}

void SetPadding(EVP_PKEY_CTX* context, const EncryptionAlgorithm& algorithm)
{
    Require(EVP_PKEY_CTX_set_rsa_padding(context, algorithm.oaepDigest ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING),
            "padding");
    if (algorithm.oaepDigest)
        Require(EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_get_digestbyname(algorithm.oaepDigest)), "digest");
}

PkeyCtxPtr NewContext(EVP_PKEY* key)
{
    PkeyCtxPtr context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context)
        throw std::bad_alloc();
    return context;
}

int HalfSize(const EVP_PKEY* key)
{
    return (CurveOf(key)->bits + 7) / 8;
}

std::string SideBySide(const EVP_PKEY* key, const std::string& der)
{
    const unsigned char* at = Data(der);
    const EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &at, static_cast<long>(der.size())));
    const int half = HalfSize(key);
    std::string bytes(2 * static_cast<size_t>(half), '\0');
    unsigned char* out = reinterpret_cast<unsigned char*>(bytes.data());
    Require(BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), out, half), "signature");
    Require(BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), out + half, half), "signature");
    return bytes;
}

std::string ToDer(const EVP_PKEY* key, const std::string& sideBySide)
{
    const int half = HalfSize(key);
    const EcdsaSigPtr signature(ECDSA_SIG_new());
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(Data(sideBySide), half, nullptr),
                   BN_bin2bn(Data(sideBySide) + half, half, nullptr));
    return EncodeDer(signature.get(), i2d_ECDSA_SIG);
}

}  // namespace

const SignatureAlgorithm* FindSignatureAlgorithm(const std::string& name)
{
    return FindByName(kSignatureAlgorithms, name);
}

const EncryptionAlgorithm* FindEncryptionAlgorithm(const std::string& name)
{
    return FindByName(kEncryptionAlgorithms, name);
}

std::string SignDigest(EVP_PKEY* key, const SignatureAlgorithm& algorithm, const std::string& digest)
{
    const PkeyCtxPtr context = NewContext(key);
    Require(EVP_PKEY_sign_init(context.get()), "signing");
    SetPadding(context.get(), algorithm);
    const std::string signature = Run(context.get(), EVP_PKEY_sign, digest, "signing");
    return algorithm.curve ? SideBySide(key, signature) : signature;
}

bool VerifyDigest(EVP_PKEY* key, const SignatureAlgorithm& algorithm, const std::string& digest,
                  const std::string& signature)
{
    // OpenSSL accepts some RSA signatures that lack leading zeros.
    const int size = algorithm.curve ? 2 * HalfSize(key) : EVP_PKEY_get_size(key);
    if (signature.size() != static_cast<size_t>(size))
        return false;
    const std::string raw = algorithm.curve ? ToDer(key, signature) : signature;
    const PkeyCtxPtr context = NewContext(key);
    Require(EVP_PKEY_verify_init(context.get()), "verification");
    SetPadding(context.get(), algorithm);
    const bool good = EVP_PKEY_verify(context.get(), Data(raw), raw.size(), Data(digest), digest.size()) == 1;
    ERR_clear_error();
    return good;
}

std::string Encrypt(EVP_PKEY* key, const EncryptionAlgorithm& algorithm, const std::string& plain)
{
    const PkeyCtxPtr context = NewContext(key);
    Require(EVP_PKEY_encrypt_init(context.get()), "encryption");
    SetPadding(context.get(), algorithm);
    return Run(context.get(), EVP_PKEY_encrypt, plain, "encryption");
}

std::string Decrypt(EVP_PKEY* key, const EncryptionAlgorithm& algorithm, const std::string& cipher)
{
    const PkeyCtxPtr context = NewContext(key);
    Require(EVP_PKEY_decrypt_init(context.get()), "decryption");
    SetPadding(context.get(), algorithm);
    return Run(context.get(), EVP_PKEY_decrypt, cipher, "decryption");
}

}  // namespace vaultsim
