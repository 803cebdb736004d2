// Faults as far as the stories of the module don't meet them.
#include "tests/vaultsim/sim_test.h"

class FaultTest : public SimTest {
  protected:
    static void Fault(const Json& fault) { Control("POST", "/faults", fault); }
    static Json LastEntry() { return Control("GET", "/journal")["requests"].back(); }
};

TEST_F(FaultTest, StatusFaultsAreTakenInOrderAndCountedDown)
{
    Fault({{"action", "status"}, {"status", 429}, {"path", "/keys"}, {"skip", 1}, {"times", 2}});
    Fault({{"action", "status"}, {"status", 503}, {"method", "DELETE"}, {"times", -1}});
    Fault({{"action", "status"}, {"status", 500}, {"path", "/b/"}});
    Fault({{"action", "status"}, {"status", 500}, {"perform", true}, {"path", "/c/"}});
    const Json key = {{"kty", "EC"}};
    const struct {
        const char* method;
        const char* path;
        Json body;
        int status;
    } rows[] = {
        {"GET", "/keys", nullptr, 200},       {"GET", "/keys", nullptr, 429},      {"GET", "/keys", nullptr, 429},
        {"GET", "/keys", nullptr, 200},       {"DELETE", "/keys/a", nullptr, 503}, {"DELETE", "/keys/a", nullptr, 503},
        {"POST", "/keys/b/create", key, 500}, {"GET", "/keys/b", nullptr, 404},    {"POST", "/keys/c/create", key, 500},
        {"GET", "/keys/c", nullptr, 200},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Vault(row.method, row.path, row.body).status, row.status) << row.path;
    Control("DELETE", "/faults");
    EXPECT_EQ(Vault("DELETE", "/keys/a").status, 404);

    Fault({{"action", "status"}, {"status", 429}});
    EXPECT_EQ(Get("/keys").json(), Sample("error-429-throttled"));
    const Json entry = LastEntry();
    EXPECT_EQ(entry["fault"], "status");
    EXPECT_EQ(entry["host"], "contoso-keys.vault.azure.net");
    EXPECT_EQ(entry["target"], "/keys?api-version=7.0");
    EXPECT_EQ(entry["method"], "GET");
    Vault("POST", "/keys/d/create", key);
    EXPECT_EQ(LastEntry()["body"], key.dump());
    EXPECT_EQ(Control("GET", "/journal?since=" + std::to_string(entry["seq"].get<int>()))["requests"].size(), 1u);
    Control("DELETE", "/journal");
    EXPECT_EQ(Control("GET", "/journal")["requests"].size(), 0u);
}

TEST_F(FaultTest, ConnectionsWithoutAnAnswer)
{
    Token();
    Control("DELETE", "/counts");
    Control("PUT", "/certificate", {{"mode", "not-yet-valid"}});
    EXPECT_EQ(Get("/keys").status, 0);
    EXPECT_EQ(Control("GET", "/counts")["requests"], 0);
    Control("PUT", "/certificate", {{"mode", "good"}});
    Fault({{"action", "reset-before"}});
    EXPECT_EQ(Get("/keys").status, 0);
    EXPECT_EQ(LastEntry()["status"], 0);
    EXPECT_EQ(Get("/keys").status, 200);
    const Json counts = Control("GET", "/counts");
    EXPECT_EQ(counts["requests"], 2);
    EXPECT_GE(counts["tls_handshakes"].get<int>(), 2);
}
