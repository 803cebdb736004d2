// Runs every operation against every fault. Prints a JSON array with one object per cell: what the rules expect, and
// what happened.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <memory>

#include "stress/operations.h"
#include "stress/shares.h"

using namespace stress;
using nlohmann::json;

namespace {

// Longer than any call takes here on a busy machine, unless it is stuck.
constexpr std::chrono::seconds kStuck(100);
// The largest answer has 16 MiB. The layer has one copy; the module has two while its buffer grows.
constexpr size_t kMostMemoryKb = 80 * 1024;
// The layer keeps a few libcurl handles, with two descriptors each, and may add one.
constexpr size_t kMoreDescriptors = 2;

constexpr char kThrottled[] = ", after a throttled request";

// How often the module sends a request that gets no answer.
constexpr int kAttempts = 10;

// What happens to kAttempts of the module's sessions, starting with number `first`.
struct {
    int first = INT_MAX;
    int opened = 0;
    int connectMs = 0;  // time-outs; 0: the defaults of WinHTTP
    int receiveMs = 0;
    std::function<void()> begin;  // called before the first of them
    std::function<void()> end;    // called before the first session after them
} faulty;

size_t StatusKb(const char* name)
{
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(name, 0) == 0)
            return std::stoul(line.substr(std::strlen(name) + 1));
    }
    return 0;
}

void ForgetPeakMemory()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}

