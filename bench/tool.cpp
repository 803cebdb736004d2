// The time users wait for the tool: for a list of names, and for its version.
#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/vault.h"

namespace {

constexpr int kKeys = 3000;
constexpr int kLatencyMs = 20;
constexpr int kStarts = 21;

double SecondsOf(const std::string& command)
{
    const std::string line =
        KELVAROCTL_PATH " --module '" + bench::Module::File() + "' " + command + " >/dev/null </dev/null";
    const bench::Stopwatch watch;
    if (std::system(line.c_str()) != 0)
        throw std::runtime_error("kelvaroctl " + command + " failed");
    return watch.Seconds();
}

nlohmann::json ListNames(bench::Vault& vault)
{
    vault.simulator().Control("PUT", "/vaults/names", {{"tier", "premium"}});
    vault.simulator().Control("POST", "/vaults/names/seed",
                              {{"prefix", "key-"}, {"keys", kKeys}, {"kty", "EC"}, {"crv", "P-256"}});
    vault.UseVault("names");
    // The first open protects the stored secret.
    SecondsOf("keys list --names");
    vault.ClearJournal();
    vault.simulator().Control("PUT", "/latency", {{"ms", kLatencyMs}});
    const double seconds = SecondsOf("keys list --names");
    const std::vector<std::string> requests = vault.simulator().VaultRequests();
    const auto pages = std::count_if(requests.begin(), requests.end(), [](const std::string& request) {
        return request.find("/keys?") != std::string::npos;
    });
    return {{"keys", kKeys},
            {"pages", pages},
            {"other_requests", static_cast<long>(requests.size()) - pages},
            {"time_over_latency", seconds * 1000 / static_cast<double>(requests.size()) / kLatencyMs}};
}

}  // namespace

int main()
{
    bench::Vault vault;
    nlohmann::json result = {{"names", ListNames(vault)}};
    std::vector<double> seconds;
    for (int start = 0; start < kStarts; ++start)
        seconds.push_back(SecondsOf("--version"));
    result["version_ms"] = bench::Median(seconds) * 1000;
    std::cout << result << '\n';
}
