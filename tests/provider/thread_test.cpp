// Many threads of a host on one provider.
#include <atomic>
#include <chrono>
#include <thread>

#include "tests/provider/key_fixture.h"

namespace {

class ThreadTest : public KeyTest {
  protected:
    void SetUp() override
    {
        KeyTest::SetUp();
        AddRsaKey("rsa");
        AddCurveKey("p256", "P-256");
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", 1);
        Reattach();
        OpenProvider();
        signInsBefore_ = sim.SignIns();
    }

    int SignIns() { return sim.SignIns() - signInsBefore_; }

    // Open, sign, verify, free; the name of the call that failed, or nothing.
    const char* OneRound(BYTE seed)
    {
        const bool rsa = seed % 2 == 0;
        const DWORD flags = rsa ? BCRYPT_PAD_PSS : 0;
        Padding padding(flags, "SHA256");
        void* info = rsa ? padding.info() : nullptr;
        NCRYPT_KEY_HANDLE key = 0;
        if (table->OpenKey(provider, &key, rsa ? TEXT("rsa") : TEXT("p256"), 0, NCRYPT_MACHINE_KEY_FLAG) != 0)
            return "open";
        const Bytes hash(32, seed);
        const Result signature = Sign(key, info, hash, flags);
        const char* failed = nullptr;
        if (signature.status != 0)
            failed = "sign";
        else if (Verify(key, info, hash, signature.bytes, flags) != 0)
            failed = "verify";
        if (table->FreeKey(provider, key) != 0)
            failed = "free";
        return failed;
    }

    // Runs `rounds` rounds on each of 32 threads, and `meanwhile` beside them.
    template <typename Meanwhile>
    void RunThreads(int rounds, Meanwhile meanwhile)
    {
        std::atomic<int> running{32};
        std::atomic<const char*> failed{nullptr};
        std::vector<std::thread> threads;
        for (BYTE seed = 0; seed < 32; ++seed) {
            threads.emplace_back([&, seed] {
                for (int i = 0; i < rounds; ++i) {
                    if (const char* call = OneRound(seed))
                        failed = call;
                }
                --running;
            });
        }
        while (running > 0)
            meanwhile();
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_STREQ(nullptr, failed.load());
    }

  private:
    int signInsBefore_ = 0;
};

TEST_F(ThreadTest, OfThreadsThatFindTheTokenRunOutOneSignsIn)
{
    for (int expiry = 1; expiry <= 4; ++expiry) {
        RunThreads(1, [] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
        EXPECT_EQ(expiry, SignIns());
        clock.Advance(3600);
    }
}

TEST_F(ThreadTest, EverySignatureHoldsWhileTheHourRunsOutAgainAndAgain)
{
    int expiries = 0;
    RunThreads(3, [&] {
        clock.Advance(3600);
        ++expiries;
        const int signIns = SignIns();  // an exchange with the simulator paces the jumps
        EXPECT_LE(signIns, expiries + 1);
    });
    EXPECT_GT(SignIns(), 1);
    for (const std::string& line : ErrorLines()) {
        // Wine's Schannel gives up a handshake now and then when many begin at once; the exchange was repeated.
        EXPECT_EQ("KVCDoWebCall WinHttpSendRequest Failed Error 0x80090304", line);
    }
}

}  // namespace
