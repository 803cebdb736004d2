// Deletion, the deleted areas, purge and recovery.
#include "tests/vaultsim/sim_test.h"

using DeletionTest = SimTest;

TEST_F(DeletionTest, ADeletedObjectGoesThroughItsStates)
{
    const struct {
        const char* collection;
        const char* area;
        Json create;
        int created;
        const char* missing;
    } rows[] = {
        {"/keys/x", "/deletedkeys/x", {{"kty", "EC"}}, 200, "404 KeyNotFound"},
        {"/certificates/x",
         "/deletedcertificates/x",
         {{"policy", {{"key_props", {{"kty", "EC"}}}, {"x509_props", {{"subject", "CN=x"}}}}}},
         202,
         "404 CertificateNotFound"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.collection);
        Sim().Reset();
        if (row.created == 200)
            AddKey({{"name", "x"}, {"kty", "EC"}});
        else
            AddCertificate({{"name", "x"}, {"kty", "EC"}});
        Control("PUT", "/deletion", {{"beingDeletedAnswers", 4}});
        const std::string live = row.collection;
        const std::string deleted = row.area;
        const auto create = [&] { return Vault("POST", live + "/create", row.create).Outcome(); };
        const auto recover = [&] { return Vault("POST", deleted + "/recover", Json::object()).Outcome(); };
        const std::string before = Get(live).body;
        const Reply gone = Vault("DELETE", live);
        EXPECT_EQ(gone.status, 200);
        EXPECT_EQ(gone.json()["recoveryId"], "https://contoso-keys.vault.azure.net" + deleted);
        EXPECT_GT(gone.json()["scheduledPurgeDate"], gone.json()["deletedDate"]);
        EXPECT_EQ(Vault("DELETE", live).Outcome(), row.missing);

        // Four answers while it is being deleted.
        const std::string conflict = "409 Conflict ObjectIsBeingDeleted";
        EXPECT_EQ(Get(deleted).Outcome(), row.missing);
        EXPECT_EQ(Vault("DELETE", deleted).Outcome(), conflict);
        EXPECT_EQ(create(), conflict);
        EXPECT_EQ(recover(), conflict);

        EXPECT_EQ(Get(deleted).json()["deletedDate"], gone.json()["deletedDate"]);
        EXPECT_EQ(create(), "409 Conflict ObjectIsDeletedButRecoverable");
        EXPECT_EQ(recover(), "200");
        EXPECT_EQ(Get(live).body, before);
        EXPECT_EQ(Get(deleted).status, 404);

        Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        Vault("DELETE", live);
        const Reply purged = Vault("DELETE", deleted);
        EXPECT_EQ(purged.status, 204);
        EXPECT_EQ(purged.body, "");
        EXPECT_EQ(Vault("DELETE", deleted).Outcome(), row.missing);
        EXPECT_EQ(create(), std::to_string(row.created));
    }
}

TEST_F(DeletionTest, TheKeyOfACertificateGoesAndComesWithIt)
{
    AddKey({{"name", "k"}, {"kty", "EC"}});
    AddCertificate({{"name", "hotsqa"}, {"kty", "EC"}});
    EXPECT_EQ(Vault("DELETE", "/keys/hotsqa").status, 403);
    const std::string key = Get("/keys/hotsqa").body;
    Vault("DELETE", "/certificates/hotsqa");
    EXPECT_EQ(Get("/keys/hotsqa").status, 404);
    EXPECT_EQ(Vault("POST", "/keys/hotsqa/create", {{"kty", "EC"}}).Outcome(),
              "409 Conflict ObjectIsDeletedButRecoverable");
    const Json policy = {{"policy", {{"x509_props", {{"subject", "CN=x"}}}}}};
    EXPECT_EQ(Vault("POST", "/certificates/hotsqa/create", policy).json(), Sample("error-409-certificate-deleted"));
    Vault("POST", "/deletedcertificates/hotsqa/recover", Json::object());
    EXPECT_EQ(Get("/keys/hotsqa").body, key);
    const Json state = Control("GET", "/vaults/contoso-keys");
    EXPECT_TRUE(state["deletedCertificates"].empty());
    EXPECT_EQ(state["keys"].size(), 2u);

    Control("PUT", "/deletion", {{"beingDeletedAnswers", 1}});
    Vault("DELETE", "/keys/k");
    EXPECT_EQ(Vault("DELETE", "/deletedkeys/k").json(), Sample("error-409-purge"));
    EXPECT_EQ(Get("/deletedkeys").json()["value"][0]["recoveryId"],
              "https://contoso-keys.vault.azure.net/deletedkeys/k");
}
