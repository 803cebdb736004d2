// Deletion, purge and recovery.
#include "tests/common/row.h"
#include "tests/vaultsim/sim_test.h"

using DeletionTest = SimTest;

TEST_F(DeletionTest, ADeletedObjectGoesThroughItsStates)
{
    const Row<std::string, const char*, const char*, const char*> rows[] = {
        {"keys", R"({"kty":"EC"})", "200", "404 KeyNotFound"},
        {"certificates", R"({"policy":{"key_props":{"kty":"EC"},"x509_props":{"subject":"CN=x"}}})", "202",
         "404 CertificateNotFound"},
    };
    for (const auto& [collection, body, created, missing] : rows) {
        SCOPED_TRACE(collection);
        sim.Reset();
        Control("POST", "/vaults/contoso-keys/" + collection, R"({"name":"x","kty":"EC"})");
        Control("PUT", "/deletion", R"({"beingDeletedAnswers":4})");
        const std::string live = "/" + collection + "/x";
        const std::string deleted = "/deleted" + collection + "/x";
        const std::string given = body;
        const auto create = [&] { return Vault("POST", live + "/create", given).Outcome(); };
        const auto recover = [&] { return Vault("POST", deleted + "/recover", "{}").Outcome(); };
        const std::string before = Get(live).body;
        const Reply gone = Vault("DELETE", live);
        EXPECT_EQ(gone.status, 200u);
        EXPECT_EQ(gone.Json()["recoveryId"], "https://contoso-keys.vault.azure.net" + deleted);
        EXPECT_GT(gone.Json()["scheduledPurgeDate"], gone.Json()["deletedDate"]);

        // The next four answers come while it is being deleted.
        const std::string conflict = "409 Conflict ObjectIsBeingDeleted";
        EXPECT_EQ(Get(deleted).Outcome(), missing);
        EXPECT_EQ(Vault("DELETE", deleted).Outcome(), conflict);
        EXPECT_EQ(create(), conflict);
        EXPECT_EQ(recover(), conflict);

        EXPECT_EQ(Get(deleted).Json()["deletedDate"], gone.Json()["deletedDate"]);
        EXPECT_EQ(create(), "409 Conflict ObjectIsDeletedButRecoverable");
        EXPECT_EQ(recover(), "200");
        EXPECT_EQ(Get(live).body, before);
        EXPECT_EQ(Get(deleted).status, 404u);

        Control("PUT", "/deletion", R"({"beingDeletedAnswers":0})");
        Vault("DELETE", live);
        const Reply purged = Vault("DELETE", deleted);
        EXPECT_EQ(purged.status, 204u);
        EXPECT_EQ(purged.body, "");
        EXPECT_EQ(Vault("DELETE", deleted).Outcome(), missing);
        EXPECT_EQ(create(), created);
    }
}

TEST_F(DeletionTest, TheKeyOfACertificateIsDeletedAndRecoveredWithIt)
{
    AddKey(R"({"name":"k","kty":"EC"})");
    AddCertificate(R"({"name":"hotsqa","kty":"EC"})");
    EXPECT_EQ(Vault("DELETE", "/keys/hotsqa").status, 403u);
    const std::string key = Get("/keys/hotsqa").body;
    Vault("DELETE", "/certificates/hotsqa");
    EXPECT_EQ(Get("/keys/hotsqa").status, 404u);
    EXPECT_EQ(Vault("POST", "/keys/hotsqa/create", R"({"kty":"EC"})").Outcome(),
              "409 Conflict ObjectIsDeletedButRecoverable");
    const Reply again = Vault("POST", "/certificates/hotsqa/create", R"({"policy":{"x509_props":{"subject":"CN=x"}}})");
    EXPECT_EQ(again.body, ReadServiceSample("error-409-certificate-deleted"));
    Vault("POST", "/deletedcertificates/hotsqa/recover", "{}");
    EXPECT_EQ(Get("/keys/hotsqa").body, key);
    const json state = Control("GET", "/vaults/contoso-keys");
    EXPECT_TRUE(state["deletedCertificates"].empty());

    Control("PUT", "/deletion", R"({"beingDeletedAnswers":1})");
    Vault("DELETE", "/keys/k");
    EXPECT_EQ(Vault("DELETE", "/deletedkeys/k").body, ReadServiceSample("error-409-purge"));
    EXPECT_EQ(Get("/deletedkeys").Json()["value"][0]["recoveryId"],
              "https://contoso-keys.vault.azure.net/deletedkeys/k");
}
