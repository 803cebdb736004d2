// The provider and the vault's keys, as an administrator and as a program see them.
#include <filesystem>

#include "keyvault/kvkey.h"
#include "tests/common/independent_key.h"
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/settings_rights.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class KeysTest : public CtlTest {
  protected:
    void SetUp() override
    {
        CtlTest::SetUp();
        AddKey("rsa", "RSA");
        AddKey("p256", "P-256");
        AddKey("p384", "P-384");
        AddKey("p521", "P-521");
    }
    void CheckCreated(const std::string& name, bool certificate)
    {
        const json made = CtlJson({"keys", "create", name, "--alg", "rsa", "--length", "3072"});
        EXPECT_EQ("RSA 3072", made["key"]);
        EXPECT_EQ(certificate, made["certificate"]);
        EXPECT_EQ(IndependentKey(sim.PublicKeyPem(Simulator::kVault, name)).Fingerprint(), made["fingerprint"]);
        EXPECT_EQ(certificate ? 1u : 0u, Held("certificates").size());
    }
    json Held(const char* area) { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault)[area]; }
};

TEST_F(KeysTest, ListsWithAndWithoutDetails)
{
    AddKey("tagged", "P-256", {{"tags", {{"AlgID", "ECDH_P256"}}}});
    AddKey("unnamed-curve", "P-256K");
    EXPECT_EQ(
        "p256           -\np384           -\np521           -\nrsa            -\ntagged         ECDH_P256\n"
        "unnamed-curve  -\n",
        Out({"keys", "list"}));
    const json keys = CtlJson({"keys", "list", "--details"})["keys"];
    ASSERT_EQ(6u, keys.size());
    const char* const kinds[] = {"P-256", "P-384", "P-521", "RSA 2048"};
    const int bits[] = {256, 384, 521, 2048};
    for (size_t index = 0; index < 4; ++index) {
        EXPECT_EQ(kinds[index], keys[index]["key"]);
        EXPECT_EQ(bits[index], keys[index]["bits"]);
        const IndependentKey key(sim.PublicKeyPem(Simulator::kVault, keys[index]["name"]));
        EXPECT_EQ(key.Fingerprint(), keys[index]["fingerprint"]);
    }
    EXPECT_NE(std::string::npos, keys[5]["problem"].get<std::string>().find("curve is not P-256"));
    // A walk that breaks off keeps what it found.
    sim.Fault({{"path", "/keys/p521"}, {"method", "GET"}, {"action", "status"}, {"status", 403}, {"times", -1}});
    const json answer = CtlJson({"keys", "list"}, 6);
    EXPECT_EQ("KEY_LISTING_FAILED", answer["error"]["code"]);
    EXPECT_EQ("0x801B8002", answer["error"]["status"]);
    EXPECT_EQ(2u, answer["keys"].size());
    EXPECT_EQ("p256  -\np384  -\n", Ctl({"keys", "list"}).out);
}

TEST_F(KeysTest, NamesNeedNoKeyButOne)
{
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/seed", {{"keys", 60}, {"prefix", "seed"}});
    const json all = CtlJson({"keys", "list"})["keys"];
    sim.ClearJournal();
    const json names = CtlJson({"keys", "list", "--names"})["keys"];
    EXPECT_EQ(4u, sim.VaultRequests().size()) << "three pages and a key";
    ASSERT_EQ(all.size(), names.size());
    for (size_t index = 0; index < all.size(); ++index)
        EXPECT_EQ(all[index]["name"], names[index]["name"]);
    sim.ClearJournal();
    EXPECT_EQ("p256  ECDH_P256\np384  ECDH_P384\np521  ECDH_P521\n", Out({"keys", "list", "--prefix", "p"}));
    EXPECT_EQ(7u, sim.VaultRequests().size());
}

