// From nothing to the first signature: load, open a provider, sign in, open a key, sign; against a program that sends
// the same requests by libcurl alone. They alternate, each in its own process, timed from outside.
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <iostream>
#include <stdexcept>

#include "bench/bare_client.h"
#include "bench/module.h"
#include "bench/statistics.h"

extern char** environ;

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

double TimeProcess(const char* self, const char* what, const std::string& path)
{
    std::string file = path;
    char* arguments[] = {const_cast<char*>(self), const_cast<char*>(what), file.data(), nullptr};
    const bench::Stopwatch watch;
    pid_t child = 0;
    int status = -1;
    if (posix_spawn(&child, self, nullptr, nullptr, arguments, environ) != 0)
        throw std::runtime_error("cannot start a process");
    waitpid(child, &status, 0);
    if (status != 0)
        throw std::runtime_error(std::string(what) + " failed");
    return watch.Seconds();
}

nlohmann::json Compare(const char* self)
{
    bench::Vault vault;
    const std::string path = vault.directory() + "/requests";
    // The first open protects the stored secret; measure after it.
    TimeProcess(self, "module", path);
    vault.ClearJournal();
    TimeProcess(self, "module", path);
    const std::vector<bench::Recorded> requests = vault.Requests();
    Save(requests, path);
    std::vector<double> ratios;
    for (int pair = -kWarmUp; pair < kPairs; ++pair) {
        const bool moduleFirst = pair % 2 == 0;
        const double first = TimeProcess(self, moduleFirst ? "module" : "bare", path);
        const double second = TimeProcess(self, moduleFirst ? "bare" : "module", path);
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
        std::cout << Compare("/proc/self/exe") << '\n';
}
