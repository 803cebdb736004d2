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
        sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"kty", "RSA"}, {"size", 2048}});
        sim.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
        sim.AddKey(Simulator::kVault, {{"name", "p384"}, {"kty", "EC"}, {"crv", "P-384"}});
        sim.AddKey(Simulator::kVault, {{"name", "p521"}, {"kty", "EC"}, {"crv", "P-521"}});
    }
};

TEST_F(KeysTest, TheProviderIntroducesItself)
{
    const json shown = CtlJson({"provider", "show"});
    EXPECT_EQ("Zandrel Key Storage Provider for Key Vault", shown["name"]);
    EXPECT_EQ("1.0", shown["version"]);
    EXPECT_EQ("hardware", shown["implementation"]);
    EXPECT_EQ(42, shown["maxNameLength"]);
    EXPECT_EQ(Simulator::kVault, shown["settings"]["KeyVault"]["value"]);
    EXPECT_EQ("protected", shown["settings"]["ClientSecret"]["state"]);
    const json algorithms = CtlJson({"algorithms"})["algorithms"];
    ASSERT_EQ(7u, algorithms.size());
    EXPECT_EQ(json({{"name", "RSA"}, {"operations", {"encryption", "signature"}}}), algorithms[0]);
    EXPECT_EQ(json({{"name", "ECDH_P521"}, {"operations", {"secret agreement", "signature"}}}), algorithms[6]);
}

TEST_F(KeysTest, ListsWithAndWithoutDetails)
{
    sim.AddKey(Simulator::kVault,
               {{"name", "tagged"}, {"kty", "EC"}, {"crv", "P-256"}, {"tags", {{"AlgID", "ECDH_P256"}}}});
    sim.AddKey(Simulator::kVault, {{"name", "unnamed-curve"}, {"kty", "EC"}, {"crv", "P-256K"}});
    EXPECT_EQ(
        "p256           -\np384           -\np521           -\nrsa            -\ntagged         ECDH_P256\n"
        "unnamed-curve  -\n",
        Out({"keys", "list"}));
    const json keys = CtlJson({"keys", "list", "--details"})["keys"];
    ASSERT_EQ(6u, keys.size());
    const struct {
        const char* name;
        const char* key;
        int bits;
    } rows[] = {{"p256", "P-256", 256}, {"p384", "P-384", 384}, {"p521", "P-521", 521}, {"rsa", "RSA 2048", 2048}};
    for (size_t index = 0; index < 4; ++index) {
        EXPECT_EQ(rows[index].name, keys[index]["name"]);
        EXPECT_EQ(rows[index].key, keys[index]["key"]);
        EXPECT_EQ(rows[index].bits, keys[index]["bits"]);
        EXPECT_EQ(IndependentKey(sim.PublicKeyPem(Simulator::kVault, rows[index].name)).Fingerprint(),
                  keys[index]["fingerprint"]);
    }
    EXPECT_NE(std::string::npos, keys[5]["problem"].get<std::string>().find("curve is not P-256"));
}

TEST_F(KeysTest, AWalkThatBreaksOffKeepsWhatItFound)
{
    const auto breakOff = [this] {
        sim.Fault({{"path", "/keys/p521"}, {"method", "GET"}, {"action", "status"}, {"status", 403}, {"times", -1}});
    };
    breakOff();
    const json answer = CtlJson({"keys", "list"}, 6);
    EXPECT_EQ("KEY_LISTING_FAILED", answer["error"]["code"]);
    EXPECT_EQ("0x801B8002", answer["error"]["status"]);
    EXPECT_EQ(2u, answer["keys"].size());
    const Ran ran = Ctl({"keys", "list"});
    EXPECT_EQ(6, ran.exit);
    EXPECT_EQ("p256  -\np384  -\n", ran.out);
    EXPECT_NE(std::string::npos, ran.err.find("0x801B8002"));
}

