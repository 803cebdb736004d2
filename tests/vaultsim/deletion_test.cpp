// Deletion, the deleted areas, purge and recovery.
#include "tests/vaultsim/sim_test.h"

namespace {

struct Kind {
    const char* collection;
    const char* area;
    Json create;
    int created;
    const char* missing;
};

const Kind kKinds[] = {
    {"/keys/", "/deletedkeys/", {{"kty", "EC"}}, 200, "KeyNotFound"},
    {"/certificates/",
     "/deletedcertificates/",
     {{"policy", {{"key_props", {{"kty", "EC"}}}, {"x509_props", {{"subject", "CN=x"}}}}}},
     202,
     "CertificateNotFound"},
};

}  // namespace

class DeletionTest : public SimTest {
  protected:
    static Reply Call(const char* method, const std::string& path, const Json& body = nullptr)
    {
        return Vault(method, path + "?api-version=7.0", body);
    }
    static void Seed()
    {
        Control("POST", "/vaults/contoso-keys/keys", {{"name", "k"}, {"kty", "EC"}});
        Control("POST", "/vaults/contoso-keys/certificates", {{"name", "c"}, {"kty", "EC"}});
    }
    static std::string NameOf(const Kind& kind) { return kind.collection[1] == 'k' ? "k" : "c"; }
};

TEST_F(DeletionTest, ADeletedObjectGoesThroughItsStates)
{
    for (const Kind& kind : kKinds) {
        SCOPED_TRACE(kind.collection);
        Sim().Reset();
        Seed();
        Control("PUT", "/deletion", {{"beingDeletedAnswers", 4}});
        const std::string live = kind.collection + NameOf(kind);
        const std::string deleted = kind.area + NameOf(kind);
        const std::string before = Call("GET", live).body;
        const Reply gone = Call("DELETE", live);
        EXPECT_EQ(gone.status, 200);
        EXPECT_EQ(gone.json()["recoveryId"], "https://contoso-keys.vault.azure.net" + deleted);
        EXPECT_GT(gone.json()["scheduledPurgeDate"], gone.json()["deletedDate"]);
        EXPECT_EQ(Call("DELETE", live).Code(), kind.missing);

        // Four answers while it is being deleted.
        EXPECT_EQ(Call("GET", deleted).Code(), kind.missing);
        EXPECT_EQ(Call("DELETE", deleted).Inner(), "ObjectIsBeingDeleted");
        EXPECT_EQ(Call("POST", live + "/create", kind.create).Inner(), "ObjectIsBeingDeleted");
        EXPECT_EQ(Call("POST", deleted + "/recover", Json::object()).Inner(), "ObjectIsBeingDeleted");

        EXPECT_EQ(Call("GET", deleted).json()["deletedDate"], gone.json()["deletedDate"]);
        EXPECT_EQ(Call("POST", live + "/create", kind.create).Inner(), "ObjectIsDeletedButRecoverable");
        EXPECT_EQ(Call("POST", deleted + "/recover", Json::object()).status, 200);
        EXPECT_EQ(Call("GET", live).body, before);
        EXPECT_EQ(Call("GET", deleted).status, 404);

        Control("PUT", "/deletion", {{"beingDeletedAnswers", 0}});
        Call("DELETE", live);
        const Reply purged = Call("DELETE", deleted);
        EXPECT_EQ(purged.status, 204);
        EXPECT_EQ(purged.body, "");
        EXPECT_EQ(Call("DELETE", deleted).Code(), kind.missing);
        EXPECT_EQ(Call("POST", live + "/create", kind.create).status, kind.created);
    }
}

TEST_F(DeletionTest, TheKeyOfACertificateGoesAndComesWithIt)
{
    Seed();
    EXPECT_EQ(Call("DELETE", "/keys/c").status, 403);
    const std::string key = Call("GET", "/keys/c").body;
    Call("DELETE", "/certificates/c");
    EXPECT_EQ(Call("GET", "/keys/c").status, 404);
    EXPECT_EQ(Call("POST", "/keys/c/create", {{"kty", "EC"}}).Inner(), "ObjectIsDeletedButRecoverable");
    Call("POST", "/deletedcertificates/c/recover", Json::object());
    EXPECT_EQ(Call("GET", "/keys/c").body, key);

    const Json state = Control("GET", "/vaults/contoso-keys");
    EXPECT_TRUE(state["deletedCertificates"].empty());
    EXPECT_EQ(state["keys"].size(), 2u);
}

TEST_F(DeletionTest, ConflictsAreToldInTheServicesWords)
{
    Control("POST", "/vaults/contoso-keys/certificates", {{"name", "hotsqa"}, {"kty", "EC"}});
    Call("DELETE", "/certificates/hotsqa");
    EXPECT_EQ(Call("POST", "/certificates/hotsqa/create", kKinds[1].create).json(),
              Sample(VAULTSIM_SAMPLES "/error-409-certificate-deleted.json"));
    Seed();
    Control("PUT", "/deletion", {{"beingDeletedAnswers", 1}});
    Call("DELETE", "/keys/k");
    EXPECT_EQ(Call("DELETE", "/deletedkeys/k").json(), Sample(VAULTSIM_SAMPLES "/error-409-purge.json"));
    EXPECT_EQ(Call("GET", "/deletedkeys").json()["value"][0]["recoveryId"],
              "https://contoso-keys.vault.azure.net/deletedkeys/k");
}
