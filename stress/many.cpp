// Many threads on one provider, and many processes on one root. Prints a JSON array with an object a rule: what must
// hold, and whether it did.
//
// A linear history of these calls allows no failure at all: every key that is used exists, nobody touches another's,
// and the vault never refuses. So each call must succeed; each signature and each creation is one request; a token is
// asked for no more often than tokens run out; and in the end everything that was made and not deleted is there, with
// the last value that its writer gave it.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include "stress/host.h"
#include "support/settings.h"
#include "tests/common/test_clock.h"

using namespace stress;
using nlohmann::json;

namespace {

constexpr int kThreads = 64;
constexpr int kProcesses = 8;

json rules = json::array();

void Rule(const char* what, bool holds, const json& measured)
{
    rules.push_back({{"rule", what}, {"ok", holds}, {"measured", measured}});
}

size_t Count(Simulator& sim, const std::string& part)
{
    size_t count = 0;
    for (const json& request : sim.Journal())
        count += request.value("target", "").find(part) != std::string::npos;
    return count;
}

// One round of a thread. One key is opened and released; the other is shared by all threads.
size_t Round(Host& host, NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE shared, size_t* signatures)
{
    size_t failures = 0;
    NCRYPT_KEY_HANDLE own = 0;
    failures += host.table->OpenKey(provider, &own, TEXT("rsa"), 0, NCRYPT_MACHINE_KEY_FLAG) != 0;
    failures += host.Sign(provider, shared, false) != 0;
    failures += own == 0 || host.Sign(provider, own, true) != 0;
    *signatures += 2;
    WCHAR context[] = TEXT("context");
    BYTE room[64];
    DWORD size = 0;
    BYTE* const bytes = reinterpret_cast<BYTE*>(context);
    failures += host.table->SetKeyProperty(provider, shared, TEXT("Use Context"), bytes, sizeof(context), 0) != 0;
    failures += host.table->GetKeyProperty(provider, shared, TEXT("Use Context"), room, sizeof(room), &size, 0) != 0;
    PVOID walk = nullptr;
    NCryptKeyName* name = nullptr;
    failures += host.table->EnumKeys(provider, nullptr, &name, &walk, NCRYPT_MACHINE_KEY_FLAG) != 0;
    for (PVOID block : {static_cast<PVOID>(name), walk})
        failures += !block || host.table->FreeBuffer(block) != 0;
    failures += own == 0 || host.table->FreeKey(provider, own) != 0;
    return failures;
}

void Threads(std::chrono::seconds duration)
{
    Host host;
    TestClock clock;
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    const NCRYPT_KEY_HANDLE shared = host.OpenKey(provider, "p256");
    host.sim.ClearJournal();
    const int signInsBefore = host.sim.SignIns();
    std::atomic<size_t> failures{0}, signatures{0};
    std::atomic<bool> over{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            size_t failed = 0, signedHere = 0;
            while (!over)
                failed += Round(host, provider, shared, &signedHere);
            failures += failed;
            signatures += signedHere;
        });
    }
    // The clock jumps past the token's end, and back again.
    int jumps = 0;
    for (const auto end = std::chrono::steady_clock::now() + duration; std::chrono::steady_clock::now() < end;
         ++jumps) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        clock.Advance(jumps % 2 == 0 ? 3 * 3600 : -2 * 3600);
    }
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    const int signIns = host.sim.SignIns() - signInsBefore;
    const size_t requests = Count(host.sim, "/sign?");
    Rule("threads: every call succeeds", failures == 0 && signatures > 0, failures.load());
    // The journal keeps the newest 50,000 requests.
    Rule("threads: one request a signature", signatures > 10000 || requests == signatures,
         {{"signatures", signatures.load()}, {"requests", requests}});
    Rule("threads: no more sign-ins than jumps forward", signIns <= (jumps + 1) / 2,
         {{"signIns", signIns}, {"jumps", jumps}});
    Rule("threads: no wait", clock.Waits().empty(), clock.Waits().size());
    host.table->FreeKey(provider, shared);
    host.table->FreeProvider(provider);
}

