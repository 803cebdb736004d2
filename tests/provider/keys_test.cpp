// Opening, creating, exporting and deleting keys of the vault.
#include "tests/provider/provider_fixture.h"
#include "tests/provider/words.h"

namespace {

class KeysTest : public ProviderTest {
  protected:
    void SetUp() override
    {
        ProviderTest::SetUp();
        sim.Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        OpenProvider();
    }
    std::string Delete(NCRYPT_KEY_HANDLE key, DWORD flags = 0)
    {
        const SECURITY_STATUS status = table->DeleteKey(provider, key, flags);
        if (status == 0)
            Forget(key);
        return Hex(status);
    }
    // Signs with the key, and lets the vault verify the signature.
    void ExpectToSign(NCRYPT_KEY_HANDLE key)
    {
        const DWORD flags = Record(key)->kvk.isEC ? 0 : BCRYPT_PAD_PKCS1;
        const Result signature = Sign(key, Pattern(32), flags, "SHA256");
        EXPECT_EQ(kDone, Verify(key, Pattern(32), signature.bytes, flags, "SHA256"));
    }
    json StateOf(const char* vault = Simulator::kVault) { return sim.Control("GET", std::string("/vaults/") + vault); }
};

TEST_F(KeysTest, AnOpenCostsOneReadAndNothingIsCached)
{
    AddKey("web", "RSA");
    const int signIns = sim.SignIns();
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    OpenKey("web");
    EXPECT_EQ(Lines(2, "GET /keys/web?api-version=2016-10-01"), sim.VaultRequests());
    EXPECT_EQ(signIns + 1, sim.SignIns());
    EXPECT_EQ(TextBytes("web"), GetKey(key, "Name").bytes);
    EXPECT_EQ(Hex(NTE_BAD_KEY_STATE), Hex(SetKey(key, "Length", Words({2048})))) << "it is finalized";
}

// A modulus is exported with a leading zero byte, and a coordinate unchanged. The tag of its record makes a curve key
// ECDH or ECDSA; without one it is opened as ECDH, and exported by its operations.
TEST_F(KeysTest, TheVaultsDescriptionGivesNameLengthAndBlob)
{
    for (const auto& row : SectionRows("keys.txt")) {
        SCOPED_TRACE(testing::PrintToString(row));
        const bool isRsa = row[0] == "RSA";
        const Bytes number = BytesOfWord(row[1]), reversed(number.rbegin(), number.rend());
        const Bytes written = isRsa ? BytesOfWord(row[2]) : number + reversed;
        const DWORD bits = NumberOfWord(row[4]), size = static_cast<DWORD>(isRsa ? written.size() : number.size());
        const Bytes head =
            isRsa ? Words({0x31415352, bits, 3, size, 0, 0}) + Bytes{1, 0, 1} : Words({NumberOfWord(row[2]), size});
        const NCRYPT_KEY_HANDLE key =
            OpenAnswered(isRsa ? RsaAnswer(number) : CurveAnswer(row[0], number, reversed, {row[5]}, row[6].substr(1)));
        EXPECT_EQ(BytesOfWord(row[3]), GetKey(key, "Algorithm Name").bytes);
        EXPECT_EQ(Words({bits}), GetKey(key, "Length").bytes);
        EXPECT_EQ(Words({3}), GetKey(key, "Key Usage").bytes) << "regardless of the operations";
        EXPECT_EQ(head + written, Export(key, isRsa ? "RSAPUBLICBLOB" : "ECCPUBLICBLOB").bytes);
        const Result generic = Export(key, "PUBLICBLOB", NCRYPT_SILENT_FLAG);
        EXPECT_EQ(Hex(isRsa ? 0 : NTE_INVALID_PARAMETER), Hex(generic.status));
        EXPECT_EQ(isRsa ? head + written : Bytes(), generic.bytes);
    }
}

TEST_F(KeysTest, RefusedExports)
{
    const std::pair<const char*, json> rows[] = {
        {"ECCPUBLICBLOB", RsaAnswer(Pattern(256))},
        {"RSAPUBLICBLOB", CurveAnswer("P-256", Pattern(32), Pattern(32))},
        {"ECCPUBLICBLOB", CurveAnswer("P-256", Pattern(32), Pattern(31))},
        {"RSAPUBLICBLOB", RsaAnswer(Pattern(1973))},                          // a byte too long
        {"ECCPUBLICBLOB", CurveAnswer("P-256", Pattern(997), Pattern(997))},  // both a byte too long
    };
    for (const auto& [type, answer] : rows) {
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Export(OpenAnswered(answer), type).status)) << &type - &rows[0].first;
        EXPECT_EQ("KelvaroExportKey Failed Error 0x80090027", LastErrorLine());
    }
    const NCRYPT_KEY_HANDLE key = OpenAnswered(RsaAnswer(Pattern(256)));
    Bytes room(284, 0xAA);
    DWORD size = 0;
    EXPECT_EQ(Hex(NTE_BUFFER_TOO_SMALL),
              Hex(table->ExportKey(provider, key, 0, TEXT("RSAPUBLICBLOB"), nullptr, room.data(), 283, &size, 0)));
    EXPECT_EQ(284u, size);
    EXPECT_EQ(Bytes(284, 0xAA), room);
}

