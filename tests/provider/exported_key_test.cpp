// Someone who has nothing but an exported blob accepts the signatures: the blob is the key, and what was signed is the
// hash as others reshape it.
#include "tests/kelvaroctl/openssl_key.h"
#include "tests/provider/key_fixture.h"

namespace {

std::string Text(const Bytes& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

using ExportedKeyTest = KeyTest;

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheVault)
{
    const struct {
        const char* key;
        DWORD flags;
        const char* hash;  // NULL for a curve
        size_t cbHash;
    } rows[] = {
        {"rsa", BCRYPT_PAD_PKCS1, "SHA1", 20},
        {"rsa", BCRYPT_PAD_PKCS1, "SHA256", 32},
        {"rsa", BCRYPT_PAD_PKCS1, "SHA384", 48},
        {"rsa", BCRYPT_PAD_PKCS1, "SHA512", 64},
        {"rsa", BCRYPT_PAD_PSS, "SHA256", 32},
        {"rsa", BCRYPT_PAD_PSS, "SHA384", 48},
        {"rsa", BCRYPT_PAD_PSS, "SHA512", 64},
        {"p256", 0, nullptr, 32},
        {"p256", 0, nullptr, 20},
        {"p256", 0, nullptr, 48},
        {"p384", 0, nullptr, 48},
        {"p384", 0, nullptr, 20},
        {"p384", 0, nullptr, 64},
        {"p521", 0, nullptr, 64},
        {"p521", 0, nullptr, 32},
        {"zero-rsa", BCRYPT_PAD_PSS, "SHA256", 32},
        {"zero-p384", 0, nullptr, 48},
    };
    AddOneOfEach();
    sim.AddKey(Simulator::kVault, {{"name", "zero-rsa"}, {"kty", "RSA"}, {"leadingZero", true}});
    sim.AddKey(Simulator::kVault, {{"name", "zero-p384"}, {"kty", "EC"}, {"crv", "P-384"}, {"leadingZero", true}});
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.key) + " " + (row.hash ? row.hash : "") + " " + std::to_string(row.cbHash));
        const NCRYPT_KEY_HANDLE handle = OpenKey(row.key);
        const Result blob = Export(handle, row.hash ? "RSAPUBLICBLOB" : "ECCPUBLICBLOB");
        ASSERT_EQ(0, blob.status);
        const OpensslKey key = OpensslKey::FromCngBlob(Text(blob.bytes));
        const bool pss = row.flags == BCRYPT_PAD_PSS;

        Padding padding(row.flags, row.hash);
        Bytes hash = Pattern(row.cbHash);
        const Result signature = Sign(handle, padding.info(), hash, row.flags);
        ASSERT_EQ(0, signature.status);
        const auto accepts = [&] {
            return key.VerifiesDigest(Text(hash), Text(signature.bytes), row.hash ? row.hash : "", pss);
        };
        EXPECT_TRUE(accepts());
        hash[0] ^= 1;
        EXPECT_FALSE(accepts());
    }
}

// Keys of the live service and what it signed with them.
TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheLiveService)
{
    int verified = 0;
    int refused = 0;
    for (const nlohmann::json& row : nlohmann::json::parse(ReadServiceSample("signature-vectors"))) {
        const std::string alg = row["alg"];
        SCOPED_TRACE(alg + " " + std::to_string(verified));
        const NCRYPT_KEY_HANDLE handle = OpenAnswered({{"key", row["key"]}});
        const bool curve = alg[0] == 'E';
        const Result blob = Export(handle, curve ? "ECCPUBLICBLOB" : "RSAPUBLICBLOB");
        if (blob.status != 0) {
            // One coordinate came with a zero in front and the other without: no blob has room for that.
            EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(blob.status));
            EXPECT_NE(row["key"]["x"].get<std::string>().size(), row["key"]["y"].get<std::string>().size());
            ++refused;
            continue;
        }
        const OpensslKey key = OpensslKey::FromCngBlob(Text(blob.bytes), "secp256k1");
        std::string digest = FromBase64Url(row["digest"]);
        const std::string signature = FromBase64Url(row["signature"]);
        EXPECT_TRUE(key.VerifiesDigest(digest, signature, "SHA256", false));
        digest[0] = static_cast<char>(digest[0] ^ 1);
        EXPECT_FALSE(key.VerifiesDigest(digest, signature, "SHA256", false));
        ++verified;
    }
    EXPECT_EQ(14, verified);
    EXPECT_EQ(1, refused);
}

}  // namespace
