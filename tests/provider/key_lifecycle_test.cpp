// Keys that a host makes and unmakes: creation, finalization, deletion.
#include "tests/provider/key_fixture.h"

namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

constexpr char kDone[] = "0x00000000";
constexpr DWORD kMachine = NCRYPT_MACHINE_KEY_FLAG;

class KeyLifecycleTest : public KeyTest {
  protected:
    void SetUp() override
    {
        KeyTest::SetUp();
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        OpenProvider();
    }

    // name: NULL for none. *key is written on success alone.
    std::string Create(const char* algorithm, const char* name, NCRYPT_KEY_HANDLE* key, DWORD flags = kMachine)
    {
        const TextString wide = Wide(name ? name : "");
        return Hex(
            table->CreatePersistedKey(provider, key, Wide(algorithm).c_str(), name ? wide.c_str() : nullptr, 1, flags));
    }
    // A pending key.
    NCRYPT_KEY_HANDLE Pending(const char* algorithm, const char* name, DWORD flags = kMachine)
    {
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ(kDone, Create(algorithm, name, &key, flags));
        return key;
    }
    std::string Finalize(NCRYPT_KEY_HANDLE key, DWORD flags = 0)
    {
        return Hex(table->FinalizeKey(provider, key, flags));
    }
    std::string Delete(NCRYPT_KEY_HANDLE key, DWORD flags = 0) { return Hex(table->DeleteKey(provider, key, flags)); }
    std::string Free(NCRYPT_KEY_HANDLE key) { return Hex(table->FreeKey(provider, key)); }
    std::string SetLength(NCRYPT_KEY_HANDLE key, DWORD bits)
    {
        return Hex(table->SetKeyProperty(provider, key, TEXT("Length"), reinterpret_cast<BYTE*>(&bits), 4, 0));
    }

    // Signs with the key and has the vault verify that.
    void ExpectToSign(NCRYPT_KEY_HANDLE key, DWORD hashSize)
    {
        const DWORD flags = Record(key)->kvk.isEC ? 0 : BCRYPT_PAD_PKCS1;
        Padding padding(flags, "SHA256");
        void* info = flags ? padding.info() : nullptr;
        const Result signature = Sign(key, info, Pattern(hashSize), flags);
        ASSERT_EQ(kDone, Hex(signature.status));
        EXPECT_EQ(0, Verify(key, info, Pattern(hashSize), signature.bytes, flags));
    }
    json StateOf(const char* vault = Simulator::kVault) { return sim.Control("GET", std::string("/vaults/") + vault); }
    bool VaultIsEmpty(const char* vault = Simulator::kVault)
    {
        const json state = StateOf(vault);
        for (const auto& [area, objects] : state.items()) {
            if (objects.is_array() && !objects.empty())
                return false;
        }
        return true;
    }
};

struct AlgorithmRow {
    const char* name;
    DWORD bits, hashSize;
};
constexpr AlgorithmRow kAlgorithms[] = {
    {"RSA", 2048, 32},      {"ECDSA_P256", 256, 32}, {"ECDSA_P384", 384, 48}, {"ECDSA_P521", 521, 64},
    {"ECDH_P256", 256, 32}, {"ECDH_P384", 384, 48},  {"ECDH_P521", 521, 64},
};

