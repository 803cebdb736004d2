// Long lists: time and peak memory of reading the names of a vault's keys and certificates, and time of a certificate
// sync that finds nothing new, as multiples of the shortest. Each list is read in its own process, so that
// peak memory and CPU time are separate.
#include <limits.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <stdexcept>

#include "bench/module.h"
#include "bench/statistics.h"
#include "bench/vault.h"
#include "certsync/cert_sync_list.h"
#include "certsync/certificate_listing.h"
#include "certsync/vault_to_machine.h"
#include "keyvault/key_lookup.h"
#include "support/base64.h"
#include "support/settings.h"

namespace {

constexpr int kSizes[] = {1000, 10000, 100000};
constexpr int kPortion = 5000;
constexpr int kRounds = 3;

// What a process reports about reading its list.
struct Effort {
    double seconds = 0;
    double cpuSeconds = 0;
    long residentKiB = 0;  // with the whole list in memory
};

// For this file the kernel counts every page; getrusage's peak is off by up to 128 KiB per core, as much as a short
// list takes. The heap returns nothing to the kernel, so the value at the end is the peak.
long AnonymousKiB()
{
    std::ifstream rollup("/proc/self/smaps_rollup");
    for (std::string line; std::getline(rollup, line);) {
        if (line.rfind("Anonymous:", 0) == 0)
            return std::stol(line.substr(10));
    }
    throw std::runtime_error("cannot read the number of resident pages");
}

long residentAtTheEnd = 0;

LONG ListKeys(KVC* call)
{
    WCHAR** names = nullptr;
    DWORD count = 0;
    if (!KVCGetKeys(call, &names, &count))
        return -1;
    residentAtTheEnd = AnonymousKiB();
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
    residentAtTheEnd = AnonymousKiB();
    KVCGetCertsFree(names, thumbprints);
    return count;
}

constexpr size_t kHashDigits = 40;

KVCClient* NewClient(const std::string& vault)
{
    return KVCNew(Wide(vault).c_str(), KVC_AUTHN_CLIENT_CREDENTIALS, Wide(Simulator::kTenant).c_str(),
                  Wide(Simulator::kClientId).c_str(), Wide(Simulator::kClientSecret).c_str(), nullptr, 0, 0, 0);
}

// As many hashes as the vault has certificates. Those of real certificates come last, so that searching takes longest.
TextString KnownHashesOf(const std::string& vault, int size)
{
    KVCClient* client = NewClient(vault);
    WCHAR** names = nullptr;
    WCHAR** thumbprints = nullptr;
    LONG count = 0;
    std::set<TextString> real;
    {
        const KVCCall call(KVCBeginCall(client));
        if (!KVCAuthenticate(call.get()) || !KVCGetCerts(call.get(), &names, &thumbprints, &count) || count != size)
            throw std::runtime_error("the certificates of " + vault + " were not read");
    }
    for (LONG i = 0; i < count; ++i) {
        BYTE hash[kLongestHash];
        DWORD bytes = sizeof(hash);
        BldBinFromBase64(thumbprints[i], hash, &bytes);
        real.insert(HashText(hash, bytes).text());
    }
    KVCGetCertsFree(names, thumbprints);
    KVCDelete(client);

    TextString known;
    for (size_t i = real.size(); i < static_cast<size_t>(size); ++i) {
        const std::string digits = std::to_string(i * 7919);
        known += Wide(std::string(kHashDigits - digits.size(), 'A') + digits + ",");
    }
    for (const TextString& hash : real)
        known += hash + Wide(",");
    return known;
}

// Runs the sync that the first open of a machine key starts. Returns the number of hashes known afterwards.
LONG SyncKnown(KVC* call)
{
    KVCSyncCertsFromKVToMachine(call);
    if (SettingsReadNumber(HKEY_LOCAL_MACHINE, TEXT("FromKVLastSyncTime")) == 0)
        return -1;
    return static_cast<LONG>(ReadCertSync(true)->length / (kHashDigits + 1));
}

// The processor time of this process so far, user and kernel.
double CpuSeconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

int ReadOnce(const std::string& vault, LONG (*list)(KVC*), LONG expected, int output)
{
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    const KVCCall call(KVCBeginCall(NewClient(vault)));
    if (!KVCAuthenticate(call.get()))
        return 1;
    const bench::Stopwatch watch;
    const double cpuBefore = CpuSeconds();
    if (list(call.get()) != expected)
        return 2;
    const Effort effort = {watch.Seconds(), CpuSeconds() - cpuBefore, residentAtTheEnd};
    return write(output, &effort, sizeof(effort)) == sizeof(effort) ? 0 : 3;
}

Effort Measure(const std::string& vault, LONG (*list)(KVC*), LONG expected)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0)
        _exit(ReadOnce(vault, list, expected, ends[1]));
    close(ends[1]);
    Effort effort;
    const bool reported = read(ends[0], &effort, sizeof(effort)) == sizeof(effort);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (!reported || status != 0)
        throw std::runtime_error("a list of " + std::to_string(expected) + " was not read: " + std::to_string(status));
    return effort;
}

