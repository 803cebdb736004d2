// Throughput of many threads on one key, as a multiple of one thread's, with a vault that takes 50 ms.
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <iostream>
#include <thread>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/vault.h"

namespace {

constexpr int kRoundsEach = 25;

double CpuSeconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// The CPU clock of the simulator, this program's only child.
clockid_t SimulatorClock()
{
    pid_t child = 0;
    std::ifstream("/proc/self/task/" + std::to_string(getpid()) + "/children") >> child;
    clockid_t clock = 0;
    if (clock_getcpuclockid(child, &clock) != 0)
        throw std::runtime_error("the simulator has no clock");
    return clock;
}

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
    const clockid_t simulatorClock = SimulatorClock();
    const double simulatorBefore = CpuSeconds(simulatorClock);
    const double ownBefore = CpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    int signatures = 0;
    nlohmann::json multiples;
    double one = 0;
    for (const int count : {1, 2, 4, 8, 16, 32, 64}) {
        const double rate = SignaturesASecond(key, count);
        if (count == 1)
            one = rate;
        multiples[std::to_string(count)] = rate / one;
        signatures += count * kRoundsEach;
    }
    const double own = CpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - ownBefore;
    const double both = own + CpuSeconds(simulatorClock) - simulatorBefore;
    // The most signatures that the cores can do with both ends on them, with any number of threads.
    const double ceiling = std::thread::hardware_concurrency() * signatures / both;
    std::cout << nlohmann::json{{"multiple_of_one_thread", multiples},
                                {"share_of_cpu_in_the_simulator", (both - own) / both},
                                {"multiple_that_the_cores_can_carry", ceiling / one},
                                {"sign_ins", vault.simulator().SignIns() - signInsBefore}}
              << '\n';
}
