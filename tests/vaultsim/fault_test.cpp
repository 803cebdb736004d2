// Faults, listeners and certificates: what really happens on the wire.
#include <thread>

#include "tests/vaultsim/sim_test.h"

namespace {

const std::string kRequest =
    "GET /metadata/identity/oauth2/token?api-version=2018-02-01&resource=https://vault.azure.net HTTP/1.1\r\n"
    "Host: 169.254.169.254\r\nMetadata: True\r\nX-Two:  blanks \r\nConnection: close\r\n\r\n";

size_t BodyOf(const std::string& answer)
{
    return answer.find("\r\n\r\n") + 4;
}

}  // namespace

class FaultTest : public SimTest {
  protected:
    static void Fault(const Json& fault) { Control("POST", "/faults", fault); }
    static std::string Get(bool* reset = nullptr) { return Raw(Port("http"), kRequest, reset); }
    static Reply List() { return Vault("GET", "/keys?api-version=7.0"); }
};

TEST_F(FaultTest, TheJournalHasRequestsAsTheyCame)
{
    Get();
    Vault("POST", "/keys/a/create?api-version=7.0", {{"kty", "EC"}});
    const Json requests = Control("GET", "/journal")["requests"];
    const Json& first = requests.front();
    EXPECT_EQ(first["listener"], "http");
    EXPECT_EQ(first["requestLine"], kRequest.substr(0, kRequest.find("\r\n")));
    EXPECT_EQ(first["headers"],
              Json({"Host: 169.254.169.254", "Metadata: True", "X-Two:  blanks ", "Connection: close"}));
    EXPECT_EQ(first["status"], 200);
    EXPECT_TRUE(first["fault"].is_null());
    const Json& last = requests.back();
    EXPECT_EQ(last["host"], "contoso-keys.vault.azure.net");
    EXPECT_EQ(last["method"], "POST");
    EXPECT_EQ(last["target"], "/keys/a/create?api-version=7.0");
    EXPECT_EQ(last["body"], "{\"kty\":\"EC\"}");
    EXPECT_EQ(Control("GET", "/journal?since=" + std::to_string(last["seq"].get<int>()))["requests"].size(), 0u);
    Control("DELETE", "/journal");
    EXPECT_EQ(Control("GET", "/journal")["requests"].size(), 0u);
}

TEST_F(FaultTest, StatusFaultsAreTakenInOrderAndCountedDown)
{
    Fault({{"action", "status"}, {"status", 429}, {"path", "/keys"}, {"skip", 1}, {"times", 2}});
    Fault({{"action", "status"}, {"status", 503}, {"method", "DELETE"}, {"times", -1}});
    std::vector<int> seen;
    for (int i = 0; i < 4; i++)
        seen.push_back(List().status);
    EXPECT_EQ(seen, (std::vector<int>{200, 429, 429, 200}));
    EXPECT_EQ(Vault("DELETE", "/keys/a?api-version=7.0").status, 503);
    EXPECT_EQ(Vault("DELETE", "/keys/a?api-version=7.0").status, 503);
    Control("DELETE", "/faults");
    EXPECT_EQ(Vault("DELETE", "/keys/a?api-version=7.0").status, 404);

    Fault({{"action", "status"}, {"status", 429}});
    EXPECT_EQ(List().json(), Sample(SERVICE_SAMPLES "/error-429-throttled.json"));
    EXPECT_EQ(LastFault(), "status");
}

TEST_F(FaultTest, AnAnswerMayBeReplacedWithOrWithoutItsOperation)
{
    const Json key = {{"kty", "EC"}};
    Fault({{"action", "status"}, {"status", 418}, {"headers", {"X-Made-Up: yes"}}, {"body", "short"}, {"path", "/a/"}});
    Fault({{"action", "status"}, {"status", 500}, {"perform", true}, {"path", "/b/"}});
    Fault({{"action", "nojson"}, {"path", "/c/"}});
    const Reply made = Vault("POST", "/keys/a/create?api-version=7.0", key);
    EXPECT_EQ(made.status, 418);
    EXPECT_EQ(made.body, "short");
    EXPECT_EQ(made.headers.find("X-Made-Up")->second, "yes");
    EXPECT_EQ(Vault("GET", "/keys/a?api-version=7.0").status, 404);
    EXPECT_EQ(Vault("POST", "/keys/b/create?api-version=7.0", key).status, 500);
    EXPECT_EQ(Vault("GET", "/keys/b?api-version=7.0").status, 200);
    const Reply nojson = Vault("POST", "/keys/c/create?api-version=7.0", key);
    EXPECT_EQ(nojson.status, 200);
    EXPECT_TRUE(nojson.json().is_discarded());
}