TEST_F(KeysTest, PublicKeysInEveryForm)
{
    AddKey("rsa0", "RSA", {{"leadingZero", true}});
    AddKey("p384-0", "P-384", {{"leadingZero", true}});
    for (const char* name : {"rsa", "p256", "p384", "p521", "rsa0", "p384-0"}) {
        SCOPED_TRACE(name);
        const std::string expected = sim.PublicKeyPem(Simulator::kVault, name);
        const IndependentKey key(expected);
        Out({"keys", "export", name, "--format", "pem", "--out", File("key.pem")});
        EXPECT_EQ(expected, ReadFile(File("key.pem")));
        const json shown = CtlJson({"keys", "show", name});
        EXPECT_EQ(expected, shown["publicKey"]["pem"]);
        EXPECT_EQ(key.Fingerprint(), shown["fingerprint"]);
        EXPECT_EQ(shown["publicKey"]["jwk"], json::parse(Out({"keys", "export", name, "--format", "jwk"})));
        EXPECT_EQ(name, shown["publicKey"]["jwk"]["kid"]);
        EXPECT_EQ(key.Der(), IndependentKey::FromJwk(shown["publicKey"]["jwk"].dump()).Der());
        Out({"keys", "export", name, "--format", "cng", "--out", File("key.cng")});
        EXPECT_EQ(key.Der(), IndependentKey::FromCngBlob(ReadFile(File("key.cng"))).Der());
    }
    const json properties = CtlJson({"properties", "rsa"})["properties"];
    EXPECT_EQ("rsa", properties["Name"]);
    EXPECT_EQ(2048, properties["Length"]);
    EXPECT_EQ(json({{"minimum", 2048}, {"maximum", 4096}, {"increment", 8}, {"default", 2048}}), properties["Lengths"]);
    EXPECT_EQ(json({"sign", "decrypt"}), CtlJson({"keys", "show", "rsa"})["operations"]);
    // Asking for it would have the provider publish the key's certificate.
    EXPECT_FALSE(properties.contains("SmartCardKeyCertificate"));
}

TEST_F(KeysTest, NamesOfAnyScriptAndNoControlCharacters)
{
    for (const char* name : {"Schl\xC3\xBCssel 1 \xF0\x9F\x94\x91", "bell\x07\x1B[2J"}) {
        WCHAR encoded[kEncodedNameChars] = {};
        int coded = 0;
        ASSERT_EQ(1, KVCConvertClearKeyNameToEncoded(Wide(name).c_str(), encoded, &coded));
        AddKey(Narrow(encoded), "P-256");
        EXPECT_EQ(name, CtlJson({"keys", "show", name})["properties"]["Name"]);
    }
    const std::string list = Out({"keys", "list"});
    EXPECT_NE(std::string::npos, list.find("Schl\xC3\xBCssel 1 \xF0\x9F\x94\x91 "));
    EXPECT_NE(std::string::npos, list.find("bell\\x07\\x1b[2J"));
}

TEST_F(KeysTest, AreCreated)
{
    CheckCreated("plain", false);
    Run("0 keys create plain --alg RSA --overwrite | 'plain' was created: RSA 2048, SHA-256 \n");
}

TEST_F(KeysTest, AreCreatedWithACertificate)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    CheckCreated("web", true);
}

TEST_F(KeysTest, AreDeleted)
{
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/certificates",
                {{"name", "web"}, {"kty", "RSA"}});
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    Run(R"(
6 keys delete rsa --yes | CertificatesOrKeys
0 keys delete web --yes | 'web' was deleted, and its purge requested
)");
    EXPECT_TRUE(Held("certificates").empty() && Held("deletedCertificates").empty());
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 1);
    root.SetNumber(HKEY_LOCAL_MACHINE, "DoDeletePurge", 1);
    EXPECT_EQ((json{{"name", "rsa"}, {"scope", "machine"}, {"deleted", true}, {"purgeRequested", false}}),
              CtlJson({"keys", "delete", "rsa", "--yes"}));
    EXPECT_EQ(json{"rsa"}, Held("deletedKeys"));
}

TEST_F(KeysTest, AFailureSaysWhatTheModuleLogged)
{
    const std::string refused = R"(! {"path":"/keys","method":"GET","action":"status","status":403,"times":-1})";
    const std::string page = R"(! {"path":"/keys","method":"GET","action":"nojson","times":-1})";
    const std::string vault = "\nvault: contoso-keys.vault.azure.net, signing in by client credentials\n";
    Run(R"(
0 config set LoggingLevel 0
)" + refused +
        R"(
5 keys show rsa | NTE_NOT_FOUND .. vault: contoso-keys.vault.azure.net, signing in by client credentials .. logging is off: kelvaroctl config set LoggingLevel 10 .. Run `kelvaroctl doctor`
)" + page +
        R"(
6 keys list | cannot list the keys: what answered is not the vault .. Run `kelvaroctl doctor`
)" + page +
        R"(
6 keys list --names --user | what answered is not the vault .. Run `kelvaroctl doctor --user`
)" + page +
        R"(
6 keys show rsa | cannot open the key 'rsa': what answered
0 config set LoggingLevel 1
)" + page +
        R"(
