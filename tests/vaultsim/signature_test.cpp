// Keys, signatures and encryption, checked with OpenSSL and with what the live service signed.
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include "tests/vaultsim/sim_test.h"
#include "vaultsim/base64url.h"
#include "vaultsim/key_material.h"

using vaultsim::FromBase64;
using vaultsim::ToBase64;
using vaultsim::ToBase64Url;

namespace {

std::string Digest(const std::string& message, const EVP_MD* md)
{
    std::string digest(static_cast<size_t>(EVP_MD_get_size(md)), '\0');
    EVP_Digest(message.data(), message.size(), reinterpret_cast<unsigned char*>(digest.data()), nullptr, md, nullptr);
    return digest;
}

const unsigned char* Data(const std::string& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

// r and s side by side as the structure that OpenSSL wants.
std::string Structure(const std::string& signature)
{
    const int half = static_cast<int>(signature.size() / 2);
    const vaultsim::EcdsaSigPtr pair(ECDSA_SIG_new());
    ECDSA_SIG_set0(pair.get(), BN_bin2bn(Data(signature), half, nullptr),
                   BN_bin2bn(Data(signature) + half, half, nullptr));
    unsigned char* der = nullptr;
    const int size = i2d_ECDSA_SIG(pair.get(), &der);
    std::string bytes(reinterpret_cast<char*>(der), static_cast<size_t>(size));
    OPENSSL_free(der);
    return bytes;
}

bool OpenSslVerifies(const std::string& pem, const EVP_MD* md, bool pss, const std::string& message,
                     std::string signature)
{
    const vaultsim::Pkey key = vaultsim::KeyFromPem(pem);
    if (!vaultsim::IsRsa(key.get()))
        signature = Structure(signature);
    const vaultsim::MdCtxPtr context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* options = nullptr;
    EVP_DigestVerifyInit(context.get(), &options, md, nullptr, key.get());
    if (pss) {
        EVP_PKEY_CTX_set_rsa_padding(options, RSA_PKCS1_PSS_PADDING);
        EVP_PKEY_CTX_set_rsa_pss_saltlen(options, EVP_MD_get_size(md));
    }
    return EVP_DigestVerify(context.get(), Data(signature), signature.size(), Data(message), message.size()) == 1;
}

struct AlgorithmRow {
    const char* algorithm;
    const char* key;
    const EVP_MD* (*md)();
    size_t signatureSize;
};

constexpr AlgorithmRow kAlgorithms[] = {
    {"RS256", "rsa2", EVP_sha256, 256}, {"RS384", "rsa3", EVP_sha384, 384}, {"RS512", "rsa4", EVP_sha512, 512},
    {"PS256", "rsa2", EVP_sha256, 256}, {"PS384", "rsa3", EVP_sha384, 384}, {"PS512", "rsa4", EVP_sha512, 512},
    {"ES256", "p256", EVP_sha256, 64},  {"ES384", "p384", EVP_sha384, 96},  {"ES512", "p521", EVP_sha512, 132},
    {"ES256K", "k256", EVP_sha256, 64},
};

}  // namespace

class SignatureTest : public SimTest {
  protected:
    static void MakeKeys()
    {
        const std::pair<const char*, Json> keys[] = {
            {"rsa2", {{"kty", "RSA-HSM"}, {"key_size", "2048"}}}, {"rsa3", {{"kty", "RSA"}, {"key_size", 3072}}},
            {"rsa4", {{"kty", "RSA"}, {"key_size", "4096"}}},     {"p256", {{"kty", "EC-HSM"}, {"crv", "P-256"}}},
            {"p384", {{"kty", "EC"}, {"crv", "P-384"}}},          {"p521", {{"kty", "EC"}, {"crv", "P-521"}}},
            {"k256", {{"kty", "EC"}, {"crv", "P-256K"}}},
        };
        for (const auto& [name, body] : keys)
            ASSERT_EQ(Vault("POST", std::string("/keys/") + name + "/create?api-version=7.0", body).status, 200)
                << name;
    }
    static Reply Operate(const std::string& key, const char* operation, const Json& body)
    {
        return Vault("POST", "/keys/" + key + "//" + operation + "?api-version=7.0", body);
    }
    static std::string Value(const Reply& reply)
    {
        EXPECT_EQ(reply.status, 200) << reply.body;
        return FromBase64(reply.json().value("value", "")).value_or("");
    }
};

TEST_F(SignatureTest, EveryAlgorithmSignsWhatOpenSslVerifies)
{
    MakeKeys();
    const std::string message = "what is signed";
    for (const AlgorithmRow& row : kAlgorithms) {
        SCOPED_TRACE(row.algorithm);
        const std::string digest = Digest(message, row.md());
        // The client sends the standard alphabet with fill, others the one for URLs.
        for (const std::string& text : {ToBase64(digest), ToBase64Url(digest)}) {
            const std::string signature = Value(Operate(row.key, "sign", {{"alg", row.algorithm}, {"value", text}}));
            EXPECT_EQ(signature.size(), row.signatureSize);
            EXPECT_TRUE(OpenSslVerifies(PublicKeyPem(row.key), row.md(), row.algorithm[0] == 'P', message, signature));
        }
        const std::string signature =
            Value(Operate(row.key, "sign", {{"alg", row.algorithm}, {"value", ToBase64(digest)}}));
        const auto verified = [&](const std::string& hash, const std::string& value) {
            return Operate(row.key, "verify",
                           {{"alg", row.algorithm}, {"digest", ToBase64(hash)}, {"value", ToBase64(value)}})
                .body;
        };
        EXPECT_EQ(verified(digest, signature), "{\"value\":true}");
        EXPECT_EQ(verified(Digest("another", row.md()), signature), "{\"value\":false}");
        EXPECT_EQ(verified(digest, signature.substr(1)), "{\"value\":false}");
    }
}

TEST_F(SignatureTest, RsnullSignsUpToWhatThePaddingLeaves)
{
    Control("POST", "/vaults/contoso-keys/keys", {{"name", "raw"}});
    const vaultsim::Pkey key = vaultsim::KeyFromPem(PublicKeyPem("raw"));
    for (size_t size : {1u, 32u, 245u}) {
        const std::string input(size, 'x');
        const std::string signature = Value(Operate("raw", "sign", {{"alg", "RSNULL"}, {"value", ToBase64(input)}}));
        const vaultsim::PkeyCtxPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
        EVP_PKEY_verify_recover_init(context.get());
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING);
        std::string recovered(256, '\0');
        size_t length = recovered.size();
        ASSERT_EQ(EVP_PKEY_verify_recover(context.get(), reinterpret_cast<unsigned char*>(recovered.data()), &length,
                                          Data(signature), signature.size()),
                  1);
        EXPECT_EQ(recovered.substr(0, length), input);
    }
    EXPECT_EQ(Operate("raw", "sign", {{"alg", "RSNULL"}, {"value", ToBase64(std::string(246, 'x'))}}).status, 400);
}

