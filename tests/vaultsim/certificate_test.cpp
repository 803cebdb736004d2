// Certificates: the request, what is pending, the merge, new versions.
#include "tests/vaultsim/sim_test.h"
#include "vaultsim/key_material.h"
#include "vaultsim/x509.h"

class CertificateTest : public SimTest {
  protected:
    Reply Create(const std::string& name, const std::string& keyProperties, const std::string& subject = "CN=Any")
    {
        const json policy = {{"key_props", json::parse(keyProperties)}, {"x509_props", {{"subject", subject}}}};
        return Vault("POST", "/certificates/" + name + "/create",
                     json{{"policy", policy}, {"tags", {{"AlgID", "ECDSA_P256"}}}}.dump());
    }
    Reply Merge(const std::string& name, const std::string& der)
    {
        return Vault("POST", "/certificates/" + name + "/pending/merge", "{\"x5c\":[\"" + ToBase64(der) + "\"]}");
    }

    static vaultsim::X509ReqPtr Request(const Reply& created)
    {
        const std::string der = FromBase64(created.Json().value("csr", "")).value_or("");
        const auto* at = reinterpret_cast<const unsigned char*>(der.data());
        return vaultsim::X509ReqPtr(d2i_X509_REQ(nullptr, &at, static_cast<long>(der.size())));
    }
    // A leaf for the request, signed by an unknown authority.
    static std::string Leaf(const Reply& created, int64_t notAfter = 4000000000)
    {
        const vaultsim::Pkey unknown = vaultsim::GenerateEc(*vaultsim::FindCurve("P-256"));
        const vaultsim::X509ReqPtr request = Request(created);
        vaultsim::CertificateSpec spec;
        spec.subject = "CN=Leaf";
        spec.notAfter = notAfter;
        spec.publicKey = X509_REQ_get0_pubkey(request.get());
        spec.signer = unknown.get();
        return vaultsim::ToDer(vaultsim::MakeCertificate(spec).get());
    }
    static constexpr char kCurve[] = R"({"kty":"EC-HSM","crv":"P-256","exportable":false})";
};

TEST_F(CertificateTest, AnswersHaveTheShapesOfTheService)
{
    const Reply created = Vault("POST", "/certificates/a/create", ReadServiceSample("certificate-create-request"));
    EXPECT_EQ(created.Outcome(), "202");
    EXPECT_EQ(Shape(created.body), Shape(ReadServiceSample("certificate-create")));
    EXPECT_NE(created.Field("Location"), "");
    const Reply merged = Merge("a", Leaf(created));
    EXPECT_EQ(merged.Outcome(), "201");
    const json policy = merged.Json()["policy"];
    const json sample = Sample("certificate-merge")["policy"];
    EXPECT_EQ(Shape(merged.body), Shape(ReadServiceSample("certificate-merge")));
    for (const char* member : {"key_props", "secret_props", "x509_props", "lifetime_actions", "issuer"})
        EXPECT_EQ(policy[member], sample[member]) << member;
    EXPECT_EQ(Get("/keys/a").Json()["key"]["key_ops"], json::parse(R"(["sign","verify","wrapKey","unwrapKey"])"));

    // The new key signs the request, which carries what the policy says.
    const Reply second = Create("b", kCurve, "CN=web01, O=\"Acme, Inc.\", C=US");
    for (const auto& [reply, type] : {std::pair(&created, EVP_PKEY_RSA), {&second, EVP_PKEY_EC}}) {
        const vaultsim::X509ReqPtr request = Request(*reply);
        ASSERT_TRUE(request);
        EVP_PKEY* publicKey = X509_REQ_get0_pubkey(request.get());
        EXPECT_EQ(X509_REQ_verify(request.get(), publicKey), 1);
        EXPECT_EQ(EVP_PKEY_get_base_id(publicKey), type);
        STACK_OF(X509_EXTENSION)* extensions = X509_REQ_get_extensions(request.get());
        EXPECT_EQ(sk_X509_EXTENSION_num(extensions), 3);
        sk_X509_EXTENSION_pop_free(extensions, X509_EXTENSION_free);
    }
    char name[100];
    // The service writes the elements last first.
    EXPECT_STREQ(X509_NAME_oneline(X509_REQ_get_subject_name(Request(second).get()), name, sizeof name),
                 "/C=US/O=Acme, Inc./CN=web01");
}

TEST_F(CertificateTest, UntilTheMergeThereIsNoKeyAndNoSecondCreation)
{
    const Reply created = Create("a", kCurve);
    const json waiting = Get("/certificates/a").Json();
    EXPECT_EQ(waiting["attributes"]["enabled"], false);
    EXPECT_EQ(waiting["pending"]["id"], "https://contoso-keys.vault.azure.net/certificates/a/pending");
    for (const char* member : {"kid", "cer", "x5t"})
        EXPECT_FALSE(waiting.contains(member)) << member;
    EXPECT_EQ(Get("/keys/a").status, 404u);
    EXPECT_EQ(Create("a", kCurve).status, 409u);
    EXPECT_FALSE(Get("/certificates").Json()["value"][0].contains("x5t"));

    EXPECT_EQ(Merge("a", Leaf(created)).status, 201u);
    const json key = Get("/keys/a").Json();
    EXPECT_EQ(key["tags"]["AlgID"], "ECDSA_P256");
    EXPECT_EQ(key["managed"], true);
    const json certificate = Get("/certificates/a").Json();
    EXPECT_EQ(certificate["attributes"]["exp"], 4000000000);
    EXPECT_EQ(certificate["kid"], key["key"]["kid"]);
    EXPECT_EQ(certificate["x5t"], Get("/certificates").Json()["value"][0]["x5t"]);
    EXPECT_EQ(Get("/certificates/a/pending").Json()["status"], "completed");
    EXPECT_EQ(Merge("a", Leaf(created)).status, 404u);

    // An abandoned request leaves the name free for the next.
    const Reply abandoned = Create("b", kCurve);
    EXPECT_EQ(Vault("DELETE", "/certificates/b/pending").status, 200u);
    EXPECT_FALSE(Get("/certificates/b").Json().contains("pending"));
    EXPECT_EQ(Merge("b", Leaf(abandoned)).status, 404u);
    EXPECT_EQ(Create("b", kCurve).status, 202u);
}

TEST_F(CertificateTest, AMergeNeedsTheKeyOfTheRequest)
{
    const Reply created = Create("a", kCurve);
    const Reply other = Create("b", kCurve);
    const Reply wrong = Merge("a", Leaf(other));
    EXPECT_EQ(wrong.status, 400u);
    EXPECT_EQ(wrong.body, ReadServiceSample("error-400-merge-mismatch"));
    EXPECT_EQ(Merge("pending-cert", Leaf(created)).body, ReadServiceSample("error-404-pending-gone"));
    // Some clients encode twice, and the service accepts a leaf that has expired.
    EXPECT_EQ(Merge("a", ToBase64(Leaf(created, 1000))).status, 201u);
    // It also accepts one whose signed part names another signature algorithm than its end.
    std::string odd = Leaf(other);
    odd[odd.find("\x2a\x86\x48\xce\x3d\x04\x03\x02") + 7] = 3;
    EXPECT_EQ(Merge("b", odd).status, 201u);
}
