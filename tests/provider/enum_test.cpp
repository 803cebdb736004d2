// What a host learns of the provider's algorithms and of the vault's keys.
#include <set>

#include "tests/provider/key_fixture.h"

namespace {

using Lines = std::vector<std::string>;
constexpr SECURITY_STATUS kVaultReadFailed = static_cast<SECURITY_STATUS>(0x801B8002);

class EnumTest : public KeyTest {
  protected:
    Lines Algorithms(DWORD operations, SECURITY_STATUS expected)
    {
        DWORD count = 77;
        NCryptAlgorithmName* list = nullptr;
        EXPECT_EQ(Hex(expected), Hex(table->EnumAlgorithms(OpenProvider(), operations, &count, &list, 0)));
        Lines lines;
        if (!list) {
            EXPECT_EQ(77u, count);
            return lines;
        }
        for (DWORD i = 0; i < count; ++i) {
            char numbers[40];
            std::snprintf(numbers, sizeof(numbers), " %lu 0x%lx %lu", static_cast<unsigned long>(list[i].dwClass),
                          static_cast<unsigned long>(list[i].dwAlgOperations),
                          static_cast<unsigned long>(list[i].dwFlags));
            lines.push_back(Narrow(list[i].pszName) + numbers);
        }
        EXPECT_EQ(0, table->FreeBuffer(list));
        return lines;
    }
};

TEST_F(EnumTest, AlgorithmsBySelection)
{
    const Lines rsa = {"RSA 3 0x14 0"};
    const Lines ecdsa = {"ECDSA_P256 5 0x10 0", "ECDSA_P384 5 0x10 0", "ECDSA_P521 5 0x10 0"};
    const Lines ecdh = {"ECDH_P256 4 0x18 0", "ECDH_P384 4 0x18 0", "ECDH_P521 4 0x18 0"};
    const auto join = [](Lines left, const Lines& right) {
        left.insert(left.end(), right.begin(), right.end());
        return left;
    };
    const struct {
        DWORD operations;
        Lines expected;
    } rows[] = {
        {0, join(join(rsa, ecdsa), ecdh)},
        {0x18, join(join(rsa, ecdsa), ecdh)},
        {0x10, join(rsa, ecdsa)},
        {4, rsa},
        {8, ecdh},
        {0xC, join(rsa, ecdh)},
        {0x30, join(rsa, ecdsa)},
        {1, {}},
        {2, {}},
        {0x20, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.operations);
        EXPECT_EQ(row.expected, Algorithms(row.operations, row.expected.empty() ? NTE_NOT_SUPPORTED : 0));
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
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->EnumAlgorithms(0, 0, nullptr, &list, 1)));
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
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->IsAlgSupported(0, nullptr, 1)));
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), supported(nullptr, 1));
    EXPECT_EQ(Hex(NTE_BAD_FLAGS), supported(TEXT("what"), 1));
}

TEST_F(EnumTest, AnEmptyVaultEndsAtOnce)
{
    PVOID state = nullptr;
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
    sim.Fault({{"path", "/keys/untagged?"}, {"action", "status"}, {"status", 200}, {"body", untagged.dump()}});

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
    size_t requests;     // of the listing and the first key
    size_t allocations;  // likewise
    size_t nextKey;      // allocations of one further key at the beginning of the walk
    size_t lastKey;      // and of the last one
};