int TimesOf(int size)
{
    return size == 1000 ? 10 : size == 10000 ? 3 : 1;
}

struct Figures {
    std::vector<double> seconds, cpuSeconds, residentKiB;
};

// The sizes alternate. Shorter lists are read more often, and the median counts.
template <typename Measure>
std::map<int, Figures> InTurns(std::initializer_list<int> sizes, Measure measure)
{
    std::map<int, Figures> figures;
    for (int round = 0; round < kRounds; ++round) {
        for (const int size : sizes) {
            for (int i = 0; i < TimesOf(size); ++i) {
                const Effort reading = measure(size);
                figures[size].seconds.push_back(reading.seconds / size);
                figures[size].cpuSeconds.push_back(reading.cpuSeconds / size);
                figures[size].residentKiB.push_back(static_cast<double>(reading.residentKiB));
            }
        }
    }
    return figures;
}

nlohmann::json OverSmallest(const Figures& of, const Figures& smallest)
{
    return {{"time_an_object_over_smallest", bench::Median(of.seconds) / bench::Median(smallest.seconds)},
            {"cpu_an_object_over_smallest", bench::Median(of.cpuSeconds) / bench::Median(smallest.cpuSeconds)}};
}

nlohmann::json Grow(const std::string& kind, LONG (*list)(KVC*))
{
    std::map<int, Figures> figures = InTurns({0, 1000, 10000, 100000}, [&](int size) {
        return Measure(kind.substr(0, 4) + std::to_string(size), list, size);
    });
    nlohmann::json rows;
    for (const int size : kSizes) {
        nlohmann::json& row = rows[std::to_string(size)] = OverSmallest(figures[size], figures[kSizes[0]]);
        row["peak_bytes_a_name"] =
            (bench::Median(figures[size].residentKiB) - bench::Median(figures[0].residentKiB)) * 1024 / size;
    }
    return rows;
}

// The same for a sync that already knows every certificate.
nlohmann::json GrowSync()
{
    std::map<int, TextString> known;
    for (const int size : kSizes)
        known[size] = KnownHashesOf("cert" + std::to_string(size), size);
    std::map<int, Figures> figures = InTurns({1000, 10000, 100000}, [&](int size) {
        SettingsWriteText(HKEY_LOCAL_MACHINE, TEXT("CertSync"), known[size].c_str());
        SettingsWriteNumber(HKEY_LOCAL_MACHINE, TEXT("FromKVLastSyncTime"), 0);
        return Measure("cert" + std::to_string(size), &SyncKnown, size);
    });
    nlohmann::json rows;
    for (const int size : kSizes)
        rows[std::to_string(size)] = OverSmallest(figures[size], figures[kSizes[0]]);
    return rows;
}

Effort WalkOnce(bench::Vault& vault, int size)
{
    vault.UseVault("keys" + std::to_string(size));
    bench::Module module;
    const bench::Stopwatch watch;
    const double cpuBefore = CpuSeconds();
    if (module.CountKeys() != size)
        throw std::runtime_error("a walk over " + std::to_string(size) + " keys ended early");
    return {watch.Seconds(), CpuSeconds() - cpuBefore, 0};
}

// A host enumerates and reads all keys. The short list is measured before and after the long one.
nlohmann::json Walk(bench::Vault& vault)
{
    std::vector<double> seconds;
    std::vector<double> cpuSeconds;
    Effort longWalk;
    for (int walk = 0; walk < 6; ++walk) {
        if (walk == 3)
            longWalk = WalkOnce(vault, 10000);
        const Effort effort = WalkOnce(vault, 1000);
        seconds.push_back(effort.seconds);
        cpuSeconds.push_back(effort.cpuSeconds);
    }
    return {{"1000", {{"time_an_object_over_smallest", 1.0}, {"cpu_an_object_over_smallest", 1.0}}},
            {"10000",
             {{"time_an_object_over_smallest", longWalk.seconds / 10 / bench::Median(seconds)},
              {"cpu_an_object_over_smallest", longWalk.cpuSeconds / 10 / bench::Median(cpuSeconds)}}}};
}

// Fills a new vault in batches, so that no call takes long.
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
                                {"known certificates synced", GrowSync()},
                                {"keys read one by one", Walk(vault)}}
              << '\n';
}