TEST_F(SignatureTest, SignaturesOfTheLiveServiceVerify)
{
    for (const Json& row : Sample(VAULTSIM_SAMPLES "/signature-vectors.json")) {
        Control("POST", "/vaults/contoso-keys/keys", {{"name", "live"}, {"kty", "EC"}, {"pem", row["pem"]}});
        const Reply reply =
            Operate("live", "verify", {{"alg", row["alg"]}, {"digest", row["digest"]}, {"value", row["signature"]}});
        EXPECT_EQ(reply.body, "{\"value\":true}") << row["alg"];
    }
}

TEST_F(SignatureTest, EncryptionGoesBothWays)
{
    Control("POST", "/vaults/contoso-keys/keys", {{"name", "box"}});
    const vaultsim::Pkey key = vaultsim::KeyFromPem(PublicKeyPem("box"));
    const std::string plain = "forty-two";
    const std::pair<const char*, int> rows[] = {{"RSA1_5", RSA_PKCS1_PADDING}, {"RSA-OAEP", RSA_PKCS1_OAEP_PADDING}};
    for (const auto& [algorithm, padding] : rows) {
        SCOPED_TRACE(algorithm);
        const std::string cipher = Value(Operate("box", "encrypt", {{"alg", algorithm}, {"value", ToBase64(plain)}}));
        EXPECT_EQ(Value(Operate("box", "decrypt", {{"alg", algorithm}, {"value", ToBase64(cipher)}})), plain);

        const vaultsim::PkeyCtxPtr context(EVP_PKEY_CTX_new(key.get(), nullptr));
        EVP_PKEY_encrypt_init(context.get());
        EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
        std::string own(256, '\0');
        size_t length = own.size();
        ASSERT_EQ(EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char*>(own.data()), &length, Data(plain),
                                   plain.size()),
                  1);
        EXPECT_EQ(Value(Operate("box", "decrypt", {{"alg", algorithm}, {"value", ToBase64(own)}})), plain);
        const std::string broken(256, '\1');
        EXPECT_EQ(Operate("box", "decrypt", {{"alg", algorithm}, {"value", ToBase64(broken)}}).status, 400);
    }
}

