// From the open of a vault key to its release.
#include "tests/provider/key_fixture.h"

namespace {

using OpenKeyTest = KeyTest;
using Lines = std::vector<std::string>;

SECURITY_STATUS TryOpen(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table, NCRYPT_PROV_HANDLE provider,
                        const std::string& name, NCRYPT_KEY_HANDLE* key, DWORD flags = NCRYPT_MACHINE_KEY_FLAG)
{
    return table->OpenKey(provider, key, Wide(name).c_str(), 0, flags);
}

TEST_F(OpenKeyTest, AnOpenCostsOneReadAndNothingIsCached)
{
    AddRsaKey("web");
    const int signIns = sim.SignIns();
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    OpenKey("web");
    EXPECT_EQ((Lines{"GET /keys/web?api-version=2016-10-01", "GET /keys/web?api-version=2016-10-01"}),
              sim.VaultRequests());
    EXPECT_EQ(signIns + 1, sim.SignIns());

    EXPECT_EQ("web", Narrow(Record(key)->pszKeyName));
    EXPECT_EQ("RSA", Narrow(Record(key)->pszAlgName));
    EXPECT_EQ(2048u, Record(key)->dwBitLength);
    EXPECT_EQ(1u, Record(key)->fFinalized);
    EXPECT_TRUE(root.Logged("KelvaroOpenKey web 32", 4));
    EXPECT_EQ(Lines{}, ErrorLines());
}

TEST_F(OpenKeyTest, TheVaultsDescriptionGivesNameAndLength)
{
    const struct {
        const char* name;
        nlohmann::json answer;
        const char* algName;
        DWORD bits;
    } rows[] = {
        {"RSA without tags", RsaAnswer(Pattern(256)), "RSA", 2048},
        {"RSA with a leading zero byte", RsaAnswer(Bytes{0} + Pattern(256)), "RSA", 2056},
        {"curve by its tag", CurveAnswer("P-384", Pattern(48), Pattern(48), {"sign"}, "ECDSA_P384"), "ECDSA_P384", 0},
        {"P-256 without a tag", CurveAnswer("P-256", Pattern(32), Pattern(32)), "ECDH_P256", 0},
        {"P-384 without a tag", CurveAnswer("P-384", Pattern(48), Pattern(48)), "ECDH_P384", 0},
        {"P-521 without a tag", CurveAnswer("P-521", Pattern(66), Pattern(66)), "ECDH_P521", 0},
        {"another curve", CurveAnswer("P-256K", Pattern(32), Pattern(32)), "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const NCRYPT_KEY_HANDLE key = OpenAnswered(row.answer);
        ASSERT_NE(0u, key);
        EXPECT_EQ(row.algName, Narrow(Record(key)->pszAlgName));
        EXPECT_EQ(row.bits, Record(key)->dwBitLength);
        EXPECT_EQ(3u, Record(key)->dwKeyUsage);  // whatever the operations say
    }
}

TEST_F(OpenKeyTest, TheMachineFlagChoosesTheClientAndOtherFlagsDoNotCount)
{
    root.SetText(HKEY_CURRENT_USER, "KeyVault", Simulator::kStandardVault);
    AddRsaKey("both");
    sim.AddKey(Simulator::kStandardVault, {{"name", "both"}, {"kty", "RSA"}, {"size", 3072}});
    const NCRYPT_KEY_HANDLE machine = OpenKey("both", 0xFFFFFFFF);
    const NCRYPT_KEY_HANDLE user = OpenKey("both", ~DWORD{NCRYPT_MACHINE_KEY_FLAG});
    EXPECT_EQ(2048u, Record(machine)->dwBitLength);
    EXPECT_EQ(DWORD{NCRYPT_MACHINE_KEY_FLAG}, Record(machine)->fMachineKey);
    EXPECT_EQ(3072u, Record(user)->dwBitLength);
    EXPECT_EQ(0u, Record(user)->fMachineKey);

    // Later operations go the same way.
    Padding padding(BCRYPT_PAD_PKCS1, "SHA256");
    EXPECT_EQ(256u, Sign(machine, padding.info(), Pattern(32), BCRYPT_PAD_PKCS1).bytes.size());
    EXPECT_EQ(384u, Sign(user, padding.info(), Pattern(32), BCRYPT_PAD_PKCS1).bytes.size());
}

TEST_F(OpenKeyTest, NamesReachTheVaultInItsForm)
{
    AddRsaKey("-vBAgAAwBA" + std::string(33, 'z'));
    EXPECT_EQ("a b", Narrow(Record(OpenKey("a b"))->pszKeyName));

    // Without a form in the vault the key is not there; a name that no key object takes does not even sign in.
    const struct {
        size_t length;
        SECURITY_STATUS status;
    } rows[] = {{43, NTE_NOT_FOUND}, {129, NTE_NOT_FOUND}, {130, NTE_INVALID_PARAMETER}};
    for (const auto& row : rows) {
        sim.ClearJournal();
        clock.Advance(3601);
        NCRYPT_KEY_HANDLE key = 7;
        EXPECT_EQ(Hex(row.status), Hex(TryOpen(table, provider, std::string(row.length, 'n'), &key))) << row.length;
        EXPECT_EQ(7u, key);
        EXPECT_EQ(Lines{}, sim.VaultRequests());
        EXPECT_EQ(row.status == NTE_INVALID_PARAMETER ? 0u : 1u, sim.Journal().size());
    }
}

TEST_F(OpenKeyTest, EveryFailureToReadLooksTheSame)
{
    AddRsaKey("there");
    OpenProvider();
    // A key that is not there is nothing out of the way: one line and no more.
    Answer("/keys/there?", 401, ReadServiceSample("error-401-no-token-2021-03"));
    for (const char* name : {"there", "absent"}) {
        root.ClearLog();
        NCRYPT_KEY_HANDLE key = 7;
        EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(TryOpen(table, provider, name, &key)));
        EXPECT_EQ(7u, key);
        EXPECT_EQ(Lines{"KelvaroOpenKey Error Error 0x80090011"}, ErrorLines());
    }
}

TEST_F(OpenKeyTest, BadArgumentsOfAnOpen)
{
    NCRYPT_KEY_HANDLE key = 7;
    BYTE noProvider[sizeof(KSP_PROVIDER)] = {};
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE),
              Hex(TryOpen(table, reinterpret_cast<NCRYPT_PROV_HANDLE>(noProvider), "k", nullptr)));
    EXPECT_TRUE(root.Logged("KelvaroOpenKey Error Error 0x80090026", 1));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(TryOpen(table, OpenProvider(), "k", nullptr)));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(table->OpenKey(provider, &key, nullptr, 0, 0)));
    EXPECT_TRUE(root.Logged("KelvaroOpenKey (NULL) 0", 4));
    EXPECT_TRUE(root.Logged("KelvaroOpenKey Error Error 0x80090027", 1));
}

TEST_F(OpenKeyTest, AReleaseNamesItsKeyAndRefusesWhatIsNone)
{
    AddRsaKey("web");
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    BYTE noKey[sizeof(KSP_KEY)] = {};
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(noKey))));
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FreeKey(provider, 0)));
    EXPECT_EQ(Lines(2, "KelvaroFreeKey Error 0x80090026"), ErrorLines());

    root.ClearLog();
    FreeKey(key);
    EXPECT_TRUE(root.Logged("KelvaroFreeKey", 4));
    EXPECT_TRUE(root.Logged("KelvaroFreeKey web", 6));
    EXPECT_TRUE(root.Logged("DeleteKeyObject Complete", 8));

    KSP_KEY* nameless = nullptr;
    ASSERT_EQ(0, CreateNewKeyObject(nullptr, TEXT("RSA"), &nameless, 0));
    EXPECT_EQ(0, table->FreeKey(provider, reinterpret_cast<NCRYPT_KEY_HANDLE>(nameless)));
    EXPECT_TRUE(root.Logged("KelvaroFreeKey NULL Name", 6));
}

}  // namespace