TEST_F(KeyLifecycleTest, EachAlgorithmFromItsCreationToItsPurge)
{
    for (const AlgorithmRow& row : kAlgorithms) {
        SCOPED_TRACE(row.name);
        sim.ClearJournal();
        root.ClearLog();
        const NCRYPT_KEY_HANDLE key = Pending(row.name, "made here");
        EXPECT_EQ(row.bits, Record(key)->dwBitLength);
        EXPECT_EQ(0u, Record(key)->fFinalized);
        EXPECT_EQ(kDone, Finalize(key));
        EXPECT_EQ(1u, Record(key)->fFinalized);
        EXPECT_EQ("made here", Narrow(Record(key)->kvk.clearName));
        ExpectToSign(key, row.hashSize);
        EXPECT_EQ(kDone, Delete(key, NCRYPT_SILENT_FLAG));
        EXPECT_TRUE(VaultIsEmpty());

        Lines verbs;
        for (const std::string& request : sim.VaultRequests()) {
            const std::string path = request.substr(0, request.find('?'));
            verbs.push_back(path.substr(0, path.find('/')) + path.substr(path.rfind('/') + 1));
        }
        const std::string coded = verbs[0].substr(4);
        EXPECT_EQ(
            (Lines{"GET " + coded, "POST create", "POST sign", "POST verify", "DELETE " + coded, "DELETE " + coded}),
            verbs);
        EXPECT_EQ(Lines{}, ErrorLines());
        EXPECT_TRUE(root.Logged("KelvaroCreatePersistedKey Name made here " + std::string(row.name), 4));
        EXPECT_TRUE(root.Logged("KelvaroCreatePersistedKey dwFlags 32", 8));
        EXPECT_TRUE(root.Logged("KelvaroCreatePersistedKey dwLegacyKeySpec 1", 8));
        EXPECT_TRUE(root.Logged("KelvaroFinalizeKey", 4));
        EXPECT_TRUE(root.Logged("KelvaroDeleteKey Key Deleted - now free the storage", 4));
        EXPECT_TRUE(root.Logged("KelvaroFreeKey made here", 6));
    }
}

TEST_F(KeyLifecycleTest, WhatACreationRefuses)
{
    AddRsaKey("there");
    NCRYPT_KEY_HANDLE key = 7;
    const std::string n129(129, 'n');
    const std::string n130(130, 'n');
    const struct {
        const char* algorithm;
        const char* name;
        DWORD flags;
        SECURITY_STATUS status;
        Lines lines;  // before the entry point's own
    } rows[] = {
        {"RSA", "k", 0x100, NTE_BAD_FLAGS, {}},
        {"none", "k", 0x1, NTE_BAD_FLAGS, {}},
        {"ecdsa_p256", "k", 0, NTE_NOT_SUPPORTED, {"KelvaroCreatePersistedKey Invalid Algorithm ecdsa_p256"}},
        {"", "k", 0, NTE_NOT_SUPPORTED, {"KelvaroCreatePersistedKey Invalid Algorithm "}},
        {"RSA", n130.c_str(), 0, NTE_INVALID_PARAMETER, {"KelvaroCreatePersistedKey CreateNewKeyObject Failed"}},
        {"RSA", "there", kMachine, NTE_EXISTS, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.algorithm) + " " + row.name);
        root.ClearLog();
        EXPECT_EQ(Hex(row.status), Create(row.algorithm, row.name, &key, row.flags));
        Lines lines = row.lines;
        lines.push_back("KelvaroCreatePersistedKey Error " + Hex(row.status));
        EXPECT_EQ(lines, ErrorLines());
    }
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Create("RSA", "k", nullptr, 0x100));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER),
              Hex(table->CreatePersistedKey(provider, &key, nullptr, TEXT("k"), 0, kMachine)));
    EXPECT_EQ(7u, key);
    EXPECT_EQ((Lines{"GET /keys/there?api-version=2016-10-01"}), sim.VaultRequests());

    // A name without a form in the vault is free, and comes to nothing later.
    const NCRYPT_KEY_HANDLE longName = Pending("RSA", n129.c_str());
    EXPECT_EQ(Hex(NTE_FAIL), Finalize(longName));
    EXPECT_EQ(Hex(NTE_FAIL), Delete(longName));
    EXPECT_EQ(kDone, Free(longName));

    const WithoutClient without(ProviderRecord());
    EXPECT_EQ(kDone, Free(Pending("RSA", nullptr)));
}

