// Compares a signature through the module with the same request sent by the system's HTTP library alone, and signatures
// with and without the log. The two sides alternate.
#include <filesystem>
#include <iostream>
#include <map>

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
        // Each side goes first every other time.
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

constexpr DWORD kLevels[] = {0, 4, 10};

// A copy of the module with another log level, which it reads when it is loaded.
struct Logging {
    Logging(bench::Vault& vault, DWORD level) : module(Copy(vault, level)), key(module, TEXT("rsa"), true) {}

    static std::string Copy(bench::Vault& vault, DWORD level)
    {
        const std::filesystem::path file = bench::Module::File();
        const std::string copy = vault.directory() + "/level" + std::to_string(level) + file.extension().string();
        std::filesystem::copy_file(file, copy);
        vault.LogAt(level);
        return copy;
    }

    bench::Module module;
    bench::Module::Key key;
};

// The time that a log level adds to a signature.
nlohmann::json CompareLevels(bench::Vault& vault)
{
    std::vector<std::unique_ptr<Logging>> modules;
    for (const DWORD level : kLevels)
        modules.push_back(std::make_unique<Logging>(vault, level));
    std::map<size_t, std::vector<double>> ratios;
    for (int round = -kWarmUp; round < kPairs; ++round) {
        std::map<size_t, double> seconds;
        // Each side goes first every other time.
        for (size_t i = 0; i < modules.size(); ++i) {
            const size_t turn = (i + static_cast<size_t>(round + kWarmUp)) % modules.size();
            seconds[turn] = Time([&] { modules[turn]->key.Sign(); });
        }
        for (size_t i = 1; i < modules.size() && round >= 0; ++i)
            ratios[i].push_back(seconds[i] / seconds[0]);
    }
    return {{"rounds", kPairs},
            {"level_4_over_closed", bench::Median(ratios[1])},
            {"level_10_over_closed", bench::Median(ratios[2])}};
}

nlohmann::json CompareAll(bench::Vault& vault)
{
    bench::Module module;
    nlohmann::json result = {{"rsa2048", Compare(vault, module, TEXT("rsa"), true, false)},
                             {"p256", Compare(vault, module, TEXT("p256"), false, false)}};
    if (bench::BareClient::ChoosesSessions()) {
        result["rsa2048_sessions"] = Compare(vault, module, TEXT("rsa"), true, true);
        result["p256_sessions"] = Compare(vault, module, TEXT("p256"), false, true);
    }
    return result;
}

}  // namespace

int main()
{
    bench::Vault vault;
    nlohmann::json result = CompareAll(vault);
    result["log"] = CompareLevels(vault);
    std::cout << result << '\n';
}
