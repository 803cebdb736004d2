// Keys, signatures and encryption: what the live service signed, and what the tool's own tests, with OpenSSL as the
// second opinion, don't reach.
#include "vaultsim/signature.h"
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/base64url.h"
#include "vaultsim/key_material.h"

using vaultsim::FromBase64;
using vaultsim::ToBase64;

class SignatureTest : public SimTest {
  protected:
    static Reply Operate(const std::string& key, const char* operation, const Json& body)
    {
        return Vault("POST", "/keys/" + key + "//" + operation + "?api-version=7.0", body);
    }
};

TEST_F(SignatureTest, EveryKindOfKeySignsAndVerifies)
{
    const struct {
        const char* name;
        Json key;
        const char* algorithm;
        size_t digestSize;
        size_t signatureSize;
    } rows[] = {
        {"rsa2", {{"kty", "RSA-HSM"}, {"key_size", "2048"}}, "PS256", 32, 256},
        {"rsa3", {{"kty", "RSA"}, {"key_size", 3072}}, "RS384", 48, 384},
        {"rsa4", {{"kty", "RSA"}, {"key_size", "4096"}}, "RS512", 64, 512},
        {"raw", {{"kty", "RSA"}}, "RSNULL", 245, 256},
        {"p256", {{"kty", "EC-HSM"}, {"crv", "P-256"}}, "ES256", 32, 64},
        {"p521", {{"kty", "EC"}, {"crv", "P-521"}}, "ES512", 64, 132},
        {"k256", {{"kty", "EC"}, {"crv", "P-256K"}}, "ES256K", 32, 64},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_EQ(Vault("POST", std::string("/keys/") + row.name + "/create?api-version=7.0", row.key).status, 200);
        const std::string digest(row.digestSize, 'd');
        const Reply reply = Operate(row.name, "sign", {{"alg", row.algorithm}, {"value", ToBase64(digest)}});
        ASSERT_EQ(reply.status, 200) << reply.body;
        const std::string signature = *FromBase64(reply.json()["value"].get<std::string>());
        EXPECT_EQ(signature.size(), row.signatureSize);
        const auto verified = [&](const std::string& hash, const std::string& value) {
            return Operate(row.name, "verify",
                           {{"alg", row.algorithm}, {"digest", ToBase64(hash)}, {"value", ToBase64(value)}})
                .body;
        };
        EXPECT_EQ(verified(digest, signature), "{\"value\":true}");
        EXPECT_EQ(verified(std::string(row.digestSize, 'e'), signature), "{\"value\":false}");
        EXPECT_EQ(verified(digest, signature.substr(0, row.signatureSize - 1)), "{\"value\":false}");
    }
}

TEST_F(SignatureTest, ALeadingZeroBelongsToTheSignature)
{
    const vaultsim::Pkey key = vaultsim::GenerateRsa(1024);
    for (const char* name : {"RSNULL", "RS256", "PS256"}) {
        const vaultsim::SignatureAlgorithm& algorithm = *vaultsim::FindSignatureAlgorithm(name);
        std::string digest;
        std::string signature;
        int count = 0;
        do {
            digest = std::to_string(count++);
            digest.resize(32, 'd');
            signature = vaultsim::SignDigest(key.get(), algorithm, digest);
        } while (signature[0] != 0);
        EXPECT_TRUE(vaultsim::VerifyDigest(key.get(), algorithm, digest, signature)) << name;
        EXPECT_FALSE(vaultsim::VerifyDigest(key.get(), algorithm, digest, signature.substr(1))) << name;
        EXPECT_FALSE(vaultsim::VerifyDigest(key.get(), algorithm, digest, '\0' + signature)) << name;
    }
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
