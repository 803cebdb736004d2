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

    // Without a buffer when room is 0.
    Result Run(bool encrypt, Bytes input, DWORD flags, DWORD room = 600, void* padding = nullptr)
    {
        Result result;
        result.bytes.resize(room);
        const auto operation = encrypt ? table->Encrypt : table->Decrypt;
        result.status = operation(provider, key, input.data(), static_cast<DWORD>(input.size()), padding,
                                  room ? result.bytes.data() : nullptr, room, &result.needed, flags);
        result.bytes.resize(result.status == 0 && room ? result.needed : 0);
        return result;
    }
    Result Encrypt(const Bytes& input, DWORD flags, DWORD room = 600, void* padding = nullptr)
    {
        return Run(true, input, flags, room, padding);
    }
    Result Decrypt(const Bytes& input, DWORD flags, DWORD room = 600) { return Run(false, input, flags, room); }

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
        const Result cipher = Encrypt(Pattern(16), row.flags, 256, row.padding);
        ASSERT_EQ("0x00000000", Hex(cipher.status));
        EXPECT_EQ(256u, cipher.bytes.size());
        const Result plain = Decrypt(cipher.bytes, row.flags);
        ASSERT_EQ("0x00000000", Hex(plain.status));
        EXPECT_EQ(Pattern(16), plain.bytes);

        const std::string head = std::string("{\"alg\":\"") + row.alg + "\",\"value\":\"";
        EXPECT_EQ(Lines{head + Base64(Pattern(16)) + "\"}"}, Bodies("encrypt"));
        EXPECT_EQ(Lines{head + Base64(cipher.bytes) + "\"}"}, Bodies("decrypt"));
    }
}

TEST_F(EncryptTest, WithoutPaddingAnEmptyNameGoesOutAndTheVaultRefuses)
{
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Encrypt(Pattern(3), 0).status));
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Decrypt(Pattern(3), NCRYPT_SILENT_FLAG).status));
    EXPECT_EQ(Lines{"{\"alg\":\"\",\"value\":\"AQID\"}"}, Bodies("encrypt"));
    EXPECT_EQ(Lines{"{\"alg\":\"\",\"value\":\"AQID\"}"}, Bodies("decrypt"));
    EXPECT_TRUE(root.Logged("KelvaroEncrypt Error 0x80090020", 1));
    EXPECT_TRUE(root.Logged("KelvaroDecrypt Error 0x80090020", 1));
}

TEST_F(EncryptTest, TheSizeComesFromTheVaultAndATooSmallBufferIsAFailure)
{
    const Bytes cipher = Encrypt(Pattern(16), NCRYPT_PAD_OAEP_FLAG).bytes;
    sim.ClearJournal();
    const Result asked = Decrypt(cipher, NCRYPT_PAD_OAEP_FLAG, 0);
    EXPECT_EQ("0x00000000", Hex(asked.status));
    EXPECT_EQ(16u, asked.needed);
    EXPECT_EQ(1u, sim.VaultRequests().size());
    EXPECT_EQ(256u, Encrypt(Pattern(16), NCRYPT_PAD_OAEP_FLAG, 0).needed);
    EXPECT_EQ(2u, sim.VaultRequests().size());

    const Result small = Decrypt(cipher, NCRYPT_PAD_OAEP_FLAG, 15);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(small.status));
    EXPECT_EQ(16u, small.needed);
    sim.Fault({{"path", "/decrypt?"}, {"action", "status"}, {"status", 403}});
    const Result refused = Decrypt(cipher, NCRYPT_PAD_OAEP_FLAG, 77);
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
        SECURITY_STATUS encrypt;
        SECURITY_STATUS decrypt;
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
    DWORD cb = 0;
    BYTE byte = 0;
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->Encrypt(0, key, &byte, 1, nullptr, nullptr, 0, &cb, 2)));
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->Decrypt(provider, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, 8)));
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(EncryptTest, UsageAndStateBindOneOperationEach)
{
    const Bytes cipher = Encrypt(Pattern(16), NCRYPT_PAD_PKCS1_FLAG).bytes;
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_SIGNING_FLAG;
    EXPECT_EQ("0x00000000", Hex(Encrypt(Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status));
    EXPECT_EQ(Hex(NTE_PERM), Hex(Decrypt(cipher, NCRYPT_PAD_PKCS1_FLAG).status));
    Record(key)->dwKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG;
    Record(key)->fFinalized = 0;
    EXPECT_EQ(Pattern(16), Decrypt(cipher, NCRYPT_PAD_PKCS1_FLAG).bytes);
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), Hex(Encrypt(Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status));

    AddCurveKey("p256", "P-256");
    key = OpenKey("p256");
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Encrypt(Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status));
}

TEST_F(EncryptTest, WithoutASignInOrAClientNothingGoesOut)
{
    sim.ClearJournal();
    clock.Advance(3601);
    sim.Fault({{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}, {"times", 2}});
    EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(Encrypt(Pattern(3), NCRYPT_PAD_PKCS1_FLAG).status));
    EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(Decrypt(Pattern(3), NCRYPT_PAD_PKCS1_FLAG).status));
    for (const char* line : {"KelvaroEncrypt Authenticate Failed  Error 0x8009030c", "KelvaroEncrypt Error 0x8009030c",
                             "KelvaroDecrypt Authenticate Failed  Error 0x8009030c", "KelvaroDecrypt Error 0x8009030c"})
        EXPECT_TRUE(root.Logged(line, 1)) << line;

    const WithoutClient without(ProviderRecord());
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Encrypt(Pattern(3), NCRYPT_PAD_PKCS1_FLAG).status));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Decrypt(Pattern(3), NCRYPT_PAD_PKCS1_FLAG).status));
    EXPECT_EQ(Lines{}, sim.VaultRequests());
}

TEST_F(EncryptTest, EveryAllocationOfEitherMayFail)
{
    const Bytes cipher = Encrypt(Pattern(16), NCRYPT_PAD_PKCS1_FLAG).bytes;
    for (const bool encrypt : {true, false}) {
        SCOPED_TRACE(encrypt ? "encrypt" : "decrypt");
        const Bytes input = encrypt ? Pattern(16) : cipher;
        Bytes output(600);
        DWORD cb = 0;
        const auto run = [&] {
            output.assign(600, 0xAA);
            return (encrypt ? table->Encrypt : table->Decrypt)(provider, key, const_cast<BYTE*>(input.data()),
                                                               static_cast<DWORD>(input.size()), nullptr, output.data(),
                                                               600, &cb, NCRYPT_PAD_PKCS1_FLAG);
        };
        const size_t failures = FailEach(run, [&](SECURITY_STATUS status, size_t failAt) {
            EXPECT_TRUE(failAt > 0 || status == NTE_NO_MEMORY) << "the call record comes first";
            EXPECT_TRUE(status == 0 || output == Bytes(600, 0xAA)) << failAt;
        });
        EXPECT_GT(failures, 4u);
        EXPECT_EQ(encrypt ? 256u : 16u, cb);
    }
}

}  // namespace
