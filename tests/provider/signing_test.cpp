// Signing, verification, encryption and decryption: what the vault receives, and what the host gets back.
#include <algorithm>

#include "tests/provider/provider_fixture.h"
#include "tests/provider/words.h"

namespace {

constexpr DWORD kPss = BCRYPT_PAD_PSS;
constexpr DWORD kOaep = NCRYPT_PAD_OAEP_FLAG;

class SigningTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        for (const char* type : {"RSA", "P-256", "P-384", "P-521"})
            AddKey(type, type);
    }
    // NULL for no padding information.
    static const char* HashName(const std::vector<std::string>& row)
    {
        return row[2] == "-" ? nullptr : row[2].c_str() + 1;
    }
};

TEST_F(SigningTest, EveryRowOfTheDecisionTable)
{
    sim.AddKey(Simulator::kVault, {{"name", "RSA0"}, {"pem", PrivateKeyPem("rsa2048")}, {"leadingZero", true}});
    sim.AddKey(Simulator::kVault, {{"name", "P-3840"}, {"kty", "EC"}, {"crv", "P-384"}, {"leadingZero", true}});
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const DWORD flags = NumberOfWord(row[1]);
        const char* const hashName = HashName(row);
        const std::string alg = row[4];
        const NCRYPT_KEY_HANDLE key = OpenKey(row[0]);
        Bytes hash = Pattern(NumberOfWord(row[3]));
        const Result signature = Sign(key, hash, flags, hashName);
        ASSERT_EQ(kDone, Hex(signature.status));
        const std::string path = "/keys/" + row[0] + "/" + Narrow(Record(key)->kvk.version);
        EXPECT_EQ("POST " + path + "/sign?api-version=7.0", sim.VaultRequests().back());
        const std::string sent = Base64(BytesOfWord(row[5])), made = Base64(signature.bytes);
        EXPECT_EQ((json{{"alg", alg}, {"value", sent}}), Bodies("sign").back());

        EXPECT_EQ(kDone, Verify(key, hash, signature.bytes, flags, hashName));
        EXPECT_EQ((json{{"alg", alg}, {"digest", sent}, {"value", made}}), Bodies("verify").back());
        hash[0] ^= 1;
        EXPECT_EQ(Hex(NTE_BAD_SIGNATURE), Verify(key, hash, signature.bytes, flags, hashName));
        sim.ClearJournal();
    }
}

TEST_F(SigningTest, RefusalsWithoutTraffic)
{
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const DWORD flags = NumberOfWord(row[1]);
        const Bytes hash = Pattern(NumberOfWord(row[3]));
        const SECURITY_STATUS sign = StatusOfWord(row[4]), verify = StatusOfWord(row[5]);
        const NCRYPT_KEY_HANDLE key = OpenKey(row[0]);
        sim.ClearJournal();
        EXPECT_EQ(Hex(sign), Hex(Sign(key, hash, flags, HashName(row)).status));
        EXPECT_EQ("KelvaroSignHash Error " + Hex(sign), LastErrorLine());
        EXPECT_EQ(Hex(verify), Verify(key, hash, Pattern(64), flags, HashName(row)));
        EXPECT_EQ("KelvaroVerifySignature Error " + Hex(verify), LastErrorLine());
        EXPECT_EQ(0u, sim.Journal().size());
    }
}

TEST_F(ProviderTest, ReportsTheSizeOfASignatureWithoutTraffic)
{
    const Row<const char*, json, DWORD> rows[] = {
        {"RSA 2048", RsaAnswer(Pattern(256)), 256},
        {"RSA 4096", RsaAnswer(Pattern(512)), 512},
        {"RSA without a modulus", RsaAnswer({}), 512},
        {"P-256", CurveAnswer("P-256", Pattern(32), Pattern(32)), 132},
        {"P-384", CurveAnswer("P-384", Pattern(48), Pattern(48)), 132},
        {"P-521", CurveAnswer("P-521", Pattern(66), Pattern(66)), 132},
        {"a coordinate with a leading zero", CurveAnswer("P-384", Bytes{0} + Pattern(48), Pattern(48)), 512},
        {"no coordinate", CurveAnswer("P-256", {}, {}), 512},
    };
    for (const auto& [name, answer, size] : rows) {
        const NCRYPT_KEY_HANDLE key = OpenAnswered(answer);
        sim.ClearJournal();
        clock.Advance(3601);
        EXPECT_EQ(size, Sign(key, {}, 0, nullptr, 0).needed) << name;
        EXPECT_EQ(0u, sim.Journal().size());
    }
}