TEST_F(KeyLifecycleTest, AnOverwritingCreationDoesNotLook)
{
    AddRsaKey("there");
    const NCRYPT_KEY_HANDLE key = Pending("ECDSA_P256", "there", kMachine | NCRYPT_OVERWRITE_KEY_FLAG);
    EXPECT_EQ(Lines{}, sim.VaultRequests());
    EXPECT_EQ(kDone, Finalize(key));
    EXPECT_EQ(Lines{"POST /keys/there/create?api-version=7.0"}, sim.VaultRequests());
    EXPECT_EQ(2u, StateOf()["keys"][0]["versions"].size());
    EXPECT_EQ(kDone, Free(key));

    // A lookup that fails for another reason leaves the name free too.
    Answer("/keys/there?", 403);
    EXPECT_EQ(kDone, Free(Pending("RSA", "there")));
    EXPECT_EQ(Lines{}, ErrorLines());
}

TEST_F(KeyLifecycleTest, AKeyWithoutANameIsMadeWithoutTheVault)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA", nullptr);
    EXPECT_EQ(kDone, Finalize(key));
    EXPECT_EQ(1u, Record(key)->fFinalized);
    EXPECT_EQ(0u, Record(key)->kvk.valid);
    EXPECT_EQ(0u, sim.Journal().size());
    root.ClearLog();
    EXPECT_EQ(Hex(NTE_FAIL), Delete(key));
    EXPECT_EQ((Lines{"KVCKeyDelete NULL Parameter", "KelvaroDeleteKey Error 0x80090020"}), ErrorLines());
    EXPECT_EQ(kDone, Free(key));
    EXPECT_EQ(Lines{}, sim.VaultRequests());
}

TEST_F(KeyLifecycleTest, AFinalizationThatFailsMayBeTriedAgain)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA", "again");
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), Finalize(key, 0x10));
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Finalize(key, NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), Finalize(key, 0x210)) << "flags come first";
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FinalizeKey(provider, 0, 0)));
    EXPECT_EQ((Lines{"KelvaroFinalizeKey Error 0x80090009", "KelvaroFinalizeKey Error 0x80090029",
                     "KelvaroFinalizeKey Error 0x80090009", "KelvaroFinalizeKey Error 0x80090026"}),
              ErrorLines());

    Answer("/create?", 500);
    EXPECT_EQ(Hex(NTE_FAIL), Finalize(key));
    EXPECT_EQ("KelvaroFinalizeKey Error 0x80090020", LastErrorLine());
    EXPECT_EQ(0u, Record(key)->fFinalized);
    // A length that the provider refuses goes to the vault all the same, which refuses it too.
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), SetLength(key, 2049));
    EXPECT_EQ(Hex(NTE_FAIL), Finalize(key));
    EXPECT_NE(std::string::npos, Bodies("create").back().find("\"key_size\":\"2049\""));
    EXPECT_EQ(kDone, SetLength(key, 3072));
    EXPECT_EQ(kDone, Finalize(key, NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG));
    EXPECT_EQ(384u, Record(key)->kvk.n_siz);
    ExpectToSign(key, 32);
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Finalize(key)) << "twice";
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), SetLength(key, 2048));
    EXPECT_EQ(kDone, Free(key));
}

TEST_F(KeyLifecycleTest, AFinalizationRunsOnTheTokenThatIsThere)
{
    const NCRYPT_KEY_HANDLE key = Pending("ECDSA_P256", "late");
    const int signIns = sim.SignIns();
    clock.Advance(3601);
    EXPECT_EQ(kDone, Finalize(key)) << "the vault still takes the token";
    EXPECT_EQ(signIns, sim.SignIns());
    EXPECT_EQ(kDone, Delete(key));
    EXPECT_EQ(signIns + 1, sim.SignIns()) << "a deletion signs in";
}

TEST_F(KeyLifecycleTest, UserKeysGoToTheUsersVault)
{
    FreeProvider(provider);
    root.SetText(HKEY_CURRENT_USER, "KeyVault", Simulator::kStandardVault);
    OpenProvider();
    const NCRYPT_KEY_HANDLE key = Pending("ECDSA_P256", "mine", NCRYPT_SILENT_FLAG);
    EXPECT_EQ(kDone, Finalize(key));
    EXPECT_EQ("EC", Narrow(Record(key)->kvk.kty)) << "after a fall-back";
    EXPECT_EQ(1u, StateOf(Simulator::kStandardVault)["keys"].size());
    EXPECT_EQ(kDone, Delete(key));
    EXPECT_TRUE(VaultIsEmpty(Simulator::kStandardVault));
    EXPECT_TRUE(VaultIsEmpty());
}

