// Every operation against every fault. Prints a JSON array with an object a cell: what the rules expect, and what came.
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

// Longer than any call here takes on a busy machine; one that is stuck takes for ever.
constexpr std::chrono::seconds kStuck(100);
// The largest answer is 16 MiB. It is held once by the layer and, while it grows, twice by the system.
constexpr size_t kMostMemoryKb = 80 * 1024;
// The layer keeps a few handles of libcurl, each with a pair of descriptors, and one may be added.
constexpr size_t kMoreDescriptors = 2;

// A request that never gets an answer is tried so often.
constexpr int kAttempts = 10;

// What befalls the sessions of the system from number `first` on, kAttempts of them.
struct {
    int first = INT_MAX;
    int opened = 0;
    int connectMs = 0;  // time-outs; 0: WinHTTP's
    int receiveMs = 0;
    std::function<void()> begin;  // before the first
    std::function<void()> end;    // before the first that is whole again
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

// Breaks the operation's connections as the fault says while it lives.
class ArmedFault {
  public:
    ArmedFault(Stage& stage, const Operation& operation, const Fault& fault) : sim_(stage.host.sim), clock_(stage.clock)
    {
        connections_ = std::getenv("KELVARO_CONNECT_TO");
        if (!fault.sim.is_null())
            sim_.Fault(ForSimulator(operation, fault));
        if (fault.gate != GateFault::None)
            gate_ = std::make_unique<Gate>(fault.gate);
        clock_.StepTicks(fault.tickMs);
        faulty = {operation.step, 0, fault.connectMs, fault.receiveMs, [&] { Begin(operation, fault); },
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

// A request that the client gave up may be noted a moment later.
size_t AwaitRequests(Simulator& sim, const Operation& operation, size_t expected)
{
    size_t count = 0;
    for (int i = 0; (count = CountRequests(sim, operation)) < expected && i < 50; ++i)
        usleep(100000);
    return count;
}

// Another thread opens a key and signs. The key of the stage may be gone.
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

json RunCell(const Operation& operation, const Fault& fault)
{
    const Outcome expected = Expect(operation.kind, operation.statuses, fault);
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
        const ArmedFault armed(stage, operation, fault);
        measured.status = operation.run(stage);
        peak = StatusKb("VmHWM");
        measured.waits = stage.clock.Waits();
        // A reset may come before the layer has seen the connection, which then counts as refused.
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
    return {{"operation", operation.name},
            {"fault", fault.name},
            {"expected", ToJson(expected)},
            {"measured", ToJson(measured)},
            {"nextCall", next},
            {"descriptors", static_cast<long>(left) - static_cast<long>(descriptors)},
            {"memoryKb", grown},
            {"seconds", took.count()},
            {"ok", good}};
}

// Every `shares`th cell from number `share` on, a line each.
void RunShare(int share, int shares, const std::string& wanted, FILE* out)
{
    int number = 0;
    for (const Operation& operation : Operations()) {
        for (const Fault& fault : Faults()) {
            const bool plain = operation.service == Service::Metadata || operation.service == Service::Arc;
            const std::string name = std::string(operation.name) + " / " + fault.name;
            if ((plain && fault.NeedsTls()) || name.find(wanted) == std::string::npos || number++ % shares != share)
                continue;
            std::fprintf(out, "%s\n", RunCell(operation, fault).dump().c_str());
            std::fflush(out);
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
    if (agent[0] != 'Z')  // the test's own
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

// Arguments: the number of processes, and a part of the names of the cells.
int main(int argc, char** argv)
{
    return PrintInShares(argc > 1 ? std::atoi(argv[1]) : 4, [&](int share, int shares, FILE* out) {
        RunShare(share, shares, argc > 2 ? argv[2] : "", out);
    });
}
