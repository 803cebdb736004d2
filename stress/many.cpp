// Many threads on one provider, and many processes on one root. Prints a JSON array with an object a rule: what must
// hold, and whether it did.
//
// A linear history of these calls allows no failure at all: every key that is used exists, nobody touches another's,
// and the vault never refuses. So each call must succeed; each operation is one request; a token is asked for no more
// often than tokens run out; what one thread signs or encrypts verifies and decrypts for it; and in the end everything
// that was made and not deleted is there, with the last value that its writer gave it.
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
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

std::string NameOf(const char* owner, int number, int round)
{
    return owner + std::to_string(number) + "-" + std::to_string(round);
}

// What the rounds of a thread did.
struct Done {
    size_t failures = 0;
    int rounds = 0;
    void Expect(SECURITY_STATUS status, SECURITY_STATUS expected = 0) { failures += status != expected; }
};

void SignAndVerify(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table, NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key,
                   BYTE first, Done* done)
{
    BYTE hash[32] = {first};
    BYTE signature[64];
    DWORD size = 0;
    done->Expect(table.SignHash(provider, key, nullptr, hash, 32, signature, 64, &size, 0));
    done->Expect(table.VerifySignature(provider, key, nullptr, hash, 32, signature, 64, 0));
}

void EncryptAndDecrypt(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table, NCRYPT_PROV_HANDLE provider,
                       NCRYPT_KEY_HANDLE key, BYTE first, Done* done)
{
    BYTE clear[32] = {first};
    BYTE secret[256];
    BYTE back[256] = {};
    DWORD size = 0;
    done->Expect(table.Encrypt(provider, key, clear, 32, nullptr, secret, 256, &size, NCRYPT_PAD_PKCS1_FLAG));
    done->Expect(table.Decrypt(provider, key, secret, 256, nullptr, back, 256, &size, NCRYPT_PAD_PKCS1_FLAG));
    done->failures += size != 32 || memcmp(clear, back, 32) != 0;
}

void Properties(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table, NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key,
                Done* done)
{
    WCHAR context[] = TEXT("context");
    BYTE room[64];
    DWORD size = 0;
    BYTE* const bytes = reinterpret_cast<BYTE*>(context);
    done->Expect(table.SetKeyProperty(provider, key, TEXT("Use Context"), bytes, sizeof(context), 0));
    done->Expect(table.GetKeyProperty(provider, key, TEXT("Use Context"), room, sizeof(room), &size, 0));
    done->failures += size != sizeof(context) || memcmp(room, context, size) != 0;
    done->Expect(table.ExportKey(provider, key, 0, TEXT("ECCPUBLICBLOB"), nullptr, nullptr, 0, &size, 0));
}

void FirstOfList(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table, NCRYPT_PROV_HANDLE provider, Done* done)
{
    PVOID walk = nullptr;
    NCryptKeyName* name = nullptr;
    done->Expect(table.EnumKeys(provider, nullptr, &name, &walk, NCRYPT_MACHINE_KEY_FLAG));
    for (PVOID block : {static_cast<PVOID>(name), walk})
        done->failures += !block || table.FreeBuffer(block) != 0;
}

// Keeps the keys of odd rounds.
void Create(Host& host, NCRYPT_PROV_HANDLE provider, const std::string& name, bool keep, Done* done)
{
    const NCRYPT_KEY_HANDLE key = host.NewKey(provider, name);
    done->Expect(host.table->FinalizeKey(provider, key, 0));
    done->Expect(keep ? host.table->FreeKey(provider, key) : host.table->DeleteKey(provider, key, 0));
}

// One key is opened and released; the other is shared by all threads.
void Round(Host& host, NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE shared, int thread, Done* done)
{
    const BYTE first = static_cast<BYTE>(thread);
    const NCRYPT_KEY_HANDLE own = host.OpenKey(provider, "rsa");
    SignAndVerify(*host.table, provider, shared, first, done);
    EncryptAndDecrypt(*host.table, provider, own, first, done);
    Properties(*host.table, provider, shared, done);
    FirstOfList(*host.table, provider, done);
    done->rounds++;
    Create(host, provider, NameOf("t", thread, done->rounds), done->rounds % 2 == 1, done);
    done->Expect(host.table->FreeKey(provider, own));
}

// Moves the clock past the token's end and back again. Returns how often.
int Jump(TestClock& clock, std::chrono::seconds duration)
{
    int jumps = 0;
    for (const auto end = std::chrono::steady_clock::now() + duration; std::chrono::steady_clock::now() < end;
         ++jumps) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        clock.Advance(jumps % 2 == 0 ? 3 * 3600 : -2 * 3600);
    }
    return jumps;
}

std::multiset<std::string> NamesOf(const json& list)
{
    std::multiset<std::string> names;
    for (const json& each : list)
        names.insert(each.at("name"));
    return names;
}