TEST_F(KeyLifecycleTest, ADeletionThatFailsLeavesTheHandle)
{
    AddCurveKey("stays", "P-256");
    const NCRYPT_KEY_HANDLE key = OpenKey("stays");
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->DeleteKey(provider, 0, 0)));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), Delete(key, kMachine));
    EXPECT_EQ((Lines{"KelvaroDeleteKey Error 0x80090026", "KelvaroDeleteKey Error 0x80090009"}), ErrorLines());
    sim.Fault({{"method", "DELETE"}, {"path", "/keys/stays?"}, {"action", "status"}, {"status", 403}});
    root.ClearLog();
    EXPECT_EQ(Hex(NTE_FAIL), Delete(key));
    EXPECT_EQ("KelvaroDeleteKey Error 0x80090020", LastErrorLine());
    ExpectToSign(key, 32);
    FreeKey(key);

    // One that was never finalized stands for its name.
    const NCRYPT_KEY_HANDLE pending = Pending("RSA", "stays", kMachine | NCRYPT_OVERWRITE_KEY_FLAG);
    EXPECT_EQ(kDone, Delete(pending));
    EXPECT_TRUE(VaultIsEmpty());
}

TEST_F(KeyLifecycleTest, EveryAllocationOfAFinalizationMayFail)
{
    const NCRYPT_KEY_HANDLE key = Pending("ECDSA_P256", "scarce");
    const auto finalize = [&] {
        Record(key)->fFinalized = 0;
        KVCFreeKVKey(&Record(key)->kvk);
        return table->FinalizeKey(provider, key, 0);
    };
    const size_t failures = FailEach(finalize, [](SECURITY_STATUS status, size_t failAt) {
        EXPECT_TRUE(failAt > 0 || status == NTE_NO_MEMORY) << "the call record comes first";
    });
    EXPECT_GT(failures, 10u);

    // By a client that has to sign in first, a token that was granted and lost is no failure of the vault.
    KVCClient* const client = Record(key)->kvc;
    const auto signInAndFinalize = [&] {
        BldStrWipeFree(client->accessToken);
        client->accessToken = nullptr;
        client->tokenExpiry = 0;
        return finalize();
    };
    size_t lost = 0;
    FailEach(signInAndFinalize, [&](SECURITY_STATUS status, size_t failAt) {
        if (root.WholeLog().find("KVCAuthenticate Out of memory") != std::string::npos) {
            lost++;
            EXPECT_EQ(Hex(NTE_NO_MEMORY), Hex(status)) << "allocation " << failAt;
        }
        root.ClearLog();
    });
    EXPECT_GT(lost, 0u);
    EXPECT_EQ(kDone, Free(key));
}

using CertificateModeKeyLifecycleTest = KeyLifecycleTest;

TEST_F(CertificateModeKeyLifecycleTest, AStandardVaultFromCreationToPurge)
{
    FreeProvider(provider);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", Simulator::kStandardVault);
    OpenProvider();
    for (const AlgorithmRow& row : kAlgorithms) {
        SCOPED_TRACE(row.name);
        const NCRYPT_KEY_HANDLE key = Pending(row.name, "web");
        EXPECT_EQ(kDone, Finalize(key));
        EXPECT_EQ(true, StateOf(Simulator::kStandardVault)["certificates"][0]["versions"][0]["merged"]);
        EXPECT_EQ(row.name, Narrow(Record(key)->kvk.AlgID));
        ExpectToSign(key, row.hashSize);
        EXPECT_EQ(kDone, Delete(key));
        EXPECT_TRUE(VaultIsEmpty(Simulator::kStandardVault));
    }
}

}  // namespace