TEST_F(KeysTest, OnlyTheMachineFlagOfAnOpenCounts)
{
    FreeProvider(provider);
    root.SetText(HKEY_CURRENT_USER, "KeyVault", Simulator::kStandardVault);
    AddKey("both", "P-256");
    AddKey("both", "P-384", Simulator::kStandardVault);
    EXPECT_EQ(64u, Sign(OpenKey("both", 0xFFFFFFFF), Pattern(32)).bytes.size());
    EXPECT_EQ(96u, Sign(OpenKey("both", ~kMachine), Pattern(32)).bytes.size());

    const json before = StateOf(Simulator::kStandardVault);
    const NCRYPT_KEY_HANDLE made = Pending("ECDSA_P256", "mine", NCRYPT_SILENT_FLAG);
    EXPECT_EQ(0, Finalize(made));
    EXPECT_EQ("EC", Narrow(Record(made)->kvk.kty)) << "a software key, since the vault has no hardware";
    EXPECT_NE(before, StateOf(Simulator::kStandardVault));
    EXPECT_EQ(kDone, Delete(made));
    EXPECT_EQ(before, StateOf(Simulator::kStandardVault));
}

TEST_F(KeysTest, NamesReachTheVaultInItsForm)
{
    AddKey("-vBAgAAwBA" + std::string(33, 'z'), "P-256");
    EXPECT_EQ(TextBytes("a b"), GetKey(OpenKey("a b"), "Name").bytes);
    // A name that no vault can have is free, and fails later.
    for (const size_t length : {43, 129}) {
        sim.ClearJournal();
        const NCRYPT_KEY_HANDLE pending = Pending("RSA", std::string(length, 'n').c_str());
        EXPECT_EQ(Hex(NTE_FAIL), Hex(Finalize(pending)));
        EXPECT_EQ(Hex(NTE_FAIL), Delete(pending));
        EXPECT_EQ(Lines{}, sim.VaultRequests());
    }
}

// A missing key is normal: it logs a single line.
TEST_F(KeysTest, EveryFailureToReadLooksTheSame)
{
    AddKey("there", "P-256");
    Answer("/keys/there?", 401, ReadServiceSample("error-401-no-token-2021-03"));
    for (const std::string& name : {std::string("there"), std::string("absent"), std::string(43, 'n')}) {
        root.ClearLog();
        NCRYPT_KEY_HANDLE key = 7;
        EXPECT_EQ(Hex(NTE_NOT_FOUND), Hex(table->OpenKey(OpenProvider(), &key, Wide(name).c_str(), 0, kMachine)));
        EXPECT_EQ(7u, key);
        EXPECT_EQ(Lines{"KelvaroOpenKey Error Error 0x80090011"}, ErrorLines());
    }
    EXPECT_EQ(2u, sim.VaultRequests().size()) << "the last name can't be encoded for the vault";
}

