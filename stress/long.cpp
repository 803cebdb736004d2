// Long use of the loaded module: signatures on eight threads with a vault that throttles and fails, then loading and
// unloading. Prints a JSON object with samples of the process's memory, handles and threads.
// Usage: stress_long SECONDS SIGNATURES LOADS
// A part ends after its seconds or its count, whichever comes first; 0: no limit.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/module.h"
#include "bench/vault.h"
#include "stress/host.h"
#include "stress/long_system.h"
#include "tests/common/leftovers.h"

using nlohmann::json;

namespace {

constexpr size_t kThreads = 8;
constexpr size_t kEach = 50;       // signatures of a thread in a round
constexpr size_t kLoadsEach = 20;  // in a round

// The faults of a round, by the number of the signature's request. Signatures hit by the last four can't succeed.
const json kFaults[] = {
    {{"skip", 20}, {"action", "status"}, {"status", 429}},
    {{"skip", 60}, {"action", "reset-before"}},
    {{"skip", 100}, {"action", "status"}, {"status", 429}, {"times", 2}},
    {{"skip", 140}, {"action", "reset-before"}},
    {{"skip", 180}, {"action", "status"}, {"status", 500}},
    {{"skip", 220}, {"action", "status"}, {"status", 503}},
    {{"skip", 260}, {"action", "nojson"}},
    {{"skip", 300}, {"action", "truncate"}, {"afterBytes", 10}},
};
constexpr size_t kFailuresOfRound = 4;

class Stopwatch {
  public:
    size_t Seconds() const
    {
        return static_cast<size_t>(
            std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start_).count());
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

struct Sample {
    size_t seconds, done, residentKb;
    Holdings held;
};

// Samples spread evenly over a run of any length: when there are too many, every second one is dropped.
class Samples {
  public:
    // Reserved at once: growth would count as the module's.
    Samples() { kept_.reserve(kMost); }
    void Take(size_t done)
    {
        if (++rounds_ % step_ != 0)
            return;
        kept_.push_back({watch_.Seconds(), done, ResidentKb(), TakeStock()});
        if (kept_.size() < kMost)
            return;
        step_ *= 2;
        for (size_t i = 0; i < kMost / 2; ++i)
            kept_[i] = kept_[2 * i + 1];
        kept_.resize(kMost / 2);
    }
    json kept() const
    {
        json all;
        for (const Sample& sample : kept_) {
            all.push_back({{"seconds", sample.seconds},
                           {"done", sample.done},
                           {"residentKb", sample.residentKb},
                           {"heap", sample.held.heap},
                           {"handles", sample.held.handles},
                           {"threads", sample.held.threads}});
        }
        return all;
    }

  private:
    static constexpr size_t kMost = 32;
    Stopwatch watch_;
    std::vector<Sample> kept_;
    size_t rounds_ = 0;
    size_t step_ = 1;
};

struct Limit {
    bool Reached(size_t done) const { return (count && done >= count) || (seconds && watch.Seconds() >= seconds); }

    size_t seconds;
    size_t count;
    Stopwatch watch = {};
};

// The number of results with each status.
using Statuses = std::map<std::string, size_t>;

void SignOnce(bench::Module::Key& key, Statuses* statuses)
{
    std::string status = "0";
    try {
        key.Sign();
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        status = stress::StatusName(std::stoi(text.substr(text.rfind(' '))));
    }
    static std::mutex lock;
    const std::lock_guard<std::mutex> hold(lock);
    ++(*statuses)[status];
}

// One thread uses a new provider, which signs in.
void SignRound(bench::Module& module, Statuses* statuses)
{
    std::vector<std::thread> threads;
    for (size_t number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            const std::unique_ptr<bench::Module> own(number == 0 ? new bench::Module : nullptr);
            const bool rsa = number % 2 == 0;
            bench::Module::Key key(own ? *own : module, rsa ? TEXT("rsa") : TEXT("p256"), rsa);
            for (size_t i = 0; i < kEach; ++i)
                SignOnce(key, statuses);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

json Signatures(bench::Vault& vault, const Limit& limit)
{
    bench::Module module;
    Samples samples;
    Statuses statuses;
    size_t done = 0, rounds = 0;
    for (; !limit.Reached(done); ++rounds) {
        vault.simulator().Fault({{"path", "/oauth2/token"}, {"action", "reset-before"}});
        for (json fault : kFaults) {
            fault["path"] = "/sign?";
            vault.simulator().Fault(fault);
        }
        SignRound(module, &statuses);
        vault.simulator().Control("DELETE", "/faults");
        done += kThreads * kEach;
        samples.Take(done);
    }
    return {{"done", done},
            {"statuses", statuses},
            {"failures", done - statuses["0"]},
            {"failuresExpected", rounds * kFailuresOfRound},
            {"samples", samples.kept()}};
}

json Loads(const Limit& limit)
{
    Samples samples;
    size_t done = 0, stayed = 0;
    while (!limit.Reached(done)) {
        // On a separate thread, so that the C library's per-thread data is freed with it.
        std::thread([&] {
            for (size_t i = 0; i < kLoadsEach; ++i) {
                {
                    bench::Module module;
                    if (i % 10 == 0)
                        bench::Module::Key(module, TEXT("p256"), false).Sign();
                }
                stayed += IsLoaded(bench::Module::File());
            }
        }).join();
        done += kLoadsEach;
        samples.Take(done);
    }
    return {{"done", done}, {"failures", stayed}, {"failuresExpected", 0}, {"samples", samples.kept()}};
}

}  // namespace

int main(int argc, char** argv)
{
    const auto number = [&](int index) { return static_cast<size_t>(argc > index ? std::atol(argv[index]) : 0); };
    try {
        bench::Vault vault;
        // Loading takes less time.
        const json signatures = Signatures(vault, {number(1) * 3 / 4, number(2)});
        std::cout << json{{"signatures", signatures}, {"loads", Loads({number(1) / 4, number(3)})}} << "\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