TEST_F(KeysTest, PublicKeysInEveryForm)
{
    sim.AddKey(Simulator::kVault, {{"name", "rsa0"}, {"kty", "RSA"}, {"leadingZero", true}});
    sim.AddKey(Simulator::kVault, {{"name", "p384-0"}, {"kty", "EC"}, {"crv", "P-384"}, {"leadingZero", true}});
    for (const char* name : {"rsa", "p256", "p384", "p521", "rsa0", "p384-0"}) {
        SCOPED_TRACE(name);
        const std::string expected = sim.PublicKeyPem(Simulator::kVault, name);
        const IndependentKey key(expected);
        EXPECT_EQ(expected, Out({"keys", "export", name, "--format", "pem"}));
        EXPECT_EQ(0, Ctl({"keys", "export", name, "--format", "pem", "--out", File("key.pem")}).exit);
        EXPECT_EQ(expected, ReadFile(File("key.pem")));
        const json shown = CtlJson({"keys", "show", name});
        EXPECT_EQ(expected, shown["publicKey"]["pem"]);
        EXPECT_EQ(key.Fingerprint(), shown["fingerprint"]);
        EXPECT_EQ(shown["publicKey"]["jwk"], json::parse(Out({"keys", "export", name, "--format", "jwk"})));
        EXPECT_EQ(name, shown["publicKey"]["jwk"]["kid"]);
        EXPECT_EQ(key.Der(), IndependentKey::FromJwk(shown["publicKey"]["jwk"].dump()).Der());
        EXPECT_EQ(0, Ctl({"keys", "export", name, "--format", "cng", "--out", File("key.cng")}).exit);
        EXPECT_EQ(key.Der(), IndependentKey::FromCngBlob(ReadFile(File("key.cng"))).Der());
    }
    EXPECT_EQ(2, Ctl({"keys", "export", "p384", "--format", "cng"}).exit);
    EXPECT_EQ(2, Ctl({"keys", "export", "p384", "--format", "der"}).exit);
}

TEST_F(KeysTest, PropertiesAreReadWithoutSideEffects)
{
    const json properties = CtlJson({"properties", "rsa"})["properties"];
    EXPECT_EQ("rsa", properties["Name"]);
    EXPECT_EQ(2048, properties["Length"]);
    EXPECT_EQ(json({{"minimum", 2048}, {"maximum", 4096}, {"increment", 8}, {"default", 2048}}), properties["Lengths"]);
    EXPECT_EQ(3, properties["Key Usage"]);
    // Asking for it would have the provider publish the key's certificate.
    EXPECT_FALSE(properties.contains("SmartCardKeyCertificate"));
    EXPECT_NE(std::string::npos, Out({"properties", "p256"}).find("Algorithm Name   ECDH_P256\n"));
}

TEST_F(KeysTest, NamesOfAnyScriptAndNoControlCharacters)
{
    for (const char* name : {"Schl\xC3\xBCssel 1 \xF0\x9F\x94\x91", "bell\x07\x1B[2J"}) {
        WCHAR encoded[kEncodedNameChars] = {};
        int coded = 0;
        ASSERT_EQ(1, KVCConvertClearKeyNameToEncoded(Wide(name).c_str(), encoded, &coded));
        sim.AddKey(Simulator::kVault, {{"name", Narrow(encoded)}, {"kty", "EC"}, {"crv", "P-256"}});
        EXPECT_EQ(name, CtlJson({"keys", "show", name})["properties"]["Name"]);
    }
    const std::string list = Out({"keys", "list"});
    EXPECT_NE(std::string::npos, list.find("Schl\xC3\xBCssel 1 \xF0\x9F\x94\x91 "));
    EXPECT_NE(std::string::npos, list.find("bell\\x07\\x1b[2J"));
}