TEST_F(SignatureTest, AnswersHaveTheShapesOfTheService)
{
    const Reply rsa = Vault("POST", "/keys/a/create?api-version=7.0", {{"kty", "RSA"}});
    EXPECT_EQ(Shape(rsa.json()), Shape(Sample(VAULTSIM_SAMPLES "/key-create-rsa.json")));
    EXPECT_EQ(rsa.json()["key"]["key_ops"], Sample(VAULTSIM_SAMPLES "/key-create-rsa.json")["key"]["key_ops"]);
    const Reply curve = Vault("POST", "/keys/b/create?api-version=7.0", {{"kty", "EC"}, {"crv", "P-521"}});
    EXPECT_EQ(Shape(curve.json()), Shape(Sample(SERVICE_SAMPLES "/ec-p521-create.json")));
    EXPECT_EQ(FromBase64(curve.json()["key"]["x"].get<std::string>())->size(), 66u);
    const Reply sign = Operate("b", "sign", {{"alg", "ES512"}, {"value", ToBase64(std::string(64, 'd'))}});
    EXPECT_EQ(Shape(sign.json()), Shape(Sample(SERVICE_SAMPLES "/ec-p521-sign.json")));

    // The answer of an operation without a version names the version that was used, and that version is addressable.
    const std::string kid = sign.json()["kid"];
    EXPECT_EQ(kid, curve.json()["key"]["kid"].get<std::string>());
    const std::string path = kid.substr(kid.find("/keys/"));
    for (const std::string& read : {path, std::string("/keys/b"), std::string("/keys/B/")})
        EXPECT_EQ(Vault("GET", read + "?api-version=2016-10-01").body, curve.body) << read;
}

TEST_F(SignatureTest, ImportedNumbersMayHaveAZeroInFront)
{
    Control("POST", "/vaults/contoso-keys/keys", {{"name", "n"}, {"leadingZero", true}});
    Control("POST", "/vaults/contoso-keys/keys",
            {{"name", "x"}, {"leadingZero", true}, {"kty", "EC"}, {"crv", "P-384"}});
    const Json rsa = Vault("GET", "/keys/n?api-version=7.0").json()["key"];
    const Json curve = Vault("GET", "/keys/x?api-version=7.0").json()["key"];
    EXPECT_EQ(FromBase64(rsa["n"].get<std::string>())->size(), 257u);
    EXPECT_EQ(FromBase64(curve["x"].get<std::string>())->size(), 49u);
}
