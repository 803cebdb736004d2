// Someone who has nothing but an exported blob accepts the signatures: the blob is the key, and what was signed is the
// hash as others reshape it.
#include <algorithm>

#include "tests/common/independent_key.h"
#include "tests/provider/key_fixture.h"

namespace {

std::string Text(const Bytes& bytes)
{
    return std::string(bytes.begin(), bytes.end());
}

struct VaultRow {
    const char* key;
    DWORD flags;
    const char* hash;  // NULL for a curve
    size_t cbHash;
};

class ExportedKeyTest : public KeyTest {
  protected:
    void ExpectVerified(const VaultRow& row)
    {
        SCOPED_TRACE(std::string(row.key) + " " + (row.hash ? row.hash : "") + " " + std::to_string(row.cbHash));
        const NCRYPT_KEY_HANDLE handle = OpenKey(row.key);
        const Result blob = Export(handle, row.hash ? "RSAPUBLICBLOB" : "ECCPUBLICBLOB");
        ASSERT_EQ(0, blob.status);
        const IndependentKey key = IndependentKey::FromCngBlob(Text(blob.bytes));
        const SignatureForm form = row.flags == BCRYPT_PAD_PSS ? SignatureForm::Pss : SignatureForm::Plain;

        Padding padding(row.flags, row.hash);
        Bytes hash = Pattern(row.cbHash);
        Result signature;
        do {
            signature = Sign(handle, padding.info(), hash, row.flags);
            ASSERT_EQ(0, signature.status);
        } while (!key.CanTellOf(Text(signature.bytes), form));
        const auto accepts = [&] {
            return key.Verifies(Text(hash), Text(signature.bytes), row.hash ? row.hash : "", form);
        };
        EXPECT_TRUE(accepts());
        hash[0] ^= 1;
        EXPECT_FALSE(accepts());
    }

    // Keys of the live service and what it signed with them. algs: those of interest.
    void ExpectLiveVerified(const std::vector<std::string>& algs, int wantedVerified, int wantedRefused)
    {
        int verified = 0;
        int refused = 0;
        for (const nlohmann::json& row : nlohmann::json::parse(ReadServiceSample("signature-vectors"))) {
            const std::string alg = row["alg"];
            if (std::find(algs.begin(), algs.end(), alg) == algs.end())
                continue;
            SCOPED_TRACE(alg + " " + std::to_string(verified));
            const NCRYPT_KEY_HANDLE handle = OpenAnswered({{"key", row["key"]}});
            const Result blob = Export(handle, alg[0] == 'E' ? "ECCPUBLICBLOB" : "RSAPUBLICBLOB");
            if (blob.status != 0) {
                // One coordinate came with a zero in front and the other without: no blob has room for that.
                EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(blob.status));
                EXPECT_NE(row["key"]["x"].get<std::string>().size(), row["key"]["y"].get<std::string>().size());
                ++refused;
                continue;
            }
            const IndependentKey key = IndependentKey::FromCngBlob(Text(blob.bytes), "secp256k1");
            std::string digest = FromBase64Url(row["digest"]);
            const std::string signature = FromBase64Url(row["signature"]);
            EXPECT_TRUE(key.Verifies(digest, signature, "SHA256", SignatureForm::Plain));
            digest[0] = static_cast<char>(digest[0] ^ 1);
            EXPECT_FALSE(key.Verifies(digest, signature, "SHA256", SignatureForm::Plain));
            ++verified;
        }
        EXPECT_EQ(wantedVerified, verified);
        EXPECT_EQ(wantedRefused, refused);
    }
};

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheVault)
{
    constexpr VaultRow rows[] = {
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
        {"zero-rsa", BCRYPT_PAD_PSS, "SHA256", 32},
        {"zero-p384", 0, nullptr, 48},
    };
    AddOneOfEach();
    sim.AddKey(Simulator::kVault, {{"name", "zero-rsa"}, {"kty", "RSA"}, {"leadingZero", true}});
    sim.AddKey(Simulator::kVault, {{"name", "zero-p384"}, {"kty", "EC"}, {"crv", "P-384"}, {"leadingZero", true}});
    for (const auto& row : rows)
        ExpectVerified(row);
}

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheVaultOnP521AndOfLongHashes)
{
    AddCurveKey("p384", "P-384");
    AddCurveKey("p521", "P-521");
    ExpectVerified({"p384", 0, nullptr, 64});
    ExpectVerified({"p521", 0, nullptr, 64});
    ExpectVerified({"p521", 0, nullptr, 32});
}

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheLiveService)
{
    ExpectLiveVerified({"RS256", "ES256", "ES384"}, 9, 0);
}

TEST_F(ExportedKeyTest, VerifiesTheSignaturesOfTheLiveServiceOnP521AndSecp256k1)
{
    ExpectLiveVerified({"ES512", "ES256K"}, 5, 1);
}

}  // namespace
