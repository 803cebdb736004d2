// Many threads on one provider, and many processes on one root. Prints a JSON array with one object per rule: what must
// hold, and whether it did.
//
// If the calls ran one after another, none could fail: every key that is used exists, no thread touches another's keys,
// and the vault never refuses. So each call must succeed, and each operation must be one request; there are no more
// sign-ins than expired tokens; each thread can verify what it signed and decrypt what it encrypted; and at the end
// everything that was created and not deleted is there, with the last value written to it.
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
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

// What a thread has done.
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
    // Without its lock, replacing the context is unsafe only for a few instructions.
    for (int i = 0; i < 1000; ++i)
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

void Create(Host& host, NCRYPT_PROV_HANDLE provider, const std::string& name, bool keep, Done* done)
{
    const NCRYPT_KEY_HANDLE key = host.NewKey(provider, name);
    done->Expect(host.table->FinalizeKey(provider, key, 0));
    done->Expect(keep ? host.table->FreeKey(provider, key) : host.table->DeleteKey(provider, key, 0));
}

// Uses a key that it opens and closes itself and one that all threads share. Keys created in odd rounds are kept.
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

// Counts the requests of the simulator's journal, which keeps only the newest ones and so has to be read from time to
// time.
class RequestCounts {
  public:
    explicit RequestCounts(Simulator& sim) : sim_(sim) { sim.ClearJournal(); }
    void Update()
    {
        const json journal = sim_.Control("GET", "/journal?since=" + std::to_string(lastSeen_)).at("requests");
        for (const json& request : journal) {
            const std::string target = request.value("target", "");
            for (const char* part : {"/sign?", "/verify?", "/encrypt?", "/decrypt?", "/create?"})
                counts_[part] += target.find(part) != std::string::npos;
            counts_["DELETE"] += request.value("method", "") == "DELETE";
            lastSeen_ = request.at("seq");
        }
    }
    const std::map<std::string, size_t>& counts() const { return counts_; }

  private:
    Simulator& sim_;
    std::map<std::string, size_t> counts_;
    uint64_t lastSeen_ = 0;
};

// Moves the clock past the token's expiry and partly back, again and again. Returns the number of jumps.
int Jump(TestClock& clock, RequestCounts& requests, std::chrono::seconds duration)
{
    // On another thread: under the thread sanitizer, reading the journal takes many times as long as a jump may.
    std::atomic<bool> ended = false;
    std::future<void> reading = std::async(std::launch::async, [&] {
        while (!ended)
            requests.Update();
    });
    int jumps = 0;
    for (const auto end = std::chrono::steady_clock::now() + duration; std::chrono::steady_clock::now() < end;
         ++jumps) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        clock.Advance(jumps % 2 == 0 ? 3 * 3600 : -2 * 3600);
    }
    ended = true;
    reading.get();
    return jumps;
}

std::multiset<std::string> NamesOf(const json& list)
{
    std::multiset<std::string> names;
    for (const json& each : list)
        names.insert(each.at("name"));
    return names;
}

// Each operation made one request, and the vault has exactly the keys that were kept.
void CheckVault(Simulator& sim, RequestCounts& requests, const std::vector<Done>& threads)
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
    requests.Update();
    bool once = true;
    for (const auto& [what, count] : requests.counts())
        once = once && count == (what == "DELETE" ? 2 * deletions : rounds);  // deleted, and purged
    Rule("threads: each operation is one request", once && rounds > 0,
         {{"rounds", rounds}, {"deletions", deletions}, {"requests", requests.counts()}});
    const auto found = NamesOf(sim.Control("GET", std::string("/vaults/") + Simulator::kVault).at("keys"));
    Rule("threads: exactly the keys that were kept are there", found == expected,
         {{"expected", expected.size()}, {"found", found.size()}});
}

void Threads(std::chrono::seconds duration)
{
    Host host;
    TestClock clock;
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    const NCRYPT_KEY_HANDLE shared = host.OpenKey(provider, "p256");
    RequestCounts requests(host.sim);
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
    const int jumps = Jump(clock, requests, duration);
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    const int signIns = host.sim.SignIns() - signInsBefore;
    size_t failures = 0;
    for (const Done& each : done)
        failures += each.failures;
    Rule("threads: every call succeeds and returns its own result", failures == 0, failures);
    CheckVault(host.sim, requests, done);
    Rule("threads: no more sign-ins than jumps forward", signIns <= (jumps + 1) / 2,
         {{"signIns", signIns}, {"jumps", jumps}});
    Rule("threads: no waits", clock.Waits().empty(), clock.Waits().size());
    host.table->FreeKey(provider, shared);
    host.table->FreeProvider(provider);
}

// Creates keys, signs, deletes every second one, and stores the number of its rounds in its setting.
void RunProcess(Host& host, int process, std::chrono::steady_clock::time_point end)
{
    for (int round = 1; round == 1 || std::chrono::steady_clock::now() < end; ++round) {
        const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
        const NCRYPT_KEY_HANDLE key = host.NewKey(provider, NameOf("p", process, round));
        Require(host.table->FinalizeKey(provider, key, 0) == 0, "not finalized");
        Require(host.Sign(provider, key, false) == 0, "not signed");
        const auto status =
            round % 2 == 0 ? host.table->DeleteKey(provider, key, 0) : host.table->FreeKey(provider, key);
        Require(status == 0, "not released");
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
    Rule("processes: exactly the keys that were kept are there",
         NamesOf(content.at("keys")) == expected && expectedCertificates == found,
         {{"expected", expectedCertificates.size()}, {"found", found.size()}, {"rounds", rounds}});
    Rule("processes: every certificate is in the store", StoredContainers() == certificates, StoredContainers().size());
    const NCRYPT_PROV_HANDLE provider = host.OpenProvider();
    host.table->FreeKey(provider, host.OpenKey(provider, "p256"));
    Rule("processes: sign-in still works with the secret, which is no longer in plaintext",
         host.root.GetText(HKEY_LOCAL_MACHINE, "ClientSecret").empty(), nullptr);
    host.table->FreeProvider(provider);
}

}  // namespace

// Arguments: the seconds for processes and for threads each; "threads" to run only the threads.
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
