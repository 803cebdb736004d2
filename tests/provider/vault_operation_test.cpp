// What all entry points that go to the vault have in common: a sign-in that fails, no client, no memory. And a machine
// without any settings.
#include "tests/provider/key_fixture.h"

namespace {

constexpr DWORD kMachine = NCRYPT_MACHINE_KEY_FLAG;

class VaultOperationTest : public KeyTest {
  protected:
    struct Operation {
        std::string signInLine;  // in front of the status
        std::string lastLine;    // likewise
        std::function<SECURITY_STATUS()> run;
    };

    void SetUp() override
    {
        KeyTest::SetUp();
        AddRsaKey("rsa");
        AddRsaKey("doomed");
        key = OpenKey("rsa");
        cipher = Encrypt(key, Pattern(16), NCRYPT_PAD_PKCS1_FLAG).bytes;
        signature = Sign(key, padding.info(), Pattern(32), BCRYPT_PAD_PSS).bytes;
        EXPECT_EQ(0, table->CreatePersistedKey(provider, &doomed, TEXT("RSA"), TEXT("doomed"), 0,
                                               kMachine | NCRYPT_OVERWRITE_KEY_FLAG));
        sim.ClearJournal();
        root.ClearLog();
    }
    void TearDown() override
    {
        if (doomed) {
            EXPECT_EQ(0, table->FreeKey(provider, doomed));
        }
        KeyTest::TearDown();
    }

    // The deletion comes last: it works once.
    std::vector<Operation> Operations()
    {
        return {
            {"KelvaroOpenKey Authenticate Failed ", "KelvaroOpenKey Error", [this] { return OpenOrCreate(true); }},
            {"KelvaroCreatePersistedKey Authenticate Failed ", "KelvaroCreatePersistedKey",
             [this] { return OpenOrCreate(false); }},
            {"KelvaroEnumKeys Authenticate Failed", "KelvaroEnumKeys", [this] { return Enumerate(); }},
            {"KelvaroSignHash Authenticate Failed ", "KelvaroSignHash",
             [this] { return Sign(key, padding.info(), Pattern(32), BCRYPT_PAD_PSS).status; }},
            {"KelvaroVerifySignature Authenticate Failed ", "KelvaroVerifySignature",
             [this] { return Verify(key, padding.info(), Pattern(32), signature, BCRYPT_PAD_PSS); }},
            {"KelvaroEncrypt Authenticate Failed ", "KelvaroEncrypt",
             [this] { return Encrypt(key, Pattern(16), NCRYPT_PAD_PKCS1_FLAG).status; }},
            {"KelvaroDecrypt Authenticate Failed ", "KelvaroDecrypt",
             [this] { return Decrypt(key, cipher, NCRYPT_PAD_PKCS1_FLAG).status; }},
            {"KelvaroDeleteKey Authenticate Failed ", "KelvaroDeleteKey", [this] { return Delete(); }},
        };
    }

    NCRYPT_KEY_HANDLE key = 0;

  private:
    SECURITY_STATUS OpenOrCreate(bool open)
    {
        NCRYPT_KEY_HANDLE made = 0;
        const SECURITY_STATUS status =
            open ? table->OpenKey(provider, &made, TEXT("rsa"), 0, kMachine)
                 : table->CreatePersistedKey(provider, &made, TEXT("RSA"), TEXT("new"), 0, kMachine);
        EXPECT_EQ(status == 0, made != 0);
        if (made) {
            EXPECT_EQ(0, table->FreeKey(provider, made));
        }
        return status;
    }
    SECURITY_STATUS Enumerate()
    {
        NCryptKeyName* name = nullptr;
        PVOID state = nullptr;
        const SECURITY_STATUS status = table->EnumKeys(provider, nullptr, &name, &state, kMachine);
        EXPECT_EQ(status == 0, name != nullptr);
        EXPECT_EQ(status == 0, state != nullptr);
        table->FreeBuffer(name);
        table->FreeBuffer(state);
        return status;
    }
    SECURITY_STATUS Delete()
    {
        const SECURITY_STATUS status = table->DeleteKey(provider, doomed, 0);
        doomed = status == 0 ? 0 : doomed;
        return status;
    }

    NCRYPT_KEY_HANDLE doomed = 0;
    Padding padding{BCRYPT_PAD_PSS, "SHA256"};
    Bytes cipher, signature;
};

TEST_F(VaultOperationTest, ASignInThatFailsIsALogonFailureAndTheNextOneIsTriedAgain)
{
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.lastLine);
        clock.Advance(3601);
        sim.ClearJournal();
        Answer("/oauth2/token", 401);
        EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(operation.run()));
        EXPECT_TRUE(root.Logged(operation.signInLine + " Error 0x8009030c", 1));
        EXPECT_EQ(operation.lastLine + " Error 0x8009030c", LastErrorLine());
        EXPECT_EQ(0u, sim.VaultRequests().size());
        EXPECT_EQ("0x00000000", Hex(operation.run()));
    }
}

TEST_F(VaultOperationTest, WithoutAClientNothingGoesOut)
{
    const WithoutClient without(ProviderRecord());
    for (const Operation& operation : Operations()) {
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(operation.run())) << operation.lastLine;
        EXPECT_EQ(operation.lastLine + " Error 0x80090027", LastErrorLine());
    }
    EXPECT_TRUE(root.Logged("KelvaroOpenKey pKey->kvc NULL Error 0x80090027", 1));
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(VaultOperationTest, EveryAllocationMayFail)
{
    std::vector<Operation> operations = Operations();
    {
        const AllocFault fault(0);
        EXPECT_EQ(Hex(NTE_NO_MEMORY), Hex(operations.back().run()));
    }
    operations.pop_back();
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.lastLine);
        const size_t failures = FailEach(operation.run, [](SECURITY_STATUS status, size_t failAt) {
            EXPECT_TRUE(failAt > 0 || status == NTE_NO_MEMORY) << "records of the call come first";
            EXPECT_NE(Hex(SEC_E_LOGON_DENIED), Hex(status)) << "the token was granted before";
        });
        EXPECT_GT(failures, 4u);
    }
}

TEST_F(KeyTest, WithoutSettingsTheIdentityOfTheMachineSignsInAndNamesTheVault)
{
    const std::string vault = "x0f1e2d3c4b5a69788796a5b";
    sim.Control("PUT", "/vaults/" + vault, {{"tier", "standard"}});
    sim.AddKey(vault, {{"name", "identity-key"}, {"kty", "EC"}, {"crv", "P-384"}});
    SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), nullptr);
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    root.RemoveKey(HKEY_CURRENT_USER);
    Reattach();
    for (const DWORD scope : {DWORD{0}, kMachine}) {
        sim.ClearJournal();
        const NCRYPT_KEY_HANDLE key = OpenKey("identity-key", scope);
        EXPECT_EQ(96u, Sign(key, nullptr, Pattern(48), 0).bytes.size());
        const nlohmann::json journal = sim.Journal();
        ASSERT_GT(journal.size(), 2u);
        EXPECT_EQ("169.254.169.254", journal[0]["host"]);
        EXPECT_EQ(vault + ".vault.azure.net", journal[1]["host"]);
    }
    sim.Control("DELETE", "/vaults/" + vault);
}

}  // namespace
