// Faults that the module's tests don't meet.
#include "tests/common/row.h"
#include "tests/vaultsim/sim_test.h"

class FaultTest : public SimTest {
  protected:
    void Fault(const char* fault) { Control("POST", "/faults", fault); }
    json LastEntry() { return sim.Journal().back(); }
};

TEST_F(FaultTest, StatusFaultsAreAppliedInOrderAndCountedDown)
{
    Fault(R"({"action":"status","status":429,"path":"/keys","skip":1,"times":2})");
    Fault(R"({"action":"status","status":503,"method":"DELETE","times":-1})");
    Fault(R"({"action":"status","status":500,"path":"/b/"})");
    Fault(R"({"action":"status","status":500,"perform":true,"path":"/c/"})");
    const char* const key = R"({"kty":"EC"})";
    const Row<const char*, const char*, DWORD> rows[] = {
        {"GET", "/keys", 200},           {"GET", "/keys", 429},      {"GET", "/keys", 429},
        {"GET", "/keys", 200},           {"DELETE", "/keys/a", 503}, {"DELETE", "/keys/a", 503},
        {"POST", "/keys/b/create", 500}, {"GET", "/keys/b", 404},    {"POST", "/keys/c/create", 500},
        {"GET", "/keys/c", 200},
    };
    for (const auto& [method, path, status] : rows)
        EXPECT_EQ(Vault(method, path, method[0] == 'P' ? key : "").status, status) << path;
    Control("DELETE", "/faults");
    EXPECT_EQ(Vault("DELETE", "/keys/a").status, 404u);

    Fault(R"({"action":"status","status":429})");
    EXPECT_EQ(Get("/keys").body, ReadServiceSample("error-429-throttled"));
    const json entry = LastEntry();
    EXPECT_EQ(entry["fault"], "status");
    EXPECT_EQ(entry["host"], "contoso-keys.vault.azure.net");
    EXPECT_EQ(entry["target"], "/keys?api-version=7.0");
    EXPECT_EQ(entry["method"], "GET");
    Vault("POST", "/keys/d/create", key);
    EXPECT_EQ(LastEntry()["body"], key);
    EXPECT_EQ(Control("GET", "/journal?since=" + entry["seq"].dump())["requests"].size(), 1u);
    sim.ClearJournal();
    EXPECT_TRUE(sim.Journal().empty());
}

TEST_F(FaultTest, ConnectionsWithoutAnAnswer)
{
    Get("/keys");  // signs in
    Control("DELETE", "/counts");
    Control("PUT", "/certificate", R"({"mode":"not-yet-valid"})");
    EXPECT_EQ(Get("/keys").status, 0u);
    EXPECT_EQ(Control("GET", "/counts")["requests"], 0);
    Control("PUT", "/certificate", R"({"mode":"good"})");
    Fault(R"({"action":"reset-before"})");
    EXPECT_EQ(Get("/keys").status, 0u);
    EXPECT_EQ(LastEntry()["status"], 0);
    EXPECT_EQ(Get("/keys").status, 200u);
    const json counts = Control("GET", "/counts");
    EXPECT_EQ(counts["requests"], 2);
    EXPECT_GE(counts.value("tls_handshakes", 0), 2);
}
