// What a host learns of the provider's algorithms and of the vault's keys.
#include <set>
#include <sstream>

#include "tests/provider/key_fixture.h"

namespace {

using Lines = std::vector<std::string>;
constexpr SECURITY_STATUS kVaultReadFailed = static_cast<SECURITY_STATUS>(0x801B8002);

using EnumTest = KeyTest;

TEST_F(EnumTest, AlgorithmsBySelection)
{
    // Each with its class, operations and flags.
    const std::string rsa = "RSA 3 20 0, ";
    const std::string ecdsa = "ECDSA_P256 5 16 0, ECDSA_P384 5 16 0, ECDSA_P521 5 16 0, ";
    const std::string ecdh = "ECDH_P256 4 24 0, ECDH_P384 4 24 0, ECDH_P521 4 24 0, ";
    const std::pair<DWORD, std::string> rows[] = {
        {0, rsa + ecdsa + ecdh},
        {0x18, rsa + ecdsa + ecdh},
        {0x10, rsa + ecdsa},
        {4, rsa},
        {8, ecdh},
        {0xC, rsa + ecdh},
        {0x30, rsa + ecdsa},
        {1, ""},
        {2, ""},
        {0x20, ""},
    };
    for (const auto& [operations, expected] : rows) {
        SCOPED_TRACE(operations);
        DWORD count = 77;
        NCryptAlgorithmName* list = nullptr;
        EXPECT_EQ(Hex(expected.empty() ? NTE_NOT_SUPPORTED : 0),
                  Hex(table->EnumAlgorithms(OpenProvider(), operations, &count, &list, 0)));
        EXPECT_TRUE(list || count == 77);
        std::ostringstream found;
        for (const NCryptAlgorithmName* row = list; row && row < list + count; ++row)
            found << Narrow(row->pszName) << " " << row->dwClass << " " << row->dwAlgOperations << " " << row->dwFlags
                  << ", ";
        EXPECT_EQ(expected, found.str());
        EXPECT_EQ(0, table->FreeBuffer(list));
    }
    EXPECT_TRUE(root.Logged("KelvaroEnumAlgorithms Called 32", 4));
    EXPECT_EQ(Lines(3, "KelvaroEnumAlgorithms Error 0x80090029"), ErrorLines());
    EXPECT_EQ(0u, sim.Journal().size());
}

TEST_F(EnumTest, TheAlgorithmsAreOneBlock)
{
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    ASSERT_EQ(0, table->EnumAlgorithms(OpenProvider(), 4, &count, &list, NCRYPT_SILENT_FLAG));
    EXPECT_EQ(static_cast<void*>(list + 1), list->pszName);  // the name directly behind the one record
    const BYTE* bytes = reinterpret_cast<const BYTE*>(list);
    const size_t end = offsetof(NCryptAlgorithmName, dwFlags) + sizeof(DWORD);
    EXPECT_EQ(Bytes(sizeof(NCryptAlgorithmName) - end, 0xCC), Bytes(bytes + end, bytes + sizeof(NCryptAlgorithmName)));
    table->FreeBuffer(list);

    list = nullptr;
    {
        const AllocFault fault(0);
        EXPECT_EQ(Hex(NTE_NO_MEMORY), Hex(table->EnumAlgorithms(provider, 0, &count, &list, 0)));
    }
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(table->EnumAlgorithms(provider, 0, nullptr, &list, 1)));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(table->EnumAlgorithms(provider, 0, &count, nullptr, 1)));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), Hex(table->EnumAlgorithms(provider, 1, &count, &list, 0x41)));
    EXPECT_EQ(nullptr, list);
}

TEST_F(EnumTest, SupportedAlgorithms)
{
    OpenProvider();
    const auto supported = [&](const WCHAR* name, DWORD flags) {
        return Hex(table->IsAlgSupported(provider, name, flags));
    };
    for (const WCHAR* name : {TEXT("RSA"), TEXT("ECDSA_P256"), TEXT("ECDSA_P384"), TEXT("ECDSA_P521"),
                              TEXT("ECDH_P256"), TEXT("ECDH_P384"), TEXT("ECDH_P521")})
        EXPECT_EQ("0x00000000", supported(name, NCRYPT_SILENT_FLAG)) << Narrow(name);
    for (const WCHAR* name : {TEXT("rsa"), TEXT(""), TEXT("RSA "), TEXT("ECDH"), TEXT("AES")})
        EXPECT_EQ(Hex(NTE_NOT_SUPPORTED), supported(name, 0)) << Narrow(name);
    EXPECT_TRUE(root.Logged("KelvaroIsAlgSupported rsa", 4));
    EXPECT_EQ(Lines(5, "KelvaroIsAlgSupported Error 0x80090029"), ErrorLines());
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), supported(nullptr, 1));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), supported(TEXT("what"), 1));
}