TEST_F(KeysTest, FailuresSayWhatWhyAndWhereToReadOn)
{
    WriteFile("data", "data");
    const std::vector<std::string> sign = {"sign", "--key", "rsa", "--alg", "RS256", "--in", File("data")};
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        json fault;
        int exit;
        const char* code;
        const char* words;
    } rows[] = {
        {"no such key", {"keys", "show", "nobody"}, nullptr, 5, "NTE_NOT_FOUND", "'nobody'"},
        {"a name too long", {"keys", "show", std::string(43, 'n')}, nullptr, 2, "usage", "1 to 42 characters"},
        {"a taken name", {"keys", "create", "rsa", "--alg", "RSA"}, nullptr, 2, "NTE_EXISTS", "--overwrite"},
        {"an unknown algorithm", {"keys", "create", "k", "--alg", "DSA"}, nullptr, 2, "usage", "DSA"},
        {"no algorithm", {"keys", "create", "k"}, nullptr, 2, "usage", "--alg"},
        {"a bad length",
         {"keys", "create", "k", "--alg", "RSA", "--length", "1024"},
         nullptr,
         2,
         "NTE_NOT_SUPPORTED",
         "2048 to 4096"},
        {"creation refused",
         {"keys", "create", "k", "--alg", "RSA"},
         {{"path", "/create?"}, {"action", "status"}, {"status", 500}},
         6,
         "NTE_FAIL",
         "cannot create the key 'k'"},
        {"sign-in refused",
         {"keys", "show", "rsa"},
         {{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}},
         4,
         "SEC_E_LOGON_DENIED",
         "ClientSecret"},
        {"signing refused",
         sign,
         {{"path", "/sign"}, {"action", "status"}, {"status", 403}},
         6,
         "NTE_FAIL",
         "permission"},
        {"an answer without a signature",
         sign,
         {{"path", "/sign"}, {"action", "status"}, {"status", 200}, {"body", "{}"}},
         6,
         "NTE_INVALID_PARAMETER",
         "no signature"},
        {"no command", {}, nullptr, 2, "usage", "--help"},
        {"an unknown command", {"keys", "burn"}, nullptr, 2, "usage", "'burn'"},
        {"an unknown option",
         {"keys", "list", "--all"},
         nullptr,
         2,
         "usage",
         "'--all'; see kelvaroctl keys list --help"},
        {"no such file", {"keys", "import", File("none")}, nullptr, 2, "usage", "none: No such file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (!row.fault.is_null())
            sim.Fault(row.fault);
        const json error = CtlJson(row.arguments, row.exit)["error"];
        EXPECT_EQ(row.code, error["code"]);
        EXPECT_EQ(row.exit, error["exit"]);
        EXPECT_NE(std::string::npos, error["message"].get<std::string>().find(row.words)) << error;
    }
    EXPECT_EQ(4u, CtlJson({"keys", "list"})["keys"].size());
}

TEST_F(KeysTest, AFailureSaysWhatTheModuleLogged)
{
    const json refused = {{"path", "/keys"}, {"method", "GET"}, {"action", "status"}, {"status", 403}, {"times", -1}};
    const json page = {{"path", "/keys"}, {"method", "GET"}, {"action", "nojson"}, {"times", -1}};
    const json noSignIn = {{"path", "/oauth2/token"}, {"action", "status"}, {"status", 401}, {"times", -1}};
    const struct {
        const char* level;
        std::vector<std::string> arguments;
        json fault;
        int exit;
        std::vector<std::string> words;  // in this order
    } rows[] = {
        {"0",
         {"keys", "show", "rsa"},
         refused,
         5,
         {"NTE_NOT_FOUND", "\nlogging is off: kelvaroctl config set LoggingLevel 10\n"}},
        {"4",
         {"keys", "show", "rsa"},
         refused,
         5,
         {"logged:\n  KelvaroOpenKey Error Error 0x80090011\nlog: ", "Kelvaro.log; it says why at level 10"}},
        {"10",
         {"keys", "show", "rsa"},
         refused,
         5,
         {"SupressFailedReadError Error 0x193\n", "means: the key", "0x193: the identity may not",
          "do: permissions.md\n", "0x80090011\nlog: "}},
        {"1", {"keys", "list"}, refused, 6, {"KVCGetKeys REST Call Error Error 0x193", "do: "}},
        {"1",
         {"keys", "list"},
         noSignIn,
         4,
         {"signing in by client credentials\n", "KVCAuthenticate KVCDoWebCall failure", "an expired secret"}},
        {"0", {"keys", "list"}, page, 6, {"cannot list the keys: what answered is not the vault"}},
        {"0", {"keys", "list", "--names"}, page, 6, {"what answered is not the vault"}},
        {"0", {"keys", "show", "rsa"}, page, 6, {"cannot open the key 'rsa': what answered"}},
        {"1", {"keys", "list"}, page, 6, {"KVCGetKeys answer is not JSON", "means: "}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.level) + " " + row.words[0]);
        Out({"config", "set", "LoggingLevel", row.level});
        sim.Fault(row.fault);
        const Ran ran = Ctl(row.arguments);
        sim.Control("DELETE", "/faults");
        EXPECT_EQ(row.exit, ran.exit);
        size_t at = 0;
        for (const std::string& words : row.words) {
            at = ran.err.find(words, at);
            EXPECT_NE(std::string::npos, at) << words << " is not in its place in\n" << ran.err;
        }
        EXPECT_NE(std::string::npos, ran.err.find("\nvault: contoso-keys.vault.azure.net, signing in by"));
        EXPECT_EQ("\nRun `kelvaroctl doctor`\n", ran.err.substr(ran.err.rfind("\nRun")));
    }
    // A page of the list that is something else: what came before it is shown.
    sim.Control("POST", std::string("/vaults/") + Simulator::kVault + "/seed", {{"keys", 30}});
    sim.Fault({{"path", "/keys?"}, {"method", "GET"}, {"skip", 1}, {"action", "nojson"}});
    const json partial = CtlJson({"keys", "list", "--names"}, 6);
    EXPECT_EQ("foreign_answer", partial["error"]["code"]);
    EXPECT_EQ(25u, partial["keys"].size());
    const json lines = partial["error"]["lines"];
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(1, lines[0]["level"]);
    EXPECT_NE(std::string::npos, lines[0]["cause"].get<std::string>().find("a proxy's page"));
}