TEST_F(SigningTest, TheNameOfACurveKeyCountsOnlyForAHashOfTargetSize)
{
    const NCRYPT_KEY_HANDLE key = OpenKey("P-256");
    const auto rename = [&](const char* name) {
        const TextString wide = Wide(name);
        std::copy(wide.c_str(), wide.c_str() + wide.size() + 1, Record(key)->pszAlgName);
    };
    rename("ecdh_p256");
    const Result good = Sign(key, Pattern(32));
    EXPECT_EQ(kDone, Hex(good.status));
    rename("P256K");
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Sign(key, Pattern(32)).status));
    EXPECT_EQ(kDone, Hex(Sign(key, Pattern(20)).status));
    EXPECT_EQ(kDone, Verify(key, Pattern(32), good.bytes, NCRYPT_SILENT_FLAG));
    // The digits in the name choose another curve's algorithm, which the vault refuses.
    rename("384 and 521");
    EXPECT_EQ(Hex(NTE_FAIL), Verify(key, Pattern(32), good.bytes));
    EXPECT_EQ("ES384", Bodies("verify").back()["alg"]);
}

TEST_F(SigningTest, UsageRestrictsOnlySignaturesAndDecryptions)
{
    const NCRYPT_KEY_HANDLE key = OpenKey("RSA"), decrypts = OpenKey("RSA");
    Record(decrypts)->dwKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG;
    const Bytes signature = Sign(key, Pattern(32), kPss, "SHA256").bytes;
    EXPECT_EQ(kDone, Verify(decrypts, Pattern(32), signature, kPss, "SHA256"));
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_SIGNING_FLAG;
    const Bytes cipher = Encrypt(key, Pattern(16), kOaep).bytes;
    Record(decrypts)->fFinalized = 0;
    EXPECT_EQ(Pattern(16), Decrypt(decrypts, cipher, kOaep).bytes) << "an unfinalized key decrypts";
}

TEST_F(SigningTest, TheVaultsAnswersReachTheHost)
{
    const NCRYPT_KEY_HANDLE key = OpenKey("RSA");
    const auto sign = [&](DWORD room, size_t cbHash = 32) { return Sign(key, Pattern(cbHash), kPss, "SHA256", room); };
    EXPECT_EQ(Hex(NTE_BAD_SIGNATURE), Verify(key, Pattern(32), Pattern(256), kPss, "SHA256"));
    EXPECT_EQ("KelvaroVerifySignature Error 0x80090006", LastErrorLine());
    EXPECT_EQ(Hex(NTE_FAIL), Hex(sign(300, 20).status)) << "the vault checks the size of a hash";
    const Bytes cipher = Encrypt(key, Pattern(16), kOaep).bytes;
    const Row<const char*, Result, SECURITY_STATUS, DWORD> rows[] = {
        {"signature that fits", sign(256), 0, 256},
        {"too small a buffer for a signature", sign(255), NTE_FAIL, 256},
        {"too small a buffer for a plain text", Decrypt(key, cipher, kOaep, 15), NTE_FAIL, 16},
        {"size of a plain text", Decrypt(key, cipher, kOaep, 0), 0, 16},
        {"size of an encrypted text", Encrypt(key, Pattern(16), kOaep, 0), 0, 256},
        {"a signature refused", (Answer("/sign?", 403), sign(300)), NTE_FAIL, 300},
        {"a decryption refused", (Answer("/decrypt?", 403), Decrypt(key, cipher, kOaep, 77)), NTE_FAIL, 77},
    };
    for (const auto& [name, got, status, needed] : rows) {
        EXPECT_EQ(Hex(status), Hex(got.status)) << name;
        EXPECT_EQ(needed, got.needed) << name;
    }
    EXPECT_EQ("KelvaroDecrypt Error 0x80090020", LastErrorLine());
}

// Without a padding bit the algorithm's name is empty, which the vault refuses.
TEST_F(SigningTest, PaddingBitsChooseTheAlgorithmOfAnEncryption)
{
    const NCRYPT_KEY_HANDLE key = OpenKey("RSA");
    const std::pair<DWORD, const char*> rows[] = {{NCRYPT_PAD_PKCS1_FLAG, "RSA1_5"},
                                                  {kOaep, "RSA-OAEP"},
                                                  {kOaep | NCRYPT_PAD_PKCS1_FLAG, "RSA-OAEP"},
                                                  {NCRYPT_PAD_PKCS1_FLAG | NCRYPT_SILENT_FLAG, "RSA1_5"},
                                                  {0, ""},
                                                  {NCRYPT_SILENT_FLAG, ""}};
    for (const auto& [flags, alg] : rows) {
        SCOPED_TRACE(flags);
        const std::string status = Hex(*alg ? 0 : NTE_FAIL);
        const Result cipher = Encrypt(key, Pattern(16), flags, 256);
        EXPECT_EQ(status, Hex(cipher.status));
        EXPECT_EQ((json{{"alg", alg}, {"value", Base64(Pattern(16))}}), Bodies("encrypt").back());
        const Bytes input = *alg ? cipher.bytes : Pattern(16);
        const Result plain = Decrypt(key, input, flags);
        EXPECT_EQ(status, Hex(plain.status));
        EXPECT_EQ(*alg ? Pattern(16) : Bytes(), plain.bytes);
        EXPECT_EQ((json{{"alg", alg}, {"value", Base64(input)}}), Bodies("decrypt").back());
    }
}

}  // namespace
