// Throughput of many threads on one key, as a multiple of one thread's, at a vault that takes 50 ms.
#include <atomic>
#include <iostream>
#include <thread>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/vault.h"

namespace {

constexpr int kRoundsEach = 25;

double SignaturesASecond(bench::Module::Key& key, int count)
{
    std::atomic<bool> failed{false};
    std::vector<std::thread> threads;
    const bench::Stopwatch watch;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            try {
                for (int round = 0; round < kRoundsEach; ++round)
                    key.Sign();
            } catch (...) {
                failed = true;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    if (failed)
        throw std::runtime_error("a signature failed");
    return count * kRoundsEach / watch.Seconds();
}

}  // namespace

int main()
{
    bench::Vault vault;
    const int signInsBefore = vault.simulator().SignIns();
    bench::Module module;
    bench::Module::Key key(module, TEXT("p256"), false);
    vault.simulator().Control("PUT", "/latency", {{"ms", 50}});
    key.Sign();
    nlohmann::json multiples;
    double one = 0;
    for (const int count : {1, 2, 4, 8, 16, 32, 64}) {
        const double rate = SignaturesASecond(key, count);
        if (count == 1)
            one = rate;
        multiples[std::to_string(count)] = rate / one;
    }
    std::cout << nlohmann::json{{"multiple_of_one_thread", multiples},
                                {"sign_ins", vault.simulator().SignIns() - signInsBefore}}
              << '\n';
}