TEST_F(KeysTest, TheLogIsWhereTheFailureSays)
{
    Out({"config", "set", "LoggingLevel", "4"});
    // Once in a folder that is named, once in the default one.
    for (int round = 0; round < 2; ++round) {
        const json log = CtlJson({"keys", "show", "nobody"}, 5)["error"]["log"];
        EXPECT_NE(std::string::npos, ReadFile(log["file"]).find("KelvaroOpenKey Error Error 0x80090011 1")) << log;
        Out({"config", "unset", "LogfilePath"});
    }
    Out({"config", "set", "LogfilePath", File("missing")});
    EXPECT_NE(std::string::npos, Ctl({"keys", "show", "nobody"}).err.find("its folder does not exist"));
    std::filesystem::create_directory(File("missing"));
    EXPECT_EQ("", Ctl({"config", "set", "LogfilePath", File("missing")}).err);
    // Somebody could put a link in the log's place.
    LetEverybodyWriteTo(File("missing"));
    EXPECT_NE(std::string::npos, Ctl({"keys", "show", "nobody"}).err.find("ordinary users can write to its folder"));
    EXPECT_NE(std::string::npos, Ctl({"config", "set", "LogfilePath", File("missing")}).err.find("ordinary users can"));
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
    EXPECT_EQ("no keys\n", Out({"keys", "list", "--prefix", "P2"}));
    EXPECT_EQ(2, Ctl({"keys", "list", "--names", "--details"}).exit);
}

TEST_F(KeysTest, AModuleThatIsNone)
{
    WriteFile("nonsense.so", "nonsense");
    const std::string wrong[] = {"/nowhere/libkelvaro.so", File("nonsense.so"), "libc.so.6"};
    for (const std::string& path : wrong) {
        const Ran ran = RunProgram(KELVAROCTL_PATH, {"--module", path, "keys", "list"}, "");
        EXPECT_EQ(3, ran.exit) << path;
        EXPECT_NE(std::string::npos, ran.err.find(fs::path(path).filename().string())) << ran.err;
    }
    // What a script passes on behind the command names no module.
    WriteFile("settings.reg", "Windows Registry Editor Version 5.00\n");
    const std::vector<std::string> commands[] = {
        {"keys", "list", "--module", KELVARO_MODULE_PATH},
        {"keys", "list", std::string("--module=") + KELVARO_MODULE_PATH},
        {"keys", "--module", KELVARO_MODULE_PATH, "list"},
        {"config", "import", File("settings.reg"), "--module", KELVARO_MODULE_PATH},
        {"config", "import", "--", File("settings.reg"), "--module", "other"}};
    for (const auto& command : commands)
        EXPECT_EQ(2, RunProgram(KELVAROCTL_PATH, command, "").exit) << command.back();
}

TEST_F(KeysTest, TheModuleBesideTheProgramIsTaken)
{
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
