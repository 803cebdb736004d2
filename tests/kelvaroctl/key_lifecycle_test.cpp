// Keys made and deleted by an administrator, and by a program that cannot be asked.
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/openssl_key.h"

namespace {

using nlohmann::json;

class KeyLifecycleCtlTest : public CtlTest {
  protected:
    json Held(const char* area) { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault)[area]; }
    // Runs `keys delete NAME` on a terminal and answers its question.
    Ran DeleteOnTerminal(const std::string& answer)
    {
        bool echoed = false;
        bool echoAfter = false;
        return RunOnTerminal(KELVAROCTL_PATH, WithModule({"keys", "delete", "p256"}), "Type yes: ", answer + "\n",
                             &echoed, &echoAfter);
    }
};

TEST_F(KeyLifecycleCtlTest, CreatesPlainKeysAndKeysOfCertificates)
{
    for (const bool certificate : {false, true}) {
        root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", certificate ? 0 : 1);
        const std::string name = certificate ? "with-certificate" : "plain";
        const json made = CtlJson({"keys", "create", name, "--alg", "RSA", "--length", "3072"});
        EXPECT_EQ(name, made["name"]);
        EXPECT_EQ("RSA 3072", made["key"]);
        EXPECT_EQ(certificate, made["certificate"]);
        EXPECT_EQ(OpensslKey(sim.PublicKeyPem(Simulator::kVault, name)).Fingerprint(), made["fingerprint"]);
        EXPECT_EQ(certificate ? 1u : 0u, Held("certificates").size());
    }
    const std::string out = Out({"keys", "create", "p521", "--alg", "ECDSA_P521"});
    EXPECT_EQ(0u, out.rfind("'p521' is created as the key of a certificate: P-521, SHA-256 ", 0)) << out;
}

TEST_F(KeyLifecycleCtlTest, WhatACreationRefuses)
{
    sim.AddKey(Simulator::kVault, {{"name", "there"}, {"kty", "RSA"}});
    const json create = {{"path", "/create?"}, {"action", "status"}, {"status", 500}};
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        json fault;
        int exit;
        const char* code;
        const char* words;
    } rows[] = {
        {"a name that is taken", {"there", "--alg", "RSA"}, nullptr, 2, "NTE_EXISTS", "--overwrite"},
        {"an unknown algorithm", {"k", "--alg", "DSA"}, nullptr, 2, "usage", "DSA"},
        {"no algorithm", {"k"}, nullptr, 2, "usage", "--alg"},
        {"a bad length", {"k", "--alg", "RSA", "--length", "1024"}, nullptr, 2, "NTE_NOT_SUPPORTED", "2048 to 4096"},
        {"a long name", {std::string(43, 'n'), "--alg", "RSA"}, nullptr, 2, "usage", "1 to 42 characters"},
        {"a vault that refuses", {"k", "--alg", "RSA"}, create, 6, "NTE_FAIL", "cannot create the key 'k'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (!row.fault.is_null())
            sim.Fault(row.fault);
        std::vector<std::string> arguments = {"keys", "create"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const json error = CtlJson(arguments, row.exit)["error"];
        EXPECT_EQ(row.code, error["code"]);
        EXPECT_NE(std::string::npos, error["message"].get<std::string>().find(row.words)) << error;
    }
    EXPECT_EQ(1u, Held("keys").size());
    EXPECT_EQ("RSA 2048", CtlJson({"keys", "create", "there", "--alg", "RSA", "--overwrite"})["key"]);
    EXPECT_EQ(2u, Held("keys")[0]["versions"].size());
}

TEST_F(KeyLifecycleCtlTest, DeletesWhenItIsToldTo)
{
    sim.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
    const json refused = CtlJson({"keys", "delete", "p256"}, 2)["error"];
    EXPECT_NE(std::string::npos,
              refused["message"].get<std::string>().find("there is no terminal to ask on: say --yes"));
    const Ran no = DeleteOnTerminal("no");
    EXPECT_EQ(1, no.exit);
    EXPECT_EQ("'p256' is not deleted\n", no.out);
    EXPECT_NE(std::string::npos, no.err.find("Delete the key 'p256' in the vault and purge it")) << no.err;
    EXPECT_TRUE(sim.Journal().empty()) << "nothing was asked of the vault";

    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 1);
    const Ran yes = DeleteOnTerminal("yes");
    EXPECT_EQ(0, yes.exit) << yes.err;
    EXPECT_EQ("'p256' is deleted\n", yes.out);
    EXPECT_NE(std::string::npos, yes.err.find("it can be recovered there for a time")) << yes.err;
    EXPECT_EQ(json{"p256"}, Held("deletedKeys"));

    EXPECT_EQ("NTE_NOT_FOUND", CtlJson({"keys", "delete", "p256", "--yes"}, 5)["error"]["code"]);
    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 0);
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    Out({"keys", "create", "web", "--alg", "ECDSA_P384"});
    const json deleted = CtlJson({"keys", "delete", "web", "--yes"});
    EXPECT_EQ((json{{"name", "web"}, {"scope", "machine"}, {"deleted", true}, {"purgeRequested", true}}), deleted);
    EXPECT_TRUE(Held("certificates").empty() && Held("deletedCertificates").empty() && Held("keys").empty());

    sim.AddKey(Simulator::kVault, {{"name", "plain"}, {"kty", "EC"}});
    const json error = CtlJson({"keys", "delete", "plain", "--yes"}, 6)["error"];
    EXPECT_NE(std::string::npos, error["message"].get<std::string>().find("CertificatesOrKeys")) << error;
}

}  // namespace