TEST_F(KeysTest, ACreationLooksForTheNameUnlessItOverwrites)
{
    AddKey("there", "RSA");
    NCRYPT_KEY_HANDLE key = 7;
    EXPECT_EQ(Hex(NTE_EXISTS), Hex(table->CreatePersistedKey(provider, &key, TEXT("RSA"), TEXT("there"), 0, kMachine)));
    EXPECT_EQ(7u, key);
    EXPECT_EQ("KelvaroCreatePersistedKey Error 0x8009000f", LastErrorLine());
    Answer("/keys/there?", 403);
    Pending("RSA", "there");  // the name counts as free if the look-up fails for another reason
    EXPECT_EQ(Lines(2, "GET /keys/there?api-version=2016-10-01"), sim.VaultRequests());
    sim.ClearJournal();
    const NCRYPT_KEY_HANDLE over = Pending("ECDSA_P256", "there", kMachine | NCRYPT_OVERWRITE_KEY_FLAG);
    EXPECT_EQ(Lines{}, sim.VaultRequests());
    EXPECT_EQ(0, Finalize(over));
    EXPECT_EQ(Lines{"POST /keys/there/create?api-version=7.0"}, sim.VaultRequests());
    EXPECT_EQ(2u, StateOf()["keys"][0]["versions"].size());
}

TEST_F(KeysTest, AKeyWithoutANameNeverReachesTheVault)
{
    NCRYPT_KEY_HANDLE key;
    {
        const WithoutClient without(ProviderRecord());
        key = Pending("RSA");
        EXPECT_EQ(0, Finalize(key));
        EXPECT_EQ(1u, Record(key)->fFinalized);
        EXPECT_EQ(0u, sim.Journal().size());
    }
    EXPECT_EQ(Hex(NTE_FAIL), Delete(key));
    EXPECT_EQ((Lines{"KVCKeyDelete NULL Parameter", "KelvaroDeleteKey Error 0x80090020"}), ErrorLines());
    EXPECT_EQ(Lines{}, sim.VaultRequests());
}

TEST_F(KeysTest, AFailedFinalizationMayBeRetried)
{
    const NCRYPT_KEY_HANDLE key = Pending("RSA", "again");
    Answer("/create?", 500);
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Finalize(key)));
    EXPECT_EQ("KelvaroFinalizeKey Error 0x80090020", LastErrorLine());
    EXPECT_EQ(0u, Record(key)->fFinalized);
    // The vault refuses the length too.
    EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), Hex(SetKey(key, "Length", Words({2049}))));
    EXPECT_EQ(Hex(NTE_FAIL), Hex(Finalize(key)));
    EXPECT_EQ("2049", Bodies("create").back()["key_size"]);
    EXPECT_EQ(0, SetKey(key, "Length", Words({3072})));
    EXPECT_EQ(0, Finalize(key, NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG));
    EXPECT_EQ(384u, Record(key)->kvk.n_siz);
    ExpectToSign(key);
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(Finalize(key))) << "twice";
}

TEST_F(KeysTest, AFinalizationUsesTheCurrentToken)
{
    const NCRYPT_KEY_HANDLE key = Pending("ECDSA_P256", "late");
    const int signIns = sim.SignIns();
    clock.Advance(3601);
    EXPECT_EQ(0, Finalize(key)) << "the vault still accepts the token";
    EXPECT_EQ(signIns, sim.SignIns());
    EXPECT_EQ(kDone, Delete(key));
    EXPECT_EQ(signIns + 1, sim.SignIns()) << "a deletion signs in";
}

TEST_F(KeysTest, ADeletionThatFailsLeavesTheHandle)
{
    const json empty = StateOf();
    AddKey("stays", "P-256");
    const NCRYPT_KEY_HANDLE key = OpenKey("stays");
    sim.Fault({{"method", "DELETE"}, {"path", "/keys/stays?"}, {"action", "status"}, {"status", 403}});
    EXPECT_EQ(Hex(NTE_FAIL), Delete(key));
    EXPECT_EQ("KelvaroDeleteKey Error 0x80090020", LastErrorLine());
    ExpectToSign(key);
    // An unfinalized key deletes the vault's key of its name.
    EXPECT_EQ(kDone, Delete(Pending("RSA", "stays", kMachine | NCRYPT_OVERWRITE_KEY_FLAG)));
    EXPECT_EQ(empty, StateOf());
}

}  // namespace