std::string NameOf(int process, int round)
{
    return "p" + std::to_string(process) + "-" + std::to_string(round);
}

// Creates keys, signs, deletes every second one, and changes the process's own setting: the number of its rounds.
void RunProcess(Host& host, int process, std::chrono::steady_clock::time_point end)
{
    for (int round = 1; round == 1 || std::chrono::steady_clock::now() < end; ++round) {
        const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
        const NCRYPT_KEY_HANDLE key = host.NewKey(provider, NameOf(process, round));
        Require(host.table->FinalizeKey(provider, key, 0) == 0, "not finalized");
        Require(host.Sign(provider, key, false) == 0, "not signed");
        const auto give = round % 2 == 0 ? host.table->DeleteKey(provider, key, 0) : host.table->FreeKey(provider, key);
        Require(give == 0, "not released");
        host.root.SetNumber(HKEY_LOCAL_MACHINE, "Rounds" + std::to_string(process), static_cast<DWORD>(round));
        if (process == 0)
            host.root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", Simulator::kClientSecret);
        // The next open of a key looks for certificates.
        host.root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 0);
        host.table->FreeKey(provider, host.OpenKey(provider, "p256"));
        host.table->FreeProvider(provider);
    }
}

void Processes(std::chrono::seconds duration)
{
    Host host;
    const std::string vault = std::string("/vaults/") + Simulator::kVault;
    host.root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    host.sim.Control("POST", vault + "/certificates",
                     {{"count", 5}, {"prefix", "cert-"}, {"kty", "EC"}, {"crv", "P-256"}});
    const auto end = std::chrono::steady_clock::now() + duration;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        children.push_back(fork());
        if (children.back() != 0)
            continue;
        try {
            RunProcess(host, process, end);
        } catch (const std::exception& error) {
            std::cerr << "process " << process << ": " << error.what() << "\n";
            _exit(1);
        }
        _exit(0);
    }
    int failed = 0;
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        failed += status != 0;
    }
    Rule("processes: every call succeeds", failed == 0, failed);

    std::multiset<std::string> expected = {"rsa", "p256"}, found, certificates;
    json rounds = json::array();
    for (int process = 0; process < kProcesses; ++process) {
        const TextString name = Wide("Rounds" + std::to_string(process));
        const int last = static_cast<int>(SettingsReadNumber(HKEY_LOCAL_MACHINE, name.c_str()));
        rounds.push_back(last);
        for (int round = 1; round <= last; round += 2)
            expected.insert(NameOf(process, round));
    }
    const json content = host.sim.Control("GET", vault);
    for (const json& key : content.at("keys"))
        found.insert(key.at("name"));
    for (const json& certificate : content.at("certificates"))
        found.insert(certificate.at("name"));
    for (int i = 0; i < 5; ++i)
        certificates.insert("cert-00000" + std::to_string(i));
    expected.insert(certificates.begin(), certificates.end());
    Rule("processes: every key that was kept is there, and no other", found == expected,
         {{"expected", expected.size()}, {"found", found.size()}, {"rounds", rounds}});
    Rule("processes: every certificate is in the store", StoredContainers() == certificates, StoredContainers().size());
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    host.table->FreeKey(provider, host.OpenKey(provider, "p256"));
    Rule("processes: the secret still signs in, and isn't in clear",
         host.root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret").empty(), nullptr);
    host.table->FreeProvider(provider);
}

}  // namespace

// Argument: seconds for each of the two.
int main(int argc, char** argv)
{
    const std::chrono::seconds duration(argc > 1 ? std::atoi(argv[1]) : 10);
    try {
        Processes(duration);
        Threads(duration);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    std::cout << rules.dump(1) << "\n";
    return 0;
}
