// Encryption and decryption, both of which are the vault's work.
#include "tests/provider/key_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class EncryptTest : public KeyTest {
  protected:
    void SetUp() override
    {
        KeyTest::SetUp();
        AddRsaKey("rsa");
        key = OpenKey("rsa");
    }

    NCRYPT_KEY_HANDLE key = 0;
};

TEST_F(EncryptTest, ThePaddingBitsNameTheAlgorithm)
{
    BCRYPT_OAEP_PADDING_INFO oaep = {};
    oaep.pszAlgId = TEXT("SHA256");
    const struct {
        const char* name;
        DWORD flags;
        void* padding;
        const char* alg;
    } rows[] = {
        {"PKCS#1", NCRYPT_PAD_PKCS1_FLAG, nullptr, "RSA1_5"},
        {"OAEP", NCRYPT_PAD_OAEP_FLAG, nullptr, "RSA-OAEP"},
        {"OAEP wins", NCRYPT_PAD_OAEP_FLAG | NCRYPT_PAD_PKCS1_FLAG, nullptr, "RSA-OAEP"},
        {"silent", NCRYPT_PAD_PKCS1_FLAG | NCRYPT_SILENT_FLAG, nullptr, "RSA1_5"},
        {"the host's OAEP hash does not count", NCRYPT_PAD_OAEP_FLAG, &oaep, "RSA-OAEP"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        const Result cipher = Encrypt(key, Pattern(16), row.flags, 256, row.padding);
        ASSERT_EQ("0x00000000", Hex(cipher.status));
        EXPECT_EQ(256u, cipher.bytes.size());
        const Result plain = Decrypt(key, cipher.bytes, row.flags);
        ASSERT_EQ("0x00000000", Hex(plain.status));
        EXPECT_EQ(Pattern(16), plain.bytes);

        const std::string head = std::string("{\"alg\":\"") + row.alg + "\",\"value\":\"";
        EXPECT_EQ(Lines{head + Base64(Pattern(16)) + "\"}"}, Bodies("encrypt"));
        EXPECT_EQ(Lines{head + Base64(cipher.bytes) + "\"}"}, Bodies("decrypt"));
    }
}

TEST_F(EncryptTest, WithoutPaddingAnEmptyNameGoesOutAndTheVaultRefuses)
{
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Encrypt(key, Pattern(3), 0).status));
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Decrypt(key, Pattern(3), NCRYPT_SILENT_FLAG).status));
    EXPECT_EQ(Lines{"{\"alg\":\"\",\"value\":\"AQID\"}"}, Bodies("encrypt"));
    EXPECT_EQ(Lines{"{\"alg\":\"\",\"value\":\"AQID\"}"}, Bodies("decrypt"));
    EXPECT_TRUE(root.Logged("KelvaroEncrypt Error 0x80090020", 1));
    EXPECT_TRUE(root.Logged("KelvaroDecrypt Error 0x80090020", 1));
}

TEST_F(EncryptTest, TheSizeComesFromTheVaultAndATooSmallBufferIsAFailure)
{
    const Bytes cipher = Encrypt(key, Pattern(16), NCRYPT_PAD_OAEP_FLAG).bytes;
    sim.ClearJournal();
    const Result asked = Decrypt(key, cipher, NCRYPT_PAD_OAEP_FLAG, 0);
    EXPECT_EQ("0x00000000", Hex(asked.status));
    EXPECT_EQ(16u, asked.needed);
    EXPECT_EQ(1u, sim.VaultRequests().size());
    EXPECT_EQ(256u, Encrypt(key, Pattern(16), NCRYPT_PAD_OAEP_FLAG, 0).needed);
    EXPECT_EQ(2u, sim.VaultRequests().size());

    const Result small = Decrypt(key, cipher, NCRYPT_PAD_OAEP_FLAG, 15);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(small.status));
    EXPECT_EQ(16u, small.needed);
    Answer("/decrypt?", 403);
    const Result refused = Decrypt(key, cipher, NCRYPT_PAD_OAEP_FLAG, 77);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(refused.status));
    EXPECT_EQ(77u, refused.needed);
}

TEST_F(EncryptTest, TheOrderOfTheTests)
{
    constexpr DWORD kNoPadding = NCRYPT_NO_PADDING_FLAG;
    const struct {
        const char* name;
        bool finalized;
        DWORD usage;
        bool input;
        DWORD cbInput;
        bool result;
        DWORD flags;
        SECURITY_STATUS encrypt, decrypt;
    } rows[] = {
        {"pending", false, 3, true, 0, true, 2, NTE_BAD_KEY_STATE, NTE_INVALID_PARAMETER},
        {"no input", true, 3, false, 3, true, 8, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"empty input", true, 3, true, 0, true, 8, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"no result", true, 3, true, 3, false, 8, NTE_INVALID_PARAMETER, NTE_INVALID_PARAMETER},
        {"PSS bit", true, 2, true, 3, true, 8, NTE_BAD_FLAGS, NTE_BAD_FLAGS},
        {"no padding", true, 3, true, 3, true, kNoPadding, NTE_BAD_FLAGS, NTE_BAD_FLAGS},
        {"no padding beside PKCS#1", true, 3, true, 3, true, kNoPadding | 2, NTE_BAD_FLAGS, NTE_BAD_FLAGS},
        {"no padding and no usage", true, 2, true, 3, true, kNoPadding, NTE_BAD_FLAGS, NTE_PERM},
    };
    sim.ClearJournal();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Record(key)->fFinalized = row.finalized ? 1 : 0;
        Record(key)->dwKeyUsage = row.usage;
        BYTE input[3] = {};
        DWORD cb = 7;
        const auto run = [&](auto operation) {
            return Hex(operation(provider, key, row.input ? input : nullptr, row.cbInput, nullptr, nullptr, 0,
                                 row.result ? &cb : nullptr, row.flags));
        };
        root.ClearLog();
        EXPECT_EQ(Hex(row.encrypt), run(table->Encrypt));
        EXPECT_EQ(Hex(row.decrypt), run(table->Decrypt));
        EXPECT_EQ((Lines{"KelvaroEncrypt Error " + Hex(row.encrypt), "KelvaroDecrypt Error " + Hex(row.decrypt)}),
                  ErrorLines());
        EXPECT_EQ(7u, cb);
    }
    for (const auto operation : {table->Encrypt, table->Decrypt})
        EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(operation(provider, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 8)));
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(EncryptTest, UsageAndStateBindOneOperationEach)
{
    const Bytes cipher = Encrypt(key, Pattern(16), NCRYPT_PAD_PKCS1_FLAG).bytes;
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_SIGNING_FLAG;
    EXPECT_EQ("0x00000000", Hex(Encrypt(key, Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status));
    EXPECT_EQ(Hex(NTE_PERM), Hex(Decrypt(key, cipher, NCRYPT_PAD_PKCS1_FLAG).status));
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG;
    Record(key)->fFinalized = 0;
    EXPECT_EQ(Pattern(16), Decrypt(key, cipher, NCRYPT_PAD_PKCS1_FLAG).bytes);
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), Hex(Encrypt(key, Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status));
}

}  // namespace
