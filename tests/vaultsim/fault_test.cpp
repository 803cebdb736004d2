// The journal, and faults as far as the stories of the module don't meet them.
#include "tests/vaultsim/sim_test.h"

class FaultTest : public SimTest {
  protected:
    static void Fault(const Json& fault) { Control("POST", "/faults", fault); }
    static Reply List() { return Vault("GET", "/keys?api-version=7.0"); }
};

TEST_F(FaultTest, TheJournalHasRequestsAsTheyCame)
{
    const std::string line =
        "GET /metadata/identity/oauth2/token?api-version=2018-02-01&resource=https://vault.azure.net HTTP/1.1";
    Raw(Port("http"),
        line + "\r\nHost: 169.254.169.254\r\nMetadata: True\r\nX-Two:  blanks \r\nConnection: close\r\n\r\n");
    Vault("POST", "/keys/a/create?api-version=7.0", {{"kty", "EC"}});
    const Json requests = Control("GET", "/journal")["requests"];
    const Json& first = requests.front();
    EXPECT_EQ(first["listener"], "http");
    EXPECT_EQ(first["requestLine"], line);
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

TEST_F(FaultTest, TheOperationOfAReplacedAnswerIsCarriedOutOnDemand)
{
    const Json key = {{"kty", "EC"}};
    Fault({{"action", "status"}, {"status", 500}, {"path", "/a/"}});
    Fault({{"action", "status"}, {"status", 500}, {"perform", true}, {"path", "/b/"}});
    for (const auto& [name, found] : {std::pair<std::string, int>{"a", 404}, {"b", 200}}) {
        EXPECT_EQ(Vault("POST", "/keys/" + name + "/create?api-version=7.0", key).status, 500);
        EXPECT_EQ(Vault("GET", "/keys/" + name + "?api-version=7.0").status, found);
    }
}

TEST_F(FaultTest, ConnectionsWithoutAnAnswer)
{
    Token();
    Control("DELETE", "/counts");
    Control("PUT", "/certificate", {{"mode", "not-yet-valid"}});
    EXPECT_EQ(List().status, 0);
    EXPECT_EQ(Control("GET", "/counts")["requests"], 0);
    Control("PUT", "/certificate", {{"mode", "good"}});
    Fault({{"action", "reset-before"}});
    EXPECT_EQ(List().status, 0);
    EXPECT_EQ(Control("GET", "/journal")["requests"].back()["status"], 0);
    EXPECT_EQ(List().status, 200);
    const Json counts = Control("GET", "/counts");
    EXPECT_EQ(counts["requests"], 2);
    EXPECT_GE(counts["tls_handshakes"].get<int>(), 2);
}
