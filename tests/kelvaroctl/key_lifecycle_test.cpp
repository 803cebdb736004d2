// Keys made and deleted by an administrator, and by a program that cannot be asked.
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

class KeyLifecycleCtlTest : public CtlTest {
  protected:
    json Held(const char* area) { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault)[area]; }
    // Creates an RSA key and looks at the answer. certificate: whether it is to be one's key.
    void Create(const std::string& name, bool certificate)
    {
        json made = CtlJson({"keys", "create", name, "--alg", "RSA", "--length", "3072"});
        EXPECT_EQ(name, made["name"]);
        EXPECT_EQ("RSA 3072", made["key"]);
        EXPECT_EQ(certificate, made["certificate"]);
        EXPECT_EQ(IndependentKey(sim.PublicKeyPem(Simulator::kVault, name)).Fingerprint(), made["fingerprint"]);
        EXPECT_EQ(certificate ? 1u : 0u, Held("certificates").size());
    }
};

TEST_F(KeyLifecycleCtlTest, CreatesPlainKeys)
{
    EXPECT_EQ("no keys\n", Out({"keys", "list"}));
    Create("plain", false);
    const std::string out = Out({"keys", "create", "p521", "--alg", "ecdsa_p521"});
    EXPECT_EQ(0u, out.rfind("'p521' was created: P-521, SHA-256 ", 0)) << out;
    EXPECT_EQ("RSA 2048", CtlJson({"keys", "create", "plain", "--alg", "RSA", "--overwrite"})["key"]);
    EXPECT_EQ(2u, Held("keys")[1]["versions"].size());
}

TEST_F(KeyLifecycleCtlTest, CreatesKeysOfCertificates)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    Create("with-certificate", true);
}

TEST_F(KeyLifecycleCtlTest, DeletesWhenItIsToldTo)
{
    const auto add = [this](const char* area, const char* name) {
        sim.Control("POST", std::string("/vaults/") + Simulator::kVault + area,
                    {{"name", name}, {"kty", "EC"}, {"crv", "P-256"}});
    };
    add("/keys", "p256");
    const json refused = CtlJson({"keys", "delete", "p256"}, 2)["error"];
    EXPECT_NE(std::string::npos, refused["message"].get<std::string>().find("there is no terminal: add --yes"));
    EXPECT_TRUE(sim.Journal().empty()) << "nothing was asked of the vault";

    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 1);
    EXPECT_EQ("'p256' was deleted\n", Out({"keys", "delete", "p256", "--yes"}));
    EXPECT_EQ(json{"p256"}, Held("deletedKeys"));
    EXPECT_EQ("NTE_NOT_FOUND", CtlJson({"keys", "delete", "p256", "--yes"}, 5)["error"]["code"]);

    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 0);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    add("/certificates", "web");
    const json deleted = CtlJson({"keys", "delete", "web", "--yes"});
    EXPECT_EQ((json{{"name", "web"}, {"scope", "machine"}, {"deleted", true}, {"purgeRequested", true}}), deleted);
    EXPECT_TRUE(Held("certificates").empty() && Held("deletedCertificates").empty() && Held("keys").empty());

    add("/keys", "plain");
    const json error = CtlJson({"keys", "delete", "plain", "--yes"}, 6)["error"];
    EXPECT_NE(std::string::npos, error["message"].get<std::string>().find("CertificatesOrKeys")) << error;
}

}  // namespace
