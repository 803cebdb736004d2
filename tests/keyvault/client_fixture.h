// Fixtures of the client's tests: a root for each test, a stopped clock, the simulator, logging at level 10.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "keyvault/kvkey.h"
#include "keyvault/rest_call.h"
#include "keyvault/web_call.h"
#include "platform/owner.h"
#include "support/log.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/base64.h"
#include "tests/common/host.h"
#include "tests/common/row.h"
#include "tests/common/service_sample.h"

using ClientPtr = Owner<KVCClient, KVCDelete>;

using Strings = std::vector<std::string>;
using Waits = std::vector<DWORD>;

// The waits before `count` retries: 1, 2, 4... seconds, at most 64.
Waits RetryWaits(size_t count);

// The arguments of KVCNew; the defaults reach the simulator's vault.
struct Identity {
    std::string vault = Simulator::kVault;
    DWORD authn = KVC_AUTHN_CLIENT_CREDENTIALS;
    std::string tenant = Simulator::kTenant;
    std::string clientId = Simulator::kClientId;
    std::string secret = Simulator::kClientSecret;
};

std::string Repeat(const std::string& text, size_t times);

// "(NULL)" for NULL.
std::string TextOf(const WCHAR* text);
std::string TextOf(const BldStr* str);

// The encoded form of the key name "a b".
inline const std::string kCodedName = "-vBAgAAwBA" + std::string(33, 'z');

// A key record that is freed with its blocks.
struct OwnKey : KVKey, private NonCopyable {
    OwnKey() : KVKey{} {}
    ~OwnKey() { KVCFreeKVKey(this); }
};

// Runs `work` with its first allocation failing, then with its second, and so on, and `check` after each, until a run
// needs fewer: that one is checked with `whole` set.
template <class Work, class Check>
void SweepAllocations(Work work, Check check)
{
    bool whole = false;
    for (size_t failAt = 0; failAt < 300 && !whole; ++failAt) {
        SCOPED_TRACE(testing::Message() << "allocation " << failAt);
        {
            const AllocFault fault(failAt);
            work();
            whole = fault.Seen() <= failAt;
        }
        check(whole);
        EXPECT_TRUE(!whole || failAt >= 3) << "no allocation failed";
    }
    EXPECT_TRUE(whole);
}

// A request's header lines, without those that the transport adds.
Strings CallerLines(const nlohmann::json& request);
// The value of one header line, "" if it's missing.
std::string HeaderOf(const nlohmann::json& request, const std::string& name);
// The caller's lines are `lines` and a "client-request-id".
void ExpectLinesAndId(const nlohmann::json& request, Strings lines);

class ClientTest : public testing::Test {
  protected:
    void SetUp() override
    {
        sim.Reset();
        SetLogging(10);
    }

    void SetLogging(DWORD level)
    {
        root.SetNumber(HKEY_LOCAL_MACHINE, "LoggingLevel", level);
        LogAttach();
    }
    // Resets the simulator, and clears the log and the waits.
    void Fresh()
    {
        sim.Reset();
        clock.ClearWaits();
        root.ClearLog();
    }
    void SetNetwork(bool up) { sim.Control("PUT", "/listener", {{"name", "tls"}, {"mode", up ? "up" : "down"}}); }
    // Queues answers for requests whose target contains `path`.
    void Answer(const std::string& path, int status, const nlohmann::json& body, int times = 1)
    {
        sim.Fault({{"path", path}, {"action", "status"}, {"status", status}, {"body", body}, {"times", times}});
    }

    ClientPtr NewClient(const Identity& identity = {});
    int SignIn(const ClientPtr& client)
    {
        const KVCCall call(KVCBeginCall(client.get()));
        return KVCAuthenticate(call.get());
    }
    // Lists the vault's keys with a call that has a token, or with the token that the client holds.
    int ListKeys(KVC* call) { return SendToVault(call, VaultRequest()); }
    int ListKeys(const ClientPtr& client)
    {
        const KVCCall call(KVCBeginCall(client.get()));
        KVCTakeHeldToken(call.get());
        return ListKeys(call.get());
    }

    // Requests of the journal whose target contains `part`.
    std::vector<nlohmann::json> Requests(const std::string& part = "");
    // Target and body of each different POST.
    std::set<std::string> Posts();
    size_t LinesWith(const std::string& text) const
    {
        const Strings lines = root.LogLines();
        return static_cast<size_t>(std::count_if(
            lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }
    Strings LinesUpTo(int level) const;  // without those of the transport

    Simulator& sim = Simulator::Get();
    TestRoot root;
    TestClock clock;
};

// Has a call that is signed in. A test begins with an empty log and journal.
class VaultTest : public ClientTest {
  protected:
    void SetUp() override;
    // The simulator's vault.
    nlohmann::json State() { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault); }

    ClientPtr client;
    KVCCall call;
};
