// Long lists: time and peak memory of reading the names of a vault's keys and certificates, as multiples of the
// shortest. Each reading runs in a process of its own, so that its peak is its own.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/vault.h"
#include "certsync/certificate_listing.h"
#include "keyvault/key_lookup.h"

namespace {

constexpr int kSizes[] = {1000, 10000, 100000};
constexpr int kPortion = 5000;

struct Reading {
    double seconds = 0;
    long peakKiB = 0;
};

LONG ListKeys(KVC* call)
{
    WCHAR** names = nullptr;
    DWORD count = 0;
    if (!KVCGetKeys(call, &names, &count))
        return -1;
    KVCFreeNames(names, count);
    return static_cast<LONG>(count);
}

LONG ListCertificates(KVC* call)
{
    WCHAR** names = nullptr;
    WCHAR** thumbprints = nullptr;
    LONG count = 0;
    if (!KVCGetCerts(call, &names, &thumbprints, &count))
        return -1;
    KVCGetCertsFree(names, thumbprints);
    return count;
}

int ReadOnce(const std::string& vault, LONG (*list)(KVC*), LONG expected, int output)
{
    KVC* client = KVCNew(Wide(vault).c_str(), KVC_AUTHN_CLIENT_CREDENTIALS, Wide(Simulator::kTenant).c_str(),
                         Wide(Simulator::kClientId).c_str(), Wide(Simulator::kClientSecret).c_str(), nullptr, 0, 0, 0);
    const KVCCall call(KVCBeginCall(client));
    if (!KVCAuthenticate(call.get()))
        return 1;
    const bench::Stopwatch watch;
    if (list(call.get()) != expected)
        return 2;
    const double seconds = watch.Seconds();
    return write(output, &seconds, sizeof(seconds)) == sizeof(seconds) ? 0 : 3;
}

Reading Measure(const std::string& vault, LONG (*list)(KVC*), LONG expected)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0)
        _exit(ReadOnce(vault, list, expected, ends[1]));
    close(ends[1]);
    Reading reading;
    const bool told = read(ends[0], &reading.seconds, sizeof(reading.seconds)) == sizeof(reading.seconds);
    close(ends[0]);
    int status = 0;
    rusage usage = {};
    wait4(child, &status, 0, &usage);
    if (!told || status != 0)
        throw std::runtime_error("a list of " + std::to_string(expected) + " was not read: " + std::to_string(status));
    reading.peakKiB = usage.ru_maxrss;
    return reading;
}

nlohmann::json Grow(const std::string& kind, LONG (*list)(KVC*))
{
    const auto vault = [&](int size) { return kind.substr(0, 4) + std::to_string(size); };
    const Reading none = Measure(vault(0), list, 0);
    nlohmann::json rows;
    double first = 0;
    for (const int size : kSizes) {
        const Reading reading = Measure(vault(size), list, size);
        const double each = reading.seconds / size;
        if (first == 0)
            first = each;
        rows[std::to_string(size)] = {
            {"time_an_object_over_smallest", each / first},
            {"peak_bytes_a_name", static_cast<double>(reading.peakKiB - none.peakKiB) * 1024 / size}};
    }
    return rows;
}

// The walk of a host over all keys, each of which is read: seconds a key, as a multiple of the smallest vault's.
nlohmann::json Walk(bench::Vault& vault)
{
    nlohmann::json rows;
    double first = 0;
    for (const int size : {1000, 10000}) {
        vault.UseVault("keys" + std::to_string(size));
        bench::Module module;
        const bench::Stopwatch watch;
        if (module.CountKeys() != size)
            throw std::runtime_error("a walk over " + std::to_string(size) + " keys ended early");
        const double each = watch.Seconds() / size;
        if (first == 0)
            first = each;
        rows[std::to_string(size)] = {{"time_an_object_over_smallest", each / first}};
    }
    return rows;
}

// Fills a new vault in portions, so that no call takes long.
void Seed(Simulator& simulator, const std::string& kind, int size)
{
    const std::string path = "/vaults/" + kind + std::to_string(size);
    const bool keys = kind == "keys";
    simulator.Control("PUT", path, {{"tier", "premium"}});
    for (int done = 0; done < size; done += kPortion) {
        simulator.Control("POST", path + (keys ? "/seed" : "/certificates"),
                          {{"prefix", "portion-" + std::to_string(done) + "-"},
                           {keys ? "keys" : "count", std::min(kPortion, size - done)},
                           {"kty", "EC"},
                           {"shareCertificate", true},
                           {"crv", "P-256"}});
    }
}

}  // namespace

int main()
{
    bench::Vault vault;
    for (const char* kind : {"keys", "cert"}) {
        Seed(vault.simulator(), kind, 0);
        for (const int size : kSizes)
            Seed(vault.simulator(), kind, size);
    }
    std::cout << nlohmann::json{{"keys", Grow("keys", &ListKeys)},
                                {"certificates", Grow("certificates", &ListCertificates)},
                                {"keys read one by one", Walk(vault)}}
              << '\n';
}
