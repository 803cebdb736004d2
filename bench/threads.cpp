// Many threads on one key: their throughput with a slow vault as a multiple of one thread's, and what it costs them
// when the token expires in the middle.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <mutex>
#include <thread>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/system.h"
#include "bench/vault.h"
#include "provider/entry_points.h"
#include "support/clock.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);

namespace {

constexpr int kRounds = 3;
int signaturesEach = 25;

// Calls `sign` on `count` threads, a number of times on each. Returns the seconds that it all takes.
template <typename Sign>
double OnThreads(int count, int times, Sign sign)
{
    std::mutex lock;
    std::exception_ptr failure;
    std::vector<std::thread> threads;
    const bench::Stopwatch watch;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            try {
                for (int time = 0; time < times; ++time)
                    sign();
            } catch (...) {
                const std::lock_guard<std::mutex> hold(lock);
                failure = std::current_exception();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    if (failure)
        std::rethrow_exception(failure);
    return watch.Seconds();
}

// One run of some number of threads.
struct Run {
    double rate;                // signatures per second
    double ceiling = 0;         // the limit of the cores, which do both ends of a signature; 0: unknown
    double simulatorShare = 0;  // of the processor time
};

Run Measure(bench::Module::Key& key, int count)
{
    const auto before = bench::SpentByBothEnds();
    const int signatures = count * signaturesEach;
    Run run = {signatures / OnThreads(count, signaturesEach, [&] { key.Sign(); })};
    if (before) {
        const auto after = *bench::SpentByBothEnds();
        const double simulator = after.simulator - before->simulator;
        const double both = after.own - before->own + simulator;
        run.ceiling = std::thread::hardware_concurrency() * signatures / both;
        run.simulatorShare = simulator / both;
    }
    return run;
}

// Runs all numbers of threads in turn, for several rounds, and takes the medians. The last number should be more than
// the cores can handle.
nlohmann::json Throughput(bench::Module::Key& key, const std::vector<int>& counts)
{
    std::map<int, std::vector<double>> multiples;
    std::vector<double> ceilings, reached, shares;
    for (int round = 0; round < kRounds; ++round) {
        const double one = Measure(key, 1).rate;
        for (const int count : counts) {
            const Run run = Measure(key, count);
            multiples[count].push_back(run.rate / one);
            if (count != counts.back() || run.ceiling == 0)
                continue;
            ceilings.push_back(run.ceiling / one);
            reached.push_back(run.rate / std::min(run.ceiling, count * one));
            shares.push_back(run.simulatorShare);
        }
    }
    nlohmann::json result;
    for (const auto& [count, values] : multiples)
        result["multiple_of_one_thread"][std::to_string(count)] = bench::Median(values);
    if (!ceilings.empty()) {
        result["multiple_that_the_cores_can_carry"] = bench::Median(ceilings);
        result["share_of_what_the_cores_can_carry"] = bench::Median(reached);
        result["share_of_cpu_in_the_simulator"] = bench::Median(shares);
    }
    return result;
}

// The system's clock, which can be moved forward.
std::atomic<int64_t> ahead{0};
const Clock clockAhead = {[]() -> int64_t { return std::time(nullptr) + ahead; },
                          []() -> uint64_t { return GetTickCount64(); }, [](DWORD waitMs) { Sleep(waitMs); }};

constexpr int kBusyThreads = 16;
constexpr int kSignInMs = 1000;

// The token expires while all threads are signing, and the sign-in takes a second.
nlohmann::json Expiry(bench::Vault& vault)
{
    ClockReplace(&clockAhead);
    DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
    std::vector<double> seconds;
    int signIns = 0;
    {
        bench::Module module(&GetKeyStorageInterface);
        bench::Module::Key key(module, TEXT("p256"), false);
        const int signInsBefore = vault.simulator().SignIns();
        vault.simulator().Fault({{"path", "/oauth2/token"}, {"action", "delay"}, {"delayMs", kSignInMs}});
        std::mutex lock;
        OnThreads(kBusyThreads, signaturesEach, [&] {
            const bench::Stopwatch watch;
            key.Sign();
            const double taken = watch.Seconds();
            const std::lock_guard<std::mutex> hold(lock);
            seconds.push_back(taken);
            if (seconds.size() == static_cast<size_t>(kBusyThreads * signaturesEach / 2))
                ahead += 3600;
        });
        signIns = vault.simulator().SignIns() - signInsBefore;
    }
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    ClockReplace(nullptr);
    const double usual = bench::Median(seconds);
    const double late = kSignInMs / 2000.0;
    return {{"sign_ins", signIns},
            {"signatures_that_waited",
             std::count_if(seconds.begin(), seconds.end(), [&](double taken) { return taken > usual + late; })},
            {"threads", kBusyThreads},
            {"longest_over_a_signature_and_a_sign_in",
             *std::max_element(seconds.begin(), seconds.end()) / (usual + kSignInMs / 1000.0)}};
}

}  // namespace

int main(int count, char** arguments)
{
    if (count > 1)
        signaturesEach = atoi(arguments[1]);
    bench::Vault vault;
    const int signInsBefore = vault.simulator().SignIns();
    nlohmann::json result;
    {
        bench::Module module;
        bench::Module::Key key(module, TEXT("p256"), false);
        key.Sign();
        vault.simulator().Control("PUT", "/latency", {{"ms", 50}});
        result["50 ms"] = Throughput(key, {2, 4, 8, 16, 32, 64, 128});
        vault.simulator().Control("PUT", "/latency", {{"ms", 200}});
        result["200 ms"] = Throughput(key, {64});
    }
    result["sign_ins"] = vault.simulator().SignIns() - signInsBefore;
    vault.simulator().Control("PUT", "/latency", {{"ms", 50}});
    result["expiry"] = Expiry(vault);
    std::cout << result << '\n';
}
