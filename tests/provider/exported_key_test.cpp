// Someone who has nothing but an exported blob accepts the signatures: the blob is the key, and what was signed is the
// hash as others reshape it.
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <cstring>

#include "tests/provider/key_fixture.h"

namespace {

struct OpenSslFreer {
    void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
    void operator()(EVP_PKEY_CTX* p) const { EVP_PKEY_CTX_free(p); }
    void operator()(OSSL_PARAM_BLD* p) const { OSSL_PARAM_BLD_free(p); }
    void operator()(OSSL_PARAM* p) const { OSSL_PARAM_free(p); }
    void operator()(BIGNUM* p) const { BN_free(p); }
    void operator()(ECDSA_SIG* p) const { ECDSA_SIG_free(p); }
};
template <typename T>
using Owned = std::unique_ptr<T, OpenSslFreer>;

Owned<EVP_PKEY> Build(const char* type, OSSL_PARAM_BLD* builder)
{
    const Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(builder));
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY* key = nullptr;
    EVP_PKEY_fromdata_init(context.get());
    EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get());
    return Owned<EVP_PKEY>(key);
}

Owned<EVP_PKEY> FromRsaBlob(const Bytes& blob)
{
    BCRYPT_RSAKEY_BLOB header;
    memcpy(&header, blob.data(), sizeof(header));
    const BYTE* at = blob.data() + sizeof(header);
    const Owned<BIGNUM> e(BN_bin2bn(at, static_cast<int>(header.cbPublicExp), nullptr));
    const Owned<BIGNUM> n(BN_bin2bn(at + header.cbPublicExp, static_cast<int>(header.cbModulus), nullptr));
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
    return Build("RSA", builder.get());
}

Owned<EVP_PKEY> FromCurveBlob(const Bytes& blob, const char* group)
{
    const Bytes point = Bytes{4} + Bytes(blob.begin() + sizeof(BCRYPT_ECCKEY_BLOB), blob.end());
    const Owned<OSSL_PARAM_BLD> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, group, 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size());
    return Build("EC", builder.get());
}

// r and s side by side as the structure that OpenSSL reads.
Bytes Der(const Bytes& signature)
{
    const int half = static_cast<int>(signature.size() / 2);
    const Owned<ECDSA_SIG> pair(ECDSA_SIG_new());
    ECDSA_SIG_set0(pair.get(), BN_bin2bn(signature.data(), half, nullptr),
                   BN_bin2bn(signature.data() + half, half, nullptr));
    Bytes der(static_cast<size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)));
    BYTE* at = der.data();
    i2d_ECDSA_SIG(pair.get(), &at);
    return der;
}

bool Accepts(EVP_PKEY* key, DWORD flags, const char* hashName, const Bytes& hash, const Bytes& signature)
{
    const Owned<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) != 1)
        return false;
    const bool curve = flags == 0;
    if (!curve) {
        const bool pss = flags == BCRYPT_PAD_PSS;
        EVP_PKEY_CTX_set_rsa_padding(context.get(), pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING);
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_get_digestbyname(hashName));
        if (pss)
            EVP_PKEY_CTX_set_rsa_pss_saltlen(context.get(), RSA_PSS_SALTLEN_AUTO);
    }
    const Bytes raw = curve ? Der(signature) : signature;
    return EVP_PKEY_verify(context.get(), raw.data(), raw.size(), hash.data(), hash.size()) == 1;
}

using ExportedKeyTest = KeyTest;

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheVault)
{
    const struct {
        const char* key;
        const char* group;  // NULL for RSA
        DWORD flags;
        const char* hash;
        size_t cbHash;
    } rows[] = {
        {"rsa", nullptr, BCRYPT_PAD_PKCS1, "SHA1", 20},
        {"rsa", nullptr, BCRYPT_PAD_PKCS1, "SHA256", 32},
        {"rsa", nullptr, BCRYPT_PAD_PKCS1, "SHA384", 48},
        {"rsa", nullptr, BCRYPT_PAD_PKCS1, "SHA512", 64},
        {"rsa", nullptr, BCRYPT_PAD_PSS, "SHA256", 32},
        {"rsa", nullptr, BCRYPT_PAD_PSS, "SHA384", 48},
        {"rsa", nullptr, BCRYPT_PAD_PSS, "SHA512", 64},
        {"p256", "P-256", 0, nullptr, 32},
        {"p256", "P-256", 0, nullptr, 20},
        {"p256", "P-256", 0, nullptr, 48},
        {"p384", "P-384", 0, nullptr, 48},
        {"p384", "P-384", 0, nullptr, 20},
        {"p384", "P-384", 0, nullptr, 64},
        {"p521", "P-521", 0, nullptr, 64},
        {"p521", "P-521", 0, nullptr, 32},
    };
    AddOneOfEach();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.key) + " " + (row.hash ? row.hash : "") + " " + std::to_string(row.cbHash));
        const NCRYPT_KEY_HANDLE handle = OpenKey(row.key);
        Bytes blob(300);
        DWORD cb = 0;
        ASSERT_EQ(0, table->ExportKey(provider, handle, 0, row.group ? TEXT("ECCPUBLICBLOB") : TEXT("RSAPUBLICBLOB"),
                                      nullptr, blob.data(), 300, &cb, 0));
        blob.resize(cb);
        const Owned<EVP_PKEY> key = row.group ? FromCurveBlob(blob, row.group) : FromRsaBlob(blob);
        ASSERT_TRUE(key);

        Padding padding(row.flags, row.hash);
        Bytes hash = Pattern(row.cbHash);
        const Result signature = Sign(handle, padding.info(), hash, row.flags);
        ASSERT_EQ(0, signature.status);
        EXPECT_TRUE(Accepts(key.get(), row.flags, row.hash, hash, signature.bytes));
        hash[0] ^= 1;
        EXPECT_FALSE(Accepts(key.get(), row.flags, row.hash, hash, signature.bytes));
    }
}

}  // namespace