TEST_F(EnumTest, AnEmptyVaultEndsAtOnce)
{
    PVOID state = nullptr;
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);
    Answer("/keys?", 200, ReadServiceSample("certificate-list-pending"));  // items without a "kid"
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);
    EXPECT_EQ(Lines{}, ErrorLines());
}

TEST_F(EnumTest, KeysComeOneByOneWithTheirAlgorithms)
{
    // A key without tags has no algorithm here.
    const nlohmann::json untagged = RsaAnswer(Pattern(256));
    sim.AddKey(Simulator::kVault,
               {{"name", "curve"}, {"kty", "EC"}, {"crv", "P-384"}, {"tags", {{"AlgID", "ECDH_P384"}}}});
    sim.AddKey(Simulator::kVault, {{"name", "plain"}, {"kty", "RSA"}, {"size", 2048}, {"tags", {{"a", "b"}}}});
    AddRsaKey("untagged");
    Answer("/keys/untagged?", 200, untagged.dump());

    PVOID state = nullptr;
    Lines found;
    Found next = Next(&state, NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG);
    AddRsaKey("later");  // a walk shows the vault as it was at its start
    for (; next.status == 0; next = Next(&state)) {
        found.push_back(next.name + " " + next.algId);
        EXPECT_EQ(DWORD{NCRYPT_MACHINE_KEY_FLAG}, next.flags);
    }
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(next.status));
    EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
    EXPECT_EQ((Lines{"curve ECDH_P384", "plain RSA", "untagged "}), found);
    EXPECT_EQ((Lines{"GET /keys?api-version=2016-10-01", "GET /keys/curve?api-version=2016-10-01",
                     "GET /keys/plain?api-version=2016-10-01", "GET /keys/untagged?api-version=2016-10-01"}),
              sim.VaultRequests());
    EXPECT_EQ(Lines{}, ErrorLines());
    EXPECT_EQ(0, table->FreeBuffer(state));
    EXPECT_TRUE(root.Logged("KelvaroEnumKeys NCRYPT_MACHINE_KEY_FLAG", 10));
}

TEST_F(EnumTest, TheClientFollowsTheFlagsOfEachCall)
{
    root.SetText(HKEY_CURRENT_USER, "KeyVault", Simulator::kStandardVault);
    for (const char* vault : {Simulator::kVault, Simulator::kStandardVault}) {
        sim.AddKey(vault, {{"name", "first"}, {"kty", "EC"}, {"crv", "P-256"}});
        sim.AddKey(vault, {{"name", "second"}, {"kty", "EC"}, {"crv", "P-256"}});
    }
    PVOID state = nullptr;
    const Found first = Next(&state, 0);
    EXPECT_EQ("first", first.name);
    EXPECT_EQ(0u, first.flags);
    EXPECT_TRUE(root.Logged("KelvaroEnumKeys NOT NCRYPT_MACHINE_KEY_FLAG", 10));
    EXPECT_EQ("second", Next(&state, NCRYPT_MACHINE_KEY_FLAG).name);
    Lines hosts;
    for (const nlohmann::json& request : sim.Journal()) {
        if (request.value("target", "").rfind("/keys", 0) == 0)
            hosts.push_back(request.value("host", ""));
    }
    EXPECT_EQ((Lines{"fabrikam.vault.azure.net", "fabrikam.vault.azure.net", "contoso-keys.vault.azure.net"}), hosts);
    table->FreeBuffer(state);
}

// The block behind a walk is a published layout: its names are looked at without a read of each key.
struct WalkState {
    LONG index;
    DWORD count;

    WCHAR** names() { return reinterpret_cast<WCHAR**>(this + 1); }
};