TEST_F(EnumTest, TheCostOfAWalkGrowsWithItsKeysAndNoFaster)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 2);
    Reattach();
    sim.Control("PUT", "/paging", {{"maxPage", 25}, {"emptyEvery", 8}, {"firstEmpty", false}});
    AddCurveKey("warm", "P-256");
    OpenKey("warm");  // signs in
    const auto measure = [&](DWORD keys) {
        const size_t pages = keys / 25;
        sim.Control("PUT", std::string("/vaults/") + Simulator::kVault, {{"tier", "premium"}});
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/seed",
                    {{"keys", keys}, {"prefix", "key-"}, {"kty", "EC"}, {"crv", "P-256"}, {"shareMaterial", true}});
        sim.Fault({{"path", "/keys?"}, {"skip", pages / 2}, {"times", 2}, {"action", "status"}, {"status", 429}});
        sim.ClearJournal();
        clock.ClearWaits();
        root.ClearLog();
        PVOID state = nullptr;
        WalkCost cost = {};
        const auto next = [&](const std::string& expected) {
            const AllocFault count(SIZE_MAX);
            EXPECT_EQ(expected, Next(&state).name);
            return count.Seen();
        };
        cost.allocations = next("key-000000");
        const Lines requests = sim.VaultRequests();
        cost.requests = requests.size();
        EXPECT_EQ((std::vector<DWORD>{1000, 2000}), clock.Waits());
        EXPECT_EQ(requests[pages / 2], requests[pages / 2 + 1]);  // the throttled page is asked for again
        EXPECT_EQ(requests[pages / 2], requests[pages / 2 + 2]);
        EXPECT_NE(requests[pages / 2 + 2], requests[pages / 2 + 3]);
        EXPECT_EQ(Lines(2, "KVCGetKeys REST Call Error Error 0x1ad"), ErrorLines());

        auto* walk = static_cast<WalkState*>(state);
        if (!walk || walk->count != keys) {
            ADD_FAILURE() << "not the whole vault";
            return cost;
        }
        std::set<std::string> all;
        for (DWORD i = 0; i < keys; ++i)
            all.insert(Narrow(walk->names()[i]));
        EXPECT_EQ(keys, all.size());
        cost.nextKey = next("key-000001");
        walk->index = static_cast<LONG>(keys - 1);  // on to the end, past reads that cost what this one costs
        cost.lastKey = next(*all.rbegin());
        EXPECT_EQ(Hex(NTE_NO_MORE_ITEMS), Hex(Next(&state).status));
        EXPECT_EQ(0, table->FreeBuffer(state));
        return cost;
    };
    const WalkCost small = measure(1000);
    const WalkCost large = measure(10000);
    EXPECT_GE(large.requests, 400u + 40u);  // pages with keys, and empty ones between
    EXPECT_LE(large.requests, 10 * small.requests);
    EXPECT_LE(large.allocations, 10 * small.allocations);
    EXPECT_EQ(small.nextKey, large.nextKey);
    EXPECT_EQ(large.nextKey, large.lastKey);
}

TEST_F(EnumTest, AKeyThatCannotBeReadIsTriedAgain)
{
    for (const char* name : {"a", "b", "c"})
        AddCurveKey(name, "P-256");
    sim.Fault({{"path", "/keys/a?"}, {"action", "status"}, {"status", 403}});
    PVOID state = nullptr;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(nullptr, state);  // a walk that gave nothing is not handed out
    EXPECT_EQ("KelvaroEnumKeys Error 0x801b8002", ErrorLines().back());

    EXPECT_EQ("a", Next(&state).name);
    sim.Fault({{"path", "/keys/b?"}, {"action", "status"}, {"status", 403}, {"times", 2}});
    const PVOID walk = state;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    EXPECT_EQ("b", Next(&state).name);
    EXPECT_EQ("c", Next(&state).name);
    EXPECT_EQ(walk, state);
    table->FreeBuffer(state);

    sim.Fault({{"path", "/keys?"}, {"action", "status"}, {"status", 500}});
    state = nullptr;
    EXPECT_EQ(Hex(kVaultReadFailed), Hex(Next(&state).status));
    sim.Fault({{"path", "/keys?"}, {"action", "status"}, {"status", 429}, {"times", 5}});
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
    EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->EnumKeys(0, nullptr, nullptr, &state, 1)));
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

    root.ClearLog();
    clock.Advance(3601);
    sim.Fault({{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}});
    state = nullptr;
    EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(Next(&state).status));
    EXPECT_TRUE(root.Logged("KelvaroEnumKeys Authenticate Failed Error 0x8009030c", 1));
    EXPECT_EQ("KelvaroEnumKeys Error 0x8009030c", ErrorLines().back());
    const WithoutClient without(ProviderRecord());
    EXPECT_EQ(Hex(NTE_INVALID_PARAMETER), Hex(Next(&state).status));
}

TEST_F(EnumTest, EveryAllocationOfAWalkMayFail)
{
    for (const char* name : {"a", "b"})
        AddCurveKey(name, "P-256");
    OpenProvider();
    PVOID state = nullptr;
    NCryptKeyName* name = nullptr;
    const auto walk = [&] {
        state = nullptr;
        name = nullptr;
        return table->EnumKeys(provider, nullptr, &name, &state, NCRYPT_MACHINE_KEY_FLAG);
    };
    const size_t failures = FailEach(walk, [&](SECURITY_STATUS status, size_t failAt) {
        EXPECT_EQ(status == 0, name != nullptr) << failAt;
        EXPECT_EQ(status == 0, state != nullptr) << failAt;
        table->FreeBuffer(name);
        table->FreeBuffer(state);
    });
    table->FreeBuffer(name);
    table->FreeBuffer(state);
    EXPECT_GT(failures, 14u);
}

}  // namespace