size_t Entries(const char* folder)
{
    const std::filesystem::directory_iterator all(folder);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

const char* ListenerOf(Service service)
{
    return service == Service::Metadata ? ":80:" : service == Service::Arc ? ":40342:" : ":443:";
}

const char* HostOf(Service service)
{
    return service == Service::Directory ? "login.microsoftonline.com"
           : service == Service::Vault   ? "contoso-keys.vault.azure.net"
                                         : "";
}

// Applies the fault to the operation's connections during its lifetime.
class ArmedFault {
  public:
    // earlier: an earlier request of the same operation, which is throttled once; may be NULL.
    ArmedFault(Stage& stage, const Operation& operation, const Fault& fault, const Operation* earlier)
        : sim_(stage.host.sim), clock_(stage.clock)
    {
        if (earlier)
            sim_.Fault({{"method", earlier->method}, {"path", earlier->path}, {"action", "status"}, {"status", 429}});
        connections_ = std::getenv("KELVARO_CONNECT_TO");
        if (!fault.sim.is_null())
            sim_.Fault(ForSimulator(operation, fault));
        if (fault.gate != GateFault::None)
            gate_ = std::make_unique<Gate>(fault.gate);
        clock_.StepTicks(fault.tickMs);
        faulty = {operation.step + (earlier ? 1 : 0),
                  0,
                  fault.connectMs,
                  fault.receiveMs,
                  [&] { Begin(operation, fault); },
                  [&] { End(); }};
    }
    ~ArmedFault()
    {
        faulty = {};
        clock_.StepTicks(0);
        End();
        sim_.Control("DELETE", "/faults");
    }
    ArmedFault(const ArmedFault&) = delete;
    ArmedFault& operator=(const ArmedFault&) = delete;

  private:
    void Begin(const Operation& operation, const Fault& fault)
    {
        if (fault.certificate)
            sim_.Control("PUT", "/certificate", {{"mode", fault.certificate}});
        if (!gate_)
            return;
        const std::string place = std::string(HostOf(operation.service)) + ListenerOf(operation.service);
        setenv("KELVARO_CONNECT_TO",
               (place + "127.0.0.1:" + std::to_string(gate_->port()) + " " + connections_).c_str(), 1);
    }
    void End()
    {
        setenv("KELVARO_CONNECT_TO", connections_.c_str(), 1);
        sim_.Control("PUT", "/certificate", {{"mode", "good"}});
    }
    static json ForSimulator(const Operation& operation, const Fault& fault)
    {
        json sim = {{"method", operation.method}, {"path", operation.path}, {"times", -1}};
        sim.update(fault.sim);
        const DWORD good = GoodStatus(operation.kind);
        if (sim["action"] == "raw")
            sim["raw"] = "HTTP/1.1 " + std::to_string(good) + " OK\r\n" + sim["raw"].get<std::string>();
        if (fault.cls == FaultClass::WrongBody || fault.cls == FaultClass::WrongTypes)
            sim["status"] = good;
        return sim;
    }

    Simulator& sim_;
    TestClock& clock_;
    std::string connections_;
    std::unique_ptr<Gate> gate_;
};

size_t CountRequests(Simulator& sim, const Operation& operation)
{
    size_t count = 0;
    for (const json& request : sim.Journal())
        count += request.value("method", "") == operation.method &&
                 request.value("target", "").find(operation.path) != std::string::npos;
    return count;
}

// The journal may get a request that the client gave up a moment later.
size_t AwaitRequests(Simulator& sim, const Operation& operation, size_t expected)
{
    size_t count = 0;
    for (int i = 0; (count = CountRequests(sim, operation)) < expected && i < 50; ++i)
        usleep(100000);
    return count;
}

// Opens another key and signs, on another thread. The operation may have deleted the key of the stage.
bool NextCallWorks(Stage& stage)
{
    stage.host.sim.AddKey(Simulator::kVault, {{"name", "next"}, {"kty", "EC"}, {"crv", "P-256"}});
    std::future<bool> next = std::async(std::launch::async, [&] {
        const NCRYPT_KEY_HANDLE key = stage.host.OpenKey(stage.provider, "next");
        const SECURITY_STATUS status = stage.host.Sign(stage.provider, key, false);
        stage.host.table->FreeKey(stage.provider, key);
        return status == 0;
    });
    if (next.wait_for(kStuck) == std::future_status::ready)
        return next.get();
    std::cerr << "the next call is stuck\n";
    std::_Exit(1);
}

json ToJson(const Outcome& outcome)
{
    uint64_t total = 0;
    for (const DWORD wait : outcome.waits)
        total += wait;
    return {{"status", StatusName(outcome.status)},
            {"requests", outcome.requests},
            {"waits", outcome.waits.size()},
            {"waitedMs", total}};
}

json RunCell(const Operation& operation, const Fault& fault, const Operation* earlier)
{
    const Outcome expected = (earlier ? ExpectAfterThrottling : Expect)(operation.kind, operation.statuses, fault);
    Outcome measured;
    Stage stage;
    operation.prepare(stage);
    stage.host.sim.ClearJournal();
    stage.clock.ClearWaits();
    const size_t descriptors = Entries("/proc/self/fd");
    ForgetPeakMemory();
    const size_t memory = StatusKb("VmRSS");
    const auto start = std::chrono::steady_clock::now();
    size_t peak = 0;
    {
        const ArmedFault armed(stage, operation, fault, earlier);
        measured.status = operation.run(stage);
        peak = StatusKb("VmHWM");
        measured.waits = stage.clock.Waits();
        // If the reset arrives before the layer has noticed the connection, it counts as refused.
        if (fault.gate == GateFault::ResetAtConnect)
            measured.waits.erase(std::remove(measured.waits.begin(), measured.waits.end(), DWORD{20000}),
                                 measured.waits.end());
        measured.requests = AwaitRequests(stage.host.sim, operation, expected.requests);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const size_t grown = peak > memory ? peak - memory : 0;
    const bool next = NextCallWorks(stage);
    const size_t left = Entries("/proc/self/fd");
    const bool good = measured.status == expected.status && measured.requests == expected.requests &&
                      measured.waits == expected.waits && next && left <= descriptors + kMoreDescriptors &&
                      grown <= kMostMemoryKb && took < kStuck;
    return {{"operation", operation.name + std::string(earlier ? kThrottled : "")},
            {"fault", fault.name},
            {"expected", ToJson(expected)},
            {"measured", ToJson(measured)},
            {"nextCall", next},
            {"descriptors", static_cast<long>(left) - static_cast<long>(descriptors)},
            {"memoryKb", grown},
            {"seconds", took.count()},
            {"ok", good}};
}

// The faults that are also tried after an earlier request of the same operation was throttled.
bool IsSecondFault(const Fault& fault)
{
    const std::string name = fault.name;
    return name == "429 once" || name == "500" || name == "reset before the head" || name == "not JSON";
}

// Runs every `shares`th cell, starting with number `share`. Writes one line per cell.
void RunShare(int share, int shares, const std::string& wanted, FILE* out)
{
    int number = 0;
    const auto run = [&](const Operation& operation, const Fault& fault, const Operation* earlier) {
        const std::string name = operation.name + std::string(earlier ? kThrottled : "") + " / " + fault.name;
        if (name.find(wanted) == std::string::npos || number++ % shares != share)
            return;
        std::fprintf(out, "%s\n", RunCell(operation, fault, earlier).dump().c_str());
        std::fflush(out);
    };
    for (const Operation& operation : Operations()) {
        const bool plain = operation.service == Service::Metadata || operation.service == Service::Arc;
        for (const Fault& fault : Faults()) {
            if (!plain || !fault.NeedsTls())
                run(operation, fault, nullptr);
            // The row before is the request before.
            if (operation.step > 0 && IsSecondFault(fault))
                run(operation, fault, &operation - 1);
        }
    }
}

}  // namespace

HINTERNET RealWinHttpOpen(LPCWSTR agent, DWORD type, LPCWSTR proxy, LPCWSTR bypass,
                          DWORD flags) __asm__("__real__Z11WinHttpOpenPKDsjS0_S0_j");
HINTERNET WrapWinHttpOpen(LPCWSTR agent, DWORD type, LPCWSTR proxy, LPCWSTR bypass,
                          DWORD flags) __asm__("__wrap__Z11WinHttpOpenPKDsjS0_S0_j");

HINTERNET WrapWinHttpOpen(LPCWSTR agent, DWORD type, LPCWSTR proxy, LPCWSTR bypass, DWORD flags)
{
    HINTERNET const session = RealWinHttpOpen(agent, type, proxy, bypass, flags);
    if (agent[0] != 'Z')  // the session is the test's, not the module's
        return session;
    const int number = faulty.opened++ - faulty.first;
    if (number == 0)
        faulty.begin();
    if (number == kAttempts)
        faulty.end();
    if (number >= 0 && number < kAttempts && (faulty.connectMs || faulty.receiveMs)) {
        const auto orDefault = [](int given, int platforms) { return given ? given : platforms; };
        WinHttpSetTimeouts(session, 0, orDefault(faulty.connectMs, 60000), 30000, orDefault(faulty.receiveMs, 30000));
    }
    return session;
}

// Arguments: the number of processes, and a part of the name of the cells to run.
int main(int argc, char** argv)
{
    return PrintInShares(argc > 1 ? std::atoi(argv[1]) : 4, [&](int share, int shares, FILE* out) {
        RunShare(share, shares, argc > 2 ? argv[2] : "", out);
    });
}
