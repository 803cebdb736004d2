// Fixture of the client's stories: a machine of its own, a clock that stands still, the simulator, logging at level 10.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "keyvault/kvc.h"
#include "keyvault/rest_call.h"
#include "keyvault/web_call.h"
#include "support/log.h"
#include "tests/common/alloc_fault.h"
#include "tests/common/base64.h"
#include "tests/common/simulator.h"
#include "tests/common/test_clock.h"
#include "tests/common/test_root.h"

struct ClientDeleter {
    void operator()(KVCClient* kvc) const { KVCDelete(kvc); }
};
using ClientPtr = std::unique_ptr<KVCClient, ClientDeleter>;

using Bytes = std::vector<BYTE>;
using Strings = std::vector<std::string>;
using Waits = std::vector<DWORD>;

// What KVCNew is given; the defaults reach the simulator's vault.
struct Identity {
    std::string vault = Simulator::kVault;
    DWORD authn = KVC_AUTHN_CLIENT_CREDENTIALS;
    std::string tenant = Simulator::kTenant;
    std::string clientId = Simulator::kClientId;
    std::string secret = Simulator::kClientSecret;
};

inline std::string TextOf(const BldStr* str)
{
    return str ? Narrow(KVCText(str)) : "(NULL)";
}

// Runs `work` with its first allocation failing, then with its second, and so on, and `check` after each, until one run
// needed fewer; that one is checked too, with `whole` set.
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
        EXPECT_TRUE(!whole || failAt >= 3) << "no allocation was seen to fail";
    }
    EXPECT_TRUE(whole) << "the work never came through";
}

// The caller's own header lines of a request in the journal, without those that the transport adds.
Strings CallerLines(const nlohmann::json& request);
// The value of one header line; "" when it is missing.
std::string HeaderOf(const nlohmann::json& request, const std::string& name);

// Compares the caller's lines; a fresh "client-request-id" in the form of a UUID follows them.
void ExpectLinesAndId(const nlohmann::json& request, Strings lines);

class ClientTest : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    void SetLogging(DWORD level);
    ClientPtr NewClient(const Identity& identity = {});
    // By a call of its own.
    int SignIn(const ClientPtr& client);
    // A GET of the vault's keys, by a call that has a token, or by one of its own on the token that the client holds.
    int ListKeys(KVC* call);
    int ListKeys(const ClientPtr& client);
    // Requests of the journal whose target contains `part`.
    std::vector<nlohmann::json> Requests(const std::string& part);
    // What was posted, without repetitions: target and body.
    std::set<std::string> Posts();
    // Answers that stand ready for the requests whose target has `path`, one after the other.
    void Answer(const std::string& path, int status, const nlohmann::json& body, int times = 1, int skip = 0);
    size_t LinesWith(const std::string& text) const;
    // Further connect-to entries beside the simulator's own, e.g. ":8123:127.0.0.1:8080".
    void AlsoConnect(const std::string& entry);
    std::string ConnectTarget(const std::string& from) const;  // what ":80:" is redirected to

    Simulator& sim = Simulator::Get();
    TestRoot root;
    TestClock clock;
    const std::string connectTo = Environment("KELVARO_CONNECT_TO");

  private:
    static std::string Environment(const std::string& name);
};
