// Clients and their calls: creation, release, the vault's name from its template, and one client on many threads.
#include <atomic>
#include <chrono>
#include <thread>

#include "keyvault/vault_name.h"
#include "tests/common/threads.h"
#include "tests/keyvault/client_fixture.h"

namespace {

std::string VaultName(const std::string& nameTemplate)
{
    WCHAR room[kVaultNameLimit + 1];
    VaultNameFromTemplate(Wide(nameTemplate).c_str(), room);
    return Narrow(room);
}

using ClientObject = ClientTest;

TEST_F(ClientObject, TemplatesBecomeVaultNames)
{
    WCHAR name[256] = {};
    DWORD size = 256;
    ASSERT_TRUE(GetComputerNameExW(ComputerNameDnsFullyQualified, name, &size));
    const std::string machine = Narrow(name);
    const Row<const char*, std::string, std::string> rows[] = {
        {"the identity's marker", "%G", "oidguid"},
        {"the marker behind other text", "kv%G", "kvoidguid"},
        {"the machine's name", "%D", VaultName(machine)},
        {"an empty template is the machine's name", "", VaultName(machine)},
        {"text before the machine's name", "KV-%D", VaultName("KV-" + machine)},
        {"dots and capitals", "a.B.c", "abc"},
        {"more than the limit", "Abcdefghij.Klmnopqrst.Uvwxyz1234", "abcdefghijklmnopqrstuvwx"},
        {"a percent sign at the end", "vault%", "vault"},
        {"an unknown escape", "%x9", "9"},
        {"escapes are case-sensitive", "%d%g1", "1"},
        {"a doubled percent sign", "a%%b", "ab"},
        {"letters beyond ASCII", "\u00c4B", "\u00c4b"},
        {"text beyond the buffer", std::string(600, '.') + "abc", ""},
        {"an expansion beyond the buffer", Repeat("%D", 200), VaultName(Repeat(machine, 200))},
    };
    for (const auto& [what, nameTemplate, vault] : rows)
        EXPECT_EQ(vault, VaultName(nameTemplate)) << what;
}

TEST_F(ClientObject, CarriesItsConfigurationAndNoToken)
{
    const ClientPtr client(
        KVCNew(TEXT("Contoso.Keys"), 0, TEXT("tenant"), TEXT("app"), TEXT("hush-hush"), TEXT("cert"), 1, 2, 3));
    ASSERT_TRUE(client);
    EXPECT_EQ(KVC_AUTHN_MANAGED_IDENTITY, client->authn);
    EXPECT_EQ(3u, client->exportableOption);
    EXPECT_TRUE(client->tokenExpiry == 0 && !client->accessToken);
    EXPECT_EQ(std::string::npos, root.WholeLog().find("hush"));
    EXPECT_EQ(nullptr, KVCNew(nullptr, 1, TEXT("t"), TEXT("c"), TEXT("s"), TEXT("x"), 0, 0, 0));
    KVCDelete(nullptr);

    KVC* call = KVCBeginCall(client.get());
    ASSERT_TRUE(call);
    EXPECT_EQ(1u, call->purgeOnDelete);
    EXPECT_EQ(2u, call->certificateMode);
    SetLastError(1234);
    KVCEndCall(call);
    EXPECT_EQ(1234u, GetLastError());
    KVCEndCall(nullptr);
}

TEST_F(ClientObject, WithoutMemoryThereIsNoClient)
{
    SetLogging(0);
    ClientPtr client;
    SweepAllocations(
        [&] { client.reset(KVCNew(TEXT("vault"), 2, TEXT("t"), TEXT("c"), TEXT("s"), TEXT("x"), 0, 0, 0)); },
        [&](bool whole) { EXPECT_EQ(whole, client != nullptr); });
    const AllocFault fault(0);
    EXPECT_EQ(nullptr, KVCBeginCall(client.get()));
}

class SharedClient : public ClientTest {
  protected:
    static constexpr int kThreads = 32;

    // Runs `work` on that many threads and returns how many returned true.
    template <class Work>
    static int OnThreads(Work work)
    {
        std::atomic<int> good{0};
        ::OnThreads(kThreads, [&](int) { good += work() ? 1 : 0; });
        return good;
    }
};

TEST_F(SharedClient, TheNewVaultNameReachesEveryCall)
{
    SetLogging(0);
    sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "standard"}});
    Identity identity;
    identity.vault = "%G";
    const ClientPtr client = NewClient(identity);
    EXPECT_EQ(kThreads, OnThreads([&] {
                  const KVCCall call(KVCBeginCall(client.get()));
                  return KVCAuthenticate(call.get()) && TextOf(call->kvname) == "x0f1e2d3c4b5a69788796a5b" &&
                         ListKeys(call.get());
              }));
    EXPECT_EQ(1u, Requests("oauth2/token").size());
}

// Otherwise each waiting thread would spend minutes on a sign-in that has just failed.
TEST_F(SharedClient, WaitingThreadsShareAFailedSignIn)
{
    const ClientPtr client = NewClient();
    SetNetwork(false);
    std::atomic<int> arrived{0};
    clock.OnSleep([&](DWORD, size_t) {
        // The first sign-in waits for all threads, so that they have time to queue up behind it.
        while (arrived < kThreads)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    EXPECT_EQ(0, OnThreads([&] {
                  const KVCCall call(KVCBeginCall(client.get()));
                  ++arrived;
                  return KVCAuthenticate(call.get());
              }));
    EXPECT_EQ(size_t{kThreads}, LinesWith("KVCAuthenticate Logon failure contoso-keys 1"));
    // One, unless a thread starts only after the first sign-in, as can happen on a busy machine.
    EXPECT_LE(LinesWith("KVCDoWebCall failure"), 3u);
    SetNetwork(true);
    clock.OnSleep(nullptr);
    EXPECT_EQ(1, SignIn(client)) << "a later call tries again";
}

TEST_F(SharedClient, TheHeldTokenDoesNotWaitForASignIn)
{
    const ClientPtr client = NewClient();
    const KVCCall first(KVCBeginCall(client.get()));
    ASSERT_EQ(1, KVCAuthenticate(first.get()));
    clock.Advance(3600);
    SetNetwork(false);
    const KVCCall other(KVCBeginCall(client.get()));
    // If the other thread waited for the sign-in, this would never end.
    clock.OnSleep([&](DWORD, size_t index) {
        if (index == 0)
            std::thread([&] { KVCTakeHeldToken(other.get()); }).join();
    });
    EXPECT_EQ(0, SignIn(client));
    EXPECT_EQ(TextOf(first->accessToken), TextOf(other->accessToken));
}

TEST_F(SharedClient, ACallKeepsItsTokenWhileAnotherRenewsIt)
{
    const ClientPtr client = NewClient();
    const KVCCall first(KVCBeginCall(client.get()));
    ASSERT_EQ(1, KVCAuthenticate(first.get()));
    const std::string token = TextOf(first->accessToken);
    clock.Advance(3600);
    sim.Control("PUT", "/tokens", {{"oid", "another"}});
    const KVCCall second(KVCBeginCall(client.get()));
    ASSERT_EQ(1, KVCAuthenticate(second.get()));
    EXPECT_NE(token, TextOf(second->accessToken));
    EXPECT_EQ(token, TextOf(first->accessToken));
    EXPECT_EQ(1, ListKeys(first.get())) << "the vault still accepts the old token";
    ASSERT_EQ(1, KVCAuthenticate(first.get()));
    EXPECT_EQ(TextOf(second->accessToken), TextOf(first->accessToken));
    EXPECT_EQ(2u, Requests("oauth2/token").size());
}

}  // namespace
