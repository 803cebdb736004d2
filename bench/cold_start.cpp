// A new process up to its first signature: load the module, open a provider, sign in, open a key, sign. Compared with a
// program that sends the same requests with only the system's HTTP library. The two alternate; the parent measures each
// process.
#include <fstream>
#include <iostream>

#include "bench/bare_client.h"
#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/system.h"

namespace {

constexpr int kPairs = 60;
constexpr int kWarmUp = 3;

void SignOnce()
{
    bench::Module module;
    bench::Module::Key key(module, TEXT("rsa"), true);
    key.Sign();
}

// The requests as lines: method, URL, number of fields, the fields, the body.
void Save(const std::vector<bench::Recorded>& requests, const std::string& path)
{
    std::ofstream file(path);
    for (const bench::Recorded& request : requests) {
        file << request.method << '\n' << request.url << '\n' << request.headers.size() << '\n';
        for (const std::string& field : request.headers)
            file << field << '\n';
        file << request.body << '\n';
    }
}

void SendAll(const std::string& path)
{
    std::ifstream file(path);
    bench::BareClient client;
    bench::Recorded request;
    while (std::getline(file, request.method)) {
        std::string line;
        std::getline(file, request.url);
        std::getline(file, line);
        request.headers.resize(std::stoul(line));
        for (std::string& field : request.headers)
            std::getline(file, field);
        std::getline(file, request.body);
        client.Send(request);
    }
}

double TimeProcess(const std::string& what, const std::string& path)
{
    const bench::Stopwatch watch;
    bench::RunSelf({what, path});
    return watch.Seconds();
}

nlohmann::json Compare()
{
    bench::Vault vault;
    const std::string path = vault.directory() + "/requests";
    // The first open protects the stored secret; measure after it.
    TimeProcess("module", path);
    vault.ClearJournal();
    TimeProcess("module", path);
    const std::vector<bench::Recorded> requests = vault.Requests();
    Save(requests, path);
    std::vector<double> ratios;
    for (int pair = -kWarmUp; pair < kPairs; ++pair) {
        const bool moduleFirst = pair % 2 == 0;
        const double first = TimeProcess(moduleFirst ? "module" : "bare", path);
        const double second = TimeProcess(moduleFirst ? "bare" : "module", path);
        if (pair >= 0)
            ratios.push_back(moduleFirst ? first / second : second / first);
    }
    return {{"requests", requests.size()},
            {"pairs", kPairs},
            {"median", bench::Median(ratios)},
            {"p95", bench::Percentile(ratios, 0.95)}};
}

}  // namespace

int main(int count, char** arguments)
{
    const std::string what = count > 1 ? arguments[1] : "";
    if (what == "module")
        SignOnce();
    else if (what == "bare" && count > 2)
        SendAll(arguments[2]);
    else
        std::cout << Compare() << '\n';
}