6 keys list | KVCGetKeys answer is not JSON .. means:
)" + refused +
        R"(
6 keys list | REST Call Error Error 0x193 .. do: permissions.md
! {"path":"/oauth2/token","action":"status","status":401,"times":-1}
4 keys list | KVCAuthenticate KVCDoWebCall failure Error 0x1 .. an expired secret .. Run `kelvaroctl doctor`
0 config set LoggingLevel 4
)" + refused +
        R"(
5 keys show rsa | KelvaroOpenKey Error Error 0x80090011 .. Kelvaro.log; it says why at level 10
0 config set LoggingLevel 10
)" + refused +
        R"(
5 keys show rsa | SupressFailedReadError Error 0x193 .. means: the key .. 0x193: the identity may not .. do: permissions.md .. 0x80090011
)");
    const std::string err = Ctl({"keys", "show", "nobody"}).err;
    EXPECT_NE(std::string::npos, err.find(vault));
    EXPECT_EQ(std::string::npos, err.find("answer is not JSON")) << "of an earlier command";
    EXPECT_EQ("\nRun `kelvaroctl doctor`\n", err.substr(err.rfind("\nRun")));
    // A page of the list that is something else: what came before it is shown.
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/seed", {{"keys", 30}});
    sim.Fault({{"path", "/keys?"}, {"method", "GET"}, {"skip", 1}, {"action", "nojson"}});
    const json partial = CtlJson({"keys", "list", "--names"}, 6);
    EXPECT_EQ("foreign_answer", partial["error"]["code"]);
    EXPECT_EQ(25u, partial["keys"].size());
    ASSERT_EQ(1u, partial["error"]["lines"].size());
    EXPECT_NE(std::string::npos, partial["error"]["lines"][0]["cause"].get<std::string>().find("a proxy's page"));
    // Once in a folder that is named, once in the default one.
    for (int round = 0; round < 2; ++round) {
        const json log = CtlJson({"keys", "show", "nobody"}, 5)["error"]["log"];
        EXPECT_NE(std::string::npos, ReadFile(log["file"]).find("KelvaroOpenKey Error Error 0x80090011 1")) << log;
        Out({"config", "unset", "LogfilePath"});
    }
    Run("0 config set LogfilePath @folder\n5 keys show nobody | its folder does not exist\n");
    fs::create_directory(File("folder"));
    EXPECT_EQ("", Ctl({"config", "set", "LogfilePath", File("folder")}).err);
    // Somebody could put a link in the log's place.
    LetEverybodyWriteTo(File("folder"));
    Run("5 keys show nobody | users can write to its folder\n0 config set LogfilePath @folder | ordinary users can\n");
}

TEST_F(KeysTest, TheModule)
{
    WriteFile("nonsense.so", "nonsense");
    const std::string wrong[] = {"/nowhere/libkelvaro.so", File("nonsense.so"), "libc.so.6"};
    for (const std::string& path : wrong) {
        const Ran ran = RunProgram(KELVAROCTL_PATH, {"--module", path, "keys", "list"}, "");
        EXPECT_EQ(3, ran.exit) << path;
        EXPECT_NE(std::string::npos, ran.err.find(fs::path(path).filename().string())) << ran.err;
    }
    // What a script passes on behind the command names no module.
    const std::vector<std::string> commands[] = {{"keys", "list", "--module", KELVARO_MODULE_PATH},
                                                 {"keys", "list", std::string("--module=") + KELVARO_MODULE_PATH},
                                                 {"keys", "--module", KELVARO_MODULE_PATH, "list"},
                                                 {"config", "import", "--", File("settings.reg"), "--module", "other"}};
    for (const auto& command : commands)
        EXPECT_EQ(2, RunProgram(KELVAROCTL_PATH, command, "").exit) << command.back();
    // The one beside the program is taken.
    const fs::path folder = File("installed");
    const fs::path program = folder / fs::path(KELVAROCTL_PATH).filename();
    const fs::path module = folder / fs::path(KELVARO_MODULE_PATH).filename();
    fs::create_directory(folder);
    fs::copy_file(KELVAROCTL_PATH, program);
    fs::copy_file(KELVARO_MODULE_PATH, module);
    const Ran ran = RunProgram(program.string(), {"provider", "show", "--json"}, "");
    ASSERT_EQ(0, ran.exit) << ran.err;
    EXPECT_TRUE(fs::equivalent(module, fs::u8path(json::parse(ran.out)["module"].get<std::string>()))) << ran.out;
}

}  // namespace