struct WalkCost {
    size_t requests;  // of the listing and the first key
    size_t first;     // allocations of the listing and the first key
    size_t next;      // of one further key at the beginning of the walk
    size_t last;      // of the last one
};

TEST_F(EnumTest, TheCostOfAWalkGrowsWithItsKeysAndNoFaster)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 2);
    Reattach();
    sim.Control("PUT", "/paging", {{"maxPage", 25}, {"emptyEvery", 8}, {"firstEmpty", false}});
    AddCurveKey("warm", "P-256");
    OpenKey("warm");  // signs in
    const auto measure = [&](DWORD keys) {
        sim.Control("PUT", std::string("/vaults/") + Simulator::kVault, {{"tier", "premium"}});
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/seed",
                    {{"keys", keys}, {"prefix", "key-"}, {"kty", "EC"}, {"crv", "P-256"}, {"shareMaterial", true}});
        sim.ClearJournal();
        PVOID state = nullptr;
        const auto next = [&](const std::string& expected) {
            const AllocFault count(SIZE_MAX);
            EXPECT_EQ(expected, Next(&state).name);
            return count.Seen();
        };
        WalkCost cost = {};
        cost.first = next("key-000000");
        cost.requests = sim.VaultRequests().size();
        auto* walk = static_cast<WalkState*>(state);
        if (!walk || walk->count != keys) {
            ADD_FAILURE() << "not the whole vault";
            return cost;
        }
        std::set<std::string> all;
        for (DWORD i = 0; i < keys; ++i)
            all.insert(Narrow(walk->names()[i]));
        EXPECT_EQ(keys, all.size());
        cost.next = next("key-000001");
        walk->index = static_cast<LONG>(keys - 1);  // on to the end, past reads that cost what this one costs
        cost.last = next(*all.rbegin());
        EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
        EXPECT_EQ(0, table->FreeBuffer(state));
        return cost;
    };
    const WalkCost small = measure(1000);
    const WalkCost large = measure(10000);
    EXPECT_GE(large.requests, 400u + 40u);  // pages with keys, and empty ones between
    EXPECT_LE(large.requests, 10 * small.requests);
    EXPECT_LE(large.first, 10 * small.first);
    EXPECT_EQ(small.next, large.next);
    EXPECT_EQ(large.next, large.last);
}

TEST_F(EnumTest, AKeyThatCannotBeReadIsTriedAgain)
{
    for (const char* name : {"a", "b", "c"})
        AddCurveKey(name, "P-256");
    Answer("/keys/a?", 403);
    PVOID state = nullptr;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);  // a walk that gave nothing is not handed out
    EXPECT_EQ("KelvaroEnumKeys Error 0x801b8002", LastErrorLine());

    EXPECT_EQ("a", Next(&state).name);
    sim.Fault({{"path", "/keys/b?"}, {"action", "status"}, {"status", 403}, {"times", 2}});
    const PVOID walk = state;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ("b", Next(&state).name);
    EXPECT_EQ("c", Next(&state).name);
    EXPECT_EQ(walk, state);
    table->FreeBuffer(state);

    Answer("/keys?", 500);
    state = nullptr;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);
}

TEST_F(EnumTest, BadArgumentsOfAWalk)
{
    AddCurveKey("a", "P-256");
    OpenProvider();
    NCryptKeyName* name = nullptr;
    BYTE foreign[64] = {};
    PVOID state = foreign;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(table->EnumKeys(provider, nullptr, nullptr, &state, 1)));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(table->EnumKeys(provider, nullptr, &name, nullptr, 1)));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), Hex(table->EnumKeys(provider, nullptr, &name, &state, 0x80)));
    EXPECT_EQ(0u, sim.Journal().size());

    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Next(&state).status));  // issued by nobody
    EXPECT_EQ(Bytes(64), Bytes(foreign, foreign + 64));
    EXPECT_EQ(static_cast<PVOID>(foreign), state);
    PVOID walk = nullptr;
    ASSERT_EQ(0, table->EnumKeys(provider, nullptr, &name, &walk, NCRYPT_MACHINE_KEY_FLAG));
    state = name;
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Next(&state).status));  // issued, but no state
    table->FreeBuffer(name);
    table->FreeBuffer(walk);
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Next(&walk).status));  // gone
}

}  // namespace
