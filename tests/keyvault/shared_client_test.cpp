// One client under many threads.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/keyvault/client_fixture.h"

namespace {

constexpr int kThreads = 32;

template <class Work>
void OnThreads(int count, Work work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&work, i] { work(i); });
    for (std::thread& thread : threads)
        thread.join();
}

using SharedClient = ClientTest;

TEST_F(SharedClient, TheNewVaultNameReachesEveryCall)
{
    SetLogging(0);
    sim.Control("PUT", "/vaults/x0f1e2d3c4b5a69788796a5b", {{"tier", "standard"}});
    Identity identity;
    identity.vault = "%G";
    const ClientPtr client = NewClient(identity);
    std::atomic<int> good{0};
    OnThreads(kThreads, [&](int) {
        const KVCCall call(KVCBeginCall(client.get()));
        if (KVCAuthenticate(call.get()) && TextOf(call->kvname) == "x0f1e2d3c4b5a69788796a5b" && ListKeys(call.get()))
            ++good;
    });
    EXPECT_EQ(kThreads, good.load());
    EXPECT_EQ(1u, Requests("oauth2/token").size());
}

// Without that, each of the waiting threads would spend minutes on a sign-in that has just failed for the one before
// it.
TEST_F(SharedClient, WaitingThreadsShareAFailedSignIn)
{
    const ClientPtr client = NewClient();
    root.ClearLog();
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    std::atomic<int> arrived{0};
    std::atomic<int> failed{0};
    clock.OnSleep([&](DWORD, size_t) {
        // The first sign-in goes on only when all have come; then they get time to queue up behind it.
        while (arrived < kThreads)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    OnThreads(kThreads, [&](int) {
        const KVCCall call(KVCBeginCall(client.get()));
        ++arrived;
        if (!KVCAuthenticate(call.get()))
            ++failed;
    });
    EXPECT_EQ(kThreads, failed.load());
    EXPECT_EQ(static_cast<size_t>(kThreads), LinesWith("KVCAuthenticate Logon failure contoso-keys 1"));
    EXPECT_EQ(static_cast<size_t>(kThreads), LinesWith("KVCAuthenticate contoso-keys 8"));
    // One, unless the machine is so busy that a thread comes after the end of the first.
    EXPECT_LE(LinesWith("KVCDoWebCall failure"), 3u);

    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "up"}});
    clock.OnSleep(nullptr);
    const KVCCall call(KVCBeginCall(client.get()));
    EXPECT_EQ(1, KVCAuthenticate(call.get())) << "a later call tries for itself";
}

TEST_F(SharedClient, ACallWithoutMemoryForItsTokenWasNotRefused)
{
    const ClientPtr client = NewClient();
    ASSERT_EQ(1, SignIn(client));
    SetLogging(0);
    KVCCall call(KVCBeginCall(client.get()));
    KVCLogOnResult result = KVCLogOnResult::Refused;
    SweepAllocations([&] { result = KVCLogOn(call.get()); },
                     [&](bool whole) {
                         EXPECT_EQ(whole ? KVCLogOnResult::Ready : KVCLogOnResult::NoMemory, result);
                         EXPECT_EQ(whole, call->accessToken != nullptr);
                         EXPECT_EQ(1, KVCAuthenticate(call.get()));
                         call.reset(KVCBeginCall(client.get()));
                     });
    EXPECT_EQ(1u, Requests("oauth2/token").size());

    SetLogging(1);
    const AllocFault fault(0);
    KVCLogOn(call.get());
    EXPECT_TRUE(root.Logged("KVCAuthenticate Out of memory contoso-keys", 1));
}

TEST_F(SharedClient, TheHeldTokenDoesNotWaitForASignIn)
{
    const ClientPtr client = NewClient();
    const KVCCall first(KVCBeginCall(client.get()));
    ASSERT_EQ(1, KVCAuthenticate(first.get()));
    clock.Advance(3600);
    sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", "down"}});
    const KVCCall other(KVCBeginCall(client.get()));
    std::atomic<bool> taken{false};
    std::thread taker;
    bool takenMeanwhile = false;
    clock.OnSleep([&](DWORD, size_t index) {
        // Inside the sign-in, which goes on when the token is there, and after some waits at the latest.
        if (index == 0)
            taker = std::thread([&] { taken = KVCTakeHeldToken(other.get()) == 1; });
        for (int i = 0; i < 10 && !taken; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        takenMeanwhile = taken;
    });
    EXPECT_EQ(0, SignIn(client));
    taker.join();
    EXPECT_TRUE(takenMeanwhile);
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
    EXPECT_EQ(1, ListKeys(first.get())) << "the old token is still good at the vault";
    ASSERT_EQ(1, KVCAuthenticate(first.get()));
    EXPECT_EQ(TextOf(second->accessToken), TextOf(first->accessToken));
    EXPECT_EQ(2u, Requests("oauth2/token").size());
}

}  // namespace