// From the journal and the vault: each operation once, and the keys that were kept.
void RuleTheVault(Simulator& sim, const std::vector<Done>& threads)
{
    std::multiset<std::string> expected = {"rsa", "p256"};
    size_t rounds = 0;
    size_t deletions = 0;
    for (size_t thread = 0; thread < threads.size(); ++thread) {
        rounds += static_cast<size_t>(threads[thread].rounds);
        deletions += static_cast<size_t>(threads[thread].rounds / 2);
        for (int round = 1; round <= threads[thread].rounds; round += 2)
            expected.insert(NameOf("t", static_cast<int>(thread), round));
    }
    std::map<std::string, size_t> counts;
    const json journal = sim.Journal();
    for (const json& request : journal) {
        const std::string target = request.value("target", "");
        for (const char* part : {"/sign?", "/verify?", "/encrypt?", "/decrypt?", "/create?"})
            counts[part] += target.find(part) != std::string::npos;
        counts["DELETE"] += request.value("method", "") == "DELETE";
    }
    bool once = true;
    for (const auto& [what, count] : counts)
        once = once && count == (what == "DELETE" ? 2 * deletions : rounds);  // deleted, and purged
    // The journal keeps the newest 50,000 requests.
    Rule("threads: each operation is one request", once || journal.size() >= 50000,
         {{"rounds", rounds}, {"deletions", deletions}, {"requests", counts}});
    const auto found = NamesOf(sim.Control("GET", std::string("/vaults/") + Simulator::kVault).at("keys"));
    Rule("threads: every key that was kept is there, and no other", found == expected,
         {{"expected", expected.size()}, {"found", found.size()}});
}

void Threads(std::chrono::seconds duration)
{
    Host host;
    TestClock clock;
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    const NCRYPT_KEY_HANDLE shared = host.OpenKey(provider, "p256");
    host.sim.ClearJournal();
    const int signInsBefore = host.sim.SignIns();
    std::atomic<bool> over{false};
    std::vector<Done> done(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (!over)
                Round(host, provider, shared, i, &done[static_cast<size_t>(i)]);
        });
    }
    const int jumps = Jump(clock, duration);
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    const int signIns = host.sim.SignIns() - signInsBefore;
    size_t failures = 0;
    for (const Done& each : done)
        failures += each.failures;
    Rule("threads: every call succeeds, and each gets its own result back", failures == 0, failures);
    RuleTheVault(host.sim, done);
    Rule("threads: no more sign-ins than jumps forward", signIns <= (jumps + 1) / 2,
         {{"signIns", signIns}, {"jumps", jumps}});
    Rule("threads: no wait", clock.Waits().empty(), clock.Waits().size());
    host.table->FreeKey(provider, shared);
    host.table->FreeProvider(provider);
}

// Creates keys, signs, deletes every second one, and changes the process's own setting: the number of its rounds.
void RunProcess(Host& host, int process, std::chrono::steady_clock::time_point end)
{
    for (int round = 1; round == 1 || std::chrono::steady_clock::now() < end; ++round) {
        const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
        const NCRYPT_KEY_HANDLE key = host.NewKey(provider, NameOf("p", process, round));
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

    std::multiset<std::string> expected, certificates;
    json rounds = json::array();
    for (int process = 0; process < kProcesses; ++process) {
        const TextString name = Wide("Rounds" + std::to_string(process));
        const int last = static_cast<int>(SettingsReadNumber(HKEY_LOCAL_MACHINE, name.c_str()));
        rounds.push_back(last);
        for (int round = 1; round <= last; round += 2)
            expected.insert(NameOf("p", process, round));
    }
    const json content = host.sim.Control("GET", vault);
    for (int i = 0; i < 5; ++i)
        certificates.insert("cert-00000" + std::to_string(i));
    expected.insert(certificates.begin(), certificates.end());
    const auto expectedCertificates = expected;
    const auto found = NamesOf(content.at("certificates"));
    expected.insert({"rsa", "p256"});
    Rule("processes: every key that was kept is there, and no other",
         NamesOf(content.at("keys")) == expected && expectedCertificates == found,
         {{"expected", expectedCertificates.size()}, {"found", found.size()}, {"rounds", rounds}});
    Rule("processes: every certificate is in the store", StoredContainers() == certificates, StoredContainers().size());
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    host.table->FreeKey(provider, host.OpenKey(provider, "p256"));
    Rule("processes: the secret still signs in, and isn't in clear",
         host.root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret").empty(), nullptr);
    host.table->FreeProvider(provider);
}

}  // namespace

// Arguments: seconds for each of the two, and "threads" for the threads alone.
int main(int argc, char** argv)
{
    const std::chrono::seconds duration(argc > 1 ? std::atoi(argv[1]) : 10);
    try {
        if (argc < 3)
            Processes(duration);
        Threads(duration);
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    std::cout << rules.dump(1) << "\n";
    return 0;
}
