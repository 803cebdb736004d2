// Enumerations of the provider's algorithms and of the vault's keys.
#include "tests/provider/provider_fixture.h"

constexpr SECURITY_STATUS kReadFailed = static_cast<SECURITY_STATUS>(0x801B8002);

using EnumerationTest = ProviderTest;

TEST_F(EnumerationTest, AlgorithmsBySelection)
{
    // Each with its class, operations and flags.
    const std::string rsa = "RSA 3 20 0, ";
    const std::string ecdsa = "ECDSA_P256 5 16 0, ECDSA_P384 5 16 0, ECDSA_P521 5 16 0, ";
    const std::string ecdh = "ECDH_P256 4 24 0, ECDH_P384 4 24 0, ECDH_P521 4 24 0, ";
    const std::pair<DWORD, std::string> rows[] = {
        {0, rsa + ecdsa + ecdh}, {0x18, rsa + ecdsa + ecdh}, {0x10, rsa + ecdsa}, {4, rsa}, {8, ecdh},
        {0xC, rsa + ecdh},       {0x30, rsa + ecdsa},
    };
    for (const auto& [operations, expected] : rows) {
        SCOPED_TRACE(operations);
        DWORD count = 0;
        NCryptAlgorithmName* list = nullptr;
        ASSERT_EQ(0, table->EnumAlgorithms(OpenProvider(), operations, &count, &list, NCRYPT_SILENT_FLAG));
        std::string found;
        const void* name = list + count;  // the names follow the records
        for (const NCryptAlgorithmName* row = list; row < list + count; ++row) {
            EXPECT_EQ(name, row->pszName);
            name = row->pszName + TextString(row->pszName).size() + 1;
            found += Narrow(row->pszName);
            for (const DWORD number : {row->dwClass, row->dwAlgOperations, row->dwFlags})
                found += " " + std::to_string(number);
            found += ", ";
            EXPECT_EQ(0, table->IsAlgSupported(provider, row->pszName, NCRYPT_SILENT_FLAG));
        }
        EXPECT_EQ(expected, found);
        EXPECT_EQ(0, table->FreeBuffer(list));
    }
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(EnumerationTest, ListsKeysWithTheirAlgorithms)
{
    PVOID state = nullptr;
    Answer("/keys?", 200, ReadServiceSample("certificate-list-pending"));  // items without a "kid"
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status)) << "no keys";
    EXPECT_EQ(nullptr, state);
    sim.ClearJournal();
    sim.AddKey(Simulator::kVault,
               {{"name", "curve"}, {"kty", "EC"}, {"crv", "P-384"}, {"tags", {{"AlgID", "ECDH_P384"}}}});
    sim.AddKey(Simulator::kVault, {{"name", "plain"}, {"pem", PrivateKeyPem("rsa2048")}, {"tags", {{"a", "b"}}}});
    AddKey("untagged", "P-256");
    Answer("/keys/untagged?", 200, RsaAnswer(Pattern(256)).dump());
    Lines found;
    Found next = Next(&state, kMachine | NCRYPT_SILENT_FLAG);
    AddKey("later", "P-256");  // not listed: the first call reads the whole list
    for (; next.status == 0; next = Next(&state)) {
        found.push_back(next.name + " " + next.algId);
        EXPECT_EQ(kMachine, next.flags);
    }
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(next.status));
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
    EXPECT_EQ((Lines{"curve ECDH_P384", "plain RSA", "untagged "}), found);
    EXPECT_EQ((Lines{"GET /keys?api-version=2016-10-01", "GET /keys/curve?api-version=2016-10-01",
                     "GET /keys/plain?api-version=2016-10-01", "GET /keys/untagged?api-version=2016-10-01"}),
              sim.VaultRequests());
    EXPECT_EQ(Lines{}, ErrorLines());
    EXPECT_EQ(0, table->FreeBuffer(state));
}

TEST_F(EnumerationTest, EachCallsFlagsChooseItsClient)
{
    root.SetText(HKEY_CURRENT_USER, "KeyVault", Simulator::kStandardVault);
    AddKey("first", "P-256", Simulator::kStandardVault);
    AddKey("second", "P-256", Simulator::kStandardVault);
    sim.AddKey(Simulator::kVault, {{"name", "second"}, {"kty", "EC"}, {"tags", {{"AlgID", "ECDH_P256"}}}});
    PVOID state = nullptr;
    const Found first = Next(&state, 0), second = Next(&state, kMachine);
    EXPECT_EQ("first", first.name);
    EXPECT_EQ(0u, first.flags);
    EXPECT_EQ("second ECDH_P256", second.name + " " + second.algId);
    table->FreeBuffer(state);
}

TEST_F(EnumerationTest, AKeyThatCannotBeReadIsRetried)
{
    for (const char* name : {"a", "b", "c"})
        AddKey(name, "P-256");
    PVOID state = nullptr;
    for (const char* path : {"/keys?", "/keys/a?"}) {
        Answer(path, 403);
        EXPECT_EQ(Hex(kReadFailed), Hex(Next(&state).status));
        EXPECT_EQ(nullptr, state) << "a state with no key read";
        EXPECT_EQ("KelvaroEnumKeys Error 0x801b8002", LastErrorLine());
    }
    EXPECT_EQ("a", Next(&state).name);
    Answer("/keys/b?", 403, "", 2);
    const PVOID kept = state;
    EXPECT_EQ(Hex(kReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(Hex(kReadFailed), Hex(Next(&state).status));
    EXPECT_EQ("b", Next(&state).name);
    EXPECT_EQ("c", Next(&state).name);
    EXPECT_EQ(kept, state);
    table->FreeBuffer(state);
}

TEST_F(EnumerationTest, AForeignStateIsRefused)
{
    AddKey("a", "P-256");
    NCryptKeyName* name = nullptr;
    PVOID listed = nullptr;
    ASSERT_EQ(0, table->EnumKeys(OpenProvider(), nullptr, &name, &listed, kMachine));
    BYTE foreign[64] = {};
    const auto refuse = [&](const PVOID given) {
        PVOID state = given;
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Next(&state).status));
        EXPECT_EQ(given, state);
    };
    refuse(foreign);
    refuse(name);  // a buffer of another kind
    table->FreeBuffer(name);
    table->FreeBuffer(listed);
    refuse(listed);
    EXPECT_EQ(Bytes(64), Bytes(foreign, foreign + 64));
}
