// Certificates: the request, the time of waiting, the merge, new versions.
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/key_material.h"
#include "vaultsim/x509.h"

class CertificateTest : public SimTest {
  protected:
    static Reply Create(const std::string& name, const Json& keyProperties, const Json& tags = Json::object(),
                        const std::string& subject = "CN=CertificateDummySubject")
    {
        const Json policy = {{"key_props", keyProperties},
                             {"x509_props", {{"subject", subject}, {"validity_months", 600}}}};
        return Vault("POST", "/certificates/" + name + "/create", {{"policy", policy}, {"tags", tags}});
    }
    static Reply Merge(const std::string& name, const std::string& der)
    {
        return Vault("POST", "/certificates/" + name + "/pending/merge", {{"x5c", {ToBase64(der)}}});
    }

    static vaultsim::X509ReqPtr Request(const Reply& created)
    {
        const std::string der = FromBase64(created.json().value("csr", "")).value_or("");
        const auto* at = reinterpret_cast<const unsigned char*>(der.data());
        return vaultsim::X509ReqPtr(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
    }
    // A leaf for the request, signed by a stranger.
    static std::string Leaf(const Reply& created, int64_t notAfter = 4000000000)
    {
        const vaultsim::Pkey stranger = vaultsim::GenerateEc(*vaultsim::FindCurve("P-256"));
        const vaultsim::X509ReqPtr request = Request(created);
        vaultsim::CertificateSpec spec;
        spec.subject = "CN=Leaf";
        spec.notAfter = notAfter;
        spec.publicKey = X509_REQ_get0_pubkey(request.get());
        spec.signer = stranger.get();
        return vaultsim::ToDer(vaultsim::MakeCertificate(spec).get());
    }
    static const Json kCurve;
    static const Json kRsa;
};
const Json CertificateTest::kCurve = {
    {"kty", "EC"}, {"crv", "P-256"}, {"key_size", 256}, {"exportable", false}, {"reuse_key", true}};
const Json CertificateTest::kRsa = {{"kty", "RSA-HSM"}, {"key_size", 3072}, {"exportable", false}};

TEST_F(CertificateTest, AnswersHaveTheShapesOfTheService)
{
    const Reply created = Vault("POST", "/certificates/a/create", Sample("certificate-create-request"));
    EXPECT_EQ(created.status, 202);
    EXPECT_EQ(Shape(created.json()), Shape(Sample("certificate-create")));
    EXPECT_NE(created.headers.find("Location"), created.headers.end());
    EXPECT_EQ(created.json()["status"], "inProgress");
    const Reply merged = Merge("a", Leaf(created));
    EXPECT_EQ(merged.status, 201);
    const Json sample = Sample("certificate-merge");
    EXPECT_EQ(Shape(merged.json()), Shape(sample));
    for (const char* member : {"key_props", "secret_props", "x509_props", "lifetime_actions", "issuer"})
        EXPECT_EQ(merged.json()["policy"][member], sample["policy"][member]) << member;
    EXPECT_EQ(merged.json()["policy"]["attributes"]["enabled"], true);
    EXPECT_EQ(Get("/keys/a").json()["key"]["key_ops"], Json({"sign", "verify", "wrapKey", "unwrapKey"}));
}

TEST_F(CertificateTest, TheRequestIsSignedByTheNewKeyAndCarriesThePolicy)
{
    for (const auto& [key, type] : {std::pair(kRsa, EVP_PKEY_RSA), {kCurve, EVP_PKEY_EC}}) {
        const vaultsim::X509ReqPtr request =
            Request(Create(key["kty"], key, Json::object(), "CN=web01, O=\"Acme, Inc.\", C=US"));
        ASSERT_TRUE(request);
        EVP_PKEY* publicKey = X509_REQ_get0_pubkey(request.get());
        EXPECT_EQ(X509_REQ_verify(request.get(), publicKey), 1);
        EXPECT_EQ(EVP_PKEY_get_base_id(publicKey), type);
        char name[100];
        // The service writes the elements last first.
        EXPECT_STREQ(X509_NAME_oneline(X509_REQ_get_subject_name(request.get()), name, sizeof name),
                     "/C=US/O=Acme, Inc./CN=web01");
        STACK_OF(X509_EXTENSION)* extensions = X509_REQ_get_extensions(request.get());
        EXPECT_EQ(sk_X509_EXTENSION_num(extensions), 3);
        sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
    }
}

TEST_F(CertificateTest, UntilTheMergeThereIsNoKeyAndNoSecondCreation)
{
    const Reply created = Create("a", kCurve, {{"AlgID", "ECDSA_P256"}});
    const Json waiting = Get("/certificates/a").json();
    EXPECT_EQ(waiting["attributes"]["enabled"], false);
    EXPECT_EQ(waiting["pending"]["id"], "https://contoso-keys.vault.azure.net/certificates/a/pending");
    for (const char* member : {"kid", "cer", "x5t"})
        EXPECT_FALSE(waiting.contains(member)) << member;
    EXPECT_EQ(Get("/keys/a").status, 404);
    EXPECT_EQ(Create("a", kCurve).status, 409);
    const Json item = Get("/certificates").json()["value"][0];
    EXPECT_FALSE(item.contains("x5t"));
    EXPECT_EQ(item["attributes"]["enabled"], false);

    EXPECT_EQ(Merge("a", Leaf(created)).status, 201);
    const Json key = Get("/keys/a").json();
    EXPECT_EQ(key["tags"]["AlgID"], "ECDSA_P256");
    EXPECT_EQ(key["managed"], true);
    const Json certificate = Get("/certificates/a").json();
    EXPECT_EQ(certificate["attributes"]["enabled"], true);
    EXPECT_EQ(certificate["kid"], key["key"]["kid"]);
    EXPECT_EQ(certificate["x5t"], Get("/certificates").json()["value"][0]["x5t"]);
    EXPECT_EQ(Get("/certificates/a/pending").json()["status"], "completed");
    EXPECT_EQ(Merge("a", Leaf(created)).status, 404);

    // An abandoned request leaves the name free for the next.
    const Reply abandoned = Create("b", kCurve);
    EXPECT_EQ(Vault("DELETE", "/certificates/b/pending").status, 200);
    EXPECT_FALSE(Get("/certificates/b").json().contains("pending"));
    EXPECT_EQ(Merge("b", Leaf(abandoned)).status, 404);
    EXPECT_EQ(Create("b", kCurve).status, 202);
}

TEST_F(CertificateTest, AMergeWantsTheKeyOfTheRequest)
{
    const Reply created = Create("a", kCurve);
    const Reply other = Create("b", kCurve);
    const Reply wrong = Merge("a", Leaf(other));
    EXPECT_EQ(wrong.status, 400);
    EXPECT_EQ(wrong.json(), Sample("error-400-merge-mismatch"));
    EXPECT_EQ(Merge("a", "no certificate").status, 400);
    EXPECT_EQ(Merge("pending-cert", Leaf(created)).json(), Sample("error-404-pending-gone"));
    // Some clients encode twice; a leaf that has expired is taken all the same.
    EXPECT_EQ(Merge("a", ToBase64(Leaf(created, 1000))).status, 201);
    // So is one whose signed part names another signature algorithm than its end.
    std::string odd = Leaf(other);
    odd[odd.find("\x2a\x86\x48\xce\x3d\x04\x03\x02") + 7] = 3;
    EXPECT_EQ(Merge("b", odd).status, 201);
}

TEST_F(CertificateTest, AReusedKeyStaysWithoutAKeyTypeInThePolicy)
{
    const std::string der = Leaf(Create("a", kRsa));
    Merge("a", der);
    const Json before = Get("/keys/a").json()["key"];
    const Reply created = Create("a", {{"exportable", false}, {"reuse_key", true}});
    ASSERT_EQ(created.status, 202) << created.body;
    // The older version is current while the next one waits.
    EXPECT_EQ(Get("/certificates/a").json()["cer"], ToBase64(der));
    EXPECT_EQ(Get("/keys/a").json()["key"], before);
    EXPECT_EQ(Merge("a", Leaf(created)).status, 201);
    const Json after = Get("/keys/a").json()["key"];
    EXPECT_EQ(after["n"], before["n"]);
    EXPECT_EQ(after["kty"], "RSA-HSM");
    EXPECT_NE(after["kid"], before["kid"]);
    EXPECT_NE(Get("/certificates/a").json()["cer"], ToBase64(der));

    const Reply fresh = Create("a", {{"exportable", false}, {"kty", "RSA"}});
    EXPECT_EQ(Merge("a", Leaf(fresh)).status, 201);
    EXPECT_NE(Get("/keys/a").json()["key"]["n"], before["n"]);
}

TEST_F(CertificateTest, SeededCertificatesBringTheirKey)
{
    const vaultsim::Pkey key = vaultsim::GenerateEc(*vaultsim::FindCurve("P-384"));
    vaultsim::CertificateSpec spec;
    spec.subject = "CN=given";
    spec.notAfter = 4000000000;
    spec.publicKey = spec.signer = key.get();
    const vaultsim::X509Ptr leaf = vaultsim::MakeCertificate(spec);
    AddCertificate(
        {{"name", "given"}, {"pem", vaultsim::PrivatePem(key.get()) + vaultsim::ToPem(leaf.get())}, {"kty", "EC"}});
    EXPECT_EQ(Get("/certificates/given").json()["cer"], ToBase64(vaultsim::ToDer(leaf.get())));
    const Json sign = {{"alg", "ES384"}, {"value", ToBase64(std::string(48, 'd'))}};
    EXPECT_EQ(Vault("POST", "/keys/given//sign", sign).status, 200);
    const Json state = Control("GET", "/vaults/contoso-keys");
    EXPECT_EQ(state["certificates"][0]["name"], "given");
    EXPECT_EQ(state["keys"][0]["managed"], true);
}