TEST_F(FaultTest, ConnectionsBreakWhereTheFaultSays)
{
    const size_t head = BodyOf(Get());
    bool reset = false;
    Fault({{"action", "reset-before"}});
    EXPECT_EQ(Get(&reset), "");
    EXPECT_TRUE(reset);
    EXPECT_EQ(Control("GET", "/journal")["requests"].back()["status"], 0);

    Fault({{"action", "reset-inside"}, {"afterBytes", 10}});
    const std::string broken = Get(&reset);
    EXPECT_TRUE(reset);
    EXPECT_LE(broken.size(), head + 10);

    Fault({{"action", "truncate"}, {"afterBytes", 10}});
    const std::string cut = Get(&reset);
    EXPECT_FALSE(reset);
    EXPECT_EQ(cut.size(), BodyOf(cut) + 10);
    EXPECT_EQ(cut.substr(BodyOf(cut)), "{\"token_ty");

    Fault({{"action", "truncate"}, {"afterBytes", 10}, {"inHead", true}});
    EXPECT_EQ(Get(&reset), "HTTP/1.1 2");

    Fault({{"action", "raw"}, {"raw", "HTTP/1.1 banana\r\n\r\n"}});
    EXPECT_EQ(Get(&reset), "HTTP/1.1 banana\r\n\r\n");
    EXPECT_FALSE(reset);

    Fault({{"action", "drip"}, {"afterBytes", 100}, {"delayMs", 1}});
    const std::string dripped = Get();
    EXPECT_TRUE(Json::parse(dripped.substr(BodyOf(dripped)), nullptr, false).contains("access_token"));
}

TEST_F(FaultTest, ConnectionsBreakUnderTlsToo)
{
    EXPECT_EQ(List().status, 200);
    for (const char* action : {"reset-before", "reset-inside", "truncate", "raw"}) {
        Fault({{"action", action}, {"path", "/keys"}, {"raw", "no answer"}});
        EXPECT_EQ(List().status, 0) << action;
        EXPECT_EQ(LastFault(), action);
    }
    EXPECT_EQ(List().status, 200);
}

TEST_F(FaultTest, AListenerThatIsDownRefusesAndComesBackOnItsPort)
{
    const int port = Port("http");
    Control("PUT", "/listener", {{"name", "http"}, {"mode", "down"}});
    EXPECT_EQ(Get(), "");
    EXPECT_EQ(Control("GET", "/counts")["connections"], 0);
    Control("PUT", "/listener", {{"name", "http"}, {"mode", "up"}});
    EXPECT_EQ(Port("http"), port);
    EXPECT_EQ(Get().substr(0, 12), "HTTP/1.1 200");
}

TEST_F(FaultTest, CertificatesAreRefusedInEveryBadMode)
{
    Token();
    Control("DELETE", "/counts");
    for (const char* mode : {"wrong-host", "unknown-root", "expired", "not-yet-valid"}) {
        Control("PUT", "/certificate", {{"mode", mode}});
        EXPECT_EQ(List().status, 0) << mode;
    }
    EXPECT_EQ(Control("GET", "/counts")["requests"], 0);
    Control("PUT", "/certificate", {{"mode", "good"}});
    EXPECT_EQ(List().status, 200);
}

// With a latency on one connection after another this would take seconds; the service answers them side by side.
TEST_F(FaultTest, ManyConnectionsWaitSideBySide)
{
    Token();
    Control("DELETE", "/counts");
    Control("PUT", "/latency", {{"ms", 50}});
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 64; i++)
        threads.emplace_back([&good] { good += List().status == 200; });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 64);
    EXPECT_EQ(Control("GET", "/counts")["tls_handshakes"], 64);
}
