// One signature through the module against the same bytes sent by libcurl alone, alternating.
#include <iostream>

#include "bench/bare_client.h"
#include "bench/module.h"
#include "bench/statistics.h"

namespace {

constexpr int kPairs = 400;
constexpr int kWarmUp = 20;

template <typename Work>
double Time(Work work)
{
    const bench::Stopwatch watch;
    work();
    return watch.Seconds();
}

nlohmann::json Compare(bench::Vault& vault, bench::Module& module, const WCHAR* name, bool rsa, bool resumesSessions)
{
    bench::Module::Key key(module, name, rsa);
    vault.ClearJournal();
    key.Sign();
    const bench::Recorded request = vault.Requests().at(0);
    bench::BareClient bare(resumesSessions);
    std::vector<double> ratios;
    std::vector<double> throughModule;
    std::vector<double> overWire;
    for (int pair = -kWarmUp; pair < kPairs; ++pair) {
        double ours = 0;
        double theirs = 0;
        const auto sign = [&] { ours = Time([&] { key.Sign(); }); };
        const auto send = [&] { theirs = Time([&] { bare.Send(request); }); };
        // They take turns at going first.
        if (pair % 2)
            sign();
        send();
        if (pair % 2 == 0)
            sign();
        if (pair < 0)
            continue;
        ratios.push_back(ours / theirs);
        throughModule.push_back(ours);
        overWire.push_back(theirs);
    }
    return {
        {"pairs", kPairs},
        {"median", bench::Median(ratios)},
        {"p95", bench::Percentile(ratios, 0.95)},
        {"median_of_module_over_median_of_wire", bench::Median(throughModule) / bench::Median(overWire)},
        {"p95_of_module_over_p95_of_wire", bench::Percentile(throughModule, 0.95) / bench::Percentile(overWire, 0.95)}};
}

}  // namespace

int main()
{
    bench::Vault vault;
    bench::Module module;
    std::cout << nlohmann::json{{"rsa2048", Compare(vault, module, TEXT("rsa"), true, false)},
                                {"p256", Compare(vault, module, TEXT("p256"), false, false)},
                                {"rsa2048_sessions", Compare(vault, module, TEXT("rsa"), true, true)},
                                {"p256_sessions", Compare(vault, module, TEXT("p256"), false, true)}}
              << '\n';
}
