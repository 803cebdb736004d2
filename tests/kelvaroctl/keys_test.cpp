// The provider and the vault's keys, as an administrator and as a program see them.
#include <filesystem>

#include "kelvaroctl/public_key.h"
#include "keyvault/kvkey.h"
#include "tests/common/base64.h"
#include "tests/kelvaroctl/ctl_fixture.h"
#include "tests/kelvaroctl/settings_rights.h"

namespace {

namespace fs = std::filesystem;

class KeysTest : public CtlTest {
  protected:
    void AddKeys()
    {
        AddKey("rsa", "RSA");
        for (const char* curve : {"256", "384", "521"})
            AddKey(std::string("p") + curve, std::string("P-") + curve);
    }
    void CheckCreated(const std::string& algorithm, const std::string& key, const std::string& certificate)
    {
        const std::string made = Ctl(Split("keys create made --json --alg " + algorithm)).out;
        EXPECT_NE(std::string::npos, made.find("\"key\": \"" + key)) << made;
        EXPECT_NE(std::string::npos, made.find("\"certificate\": " + certificate)) << made;
        EXPECT_NE(std::string::npos, made.find(Fingerprint("made"))) << made;
        EXPECT_EQ(certificate == "true" ? 1u : 0u, Held("certificates").size());
    }
    json Vault(const char* rest, const json& body)
    {
        return sim.Control("POST", std::string("/vaults/") + Simulator::kVault + rest, body);
    }
    static std::string Decoded(const std::string& text)
    {
        const std::vector<BYTE> bytes = FromBase64(text);
        return {bytes.begin(), bytes.end()};
    }
    json Held(const char* area) { return sim.Control("GET", std::string("/vaults/") + Simulator::kVault)[area]; }
};

TEST_F(KeysTest, ListsWithAndWithoutDetails)
{
    AddKeys();
    AddKey("tagged", "P-256", {{"tags", {{"AlgID", "ECDH_P256"}}}});
    AddKey("unnamed-curve", "P-256K");
    EXPECT_EQ(
        "p256           -\np384           -\np521           -\nrsa            -\ntagged         ECDH_P256\n"
        "unnamed-curve  -\n",
        Out({"keys", "list"}));
    std::string row = "0 keys list --details | ";
    for (const std::string name : {"p256", "p384", "p521", "rsa"})
        row +=
            name + "  .. " + (name == "rsa" ? "RSA 2048" : "P-" + name.substr(1)) + " .. " + Fingerprint(name) + " .. ";
    // A listing that is cut short keeps what it found.
    const std::string refused = R"(! {"path":"/keys/p521","method":"GET","action":"status","status":403,"times":-1})";
    Run(row + "curve is not P-256\n" + refused + "\n6 keys list --json | p256 .. p384 .. KEY_LISTING_FAILED .. " +
        "0x801B8002\n" + refused + "\n6 keys list | p256  - .. p384  - .. !rsa\n");
}

TEST_F(KeysTest, ListingNamesReadsOneKey)
{
    AddKeys();
    Vault("/seed", {{"keys", 60}, {"prefix", "seed"}});
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
    AddKeys();
    AddKey("rsa0", "RSA", {{"leadingZero", true}});
    AddKey("p384-0", "P-384", {{"leadingZero", true}});
    for (const std::string name : {"rsa", "p256", "p384", "p521", "rsa0", "p384-0"}) {
        SCOPED_TRACE(name);
        const std::string expected = sim.PublicKeyPem(Simulator::kVault, name);
        const kelvaroctl::Bytes der = PublicDer(name);
        const bool isRsa = name[0] == 'r';
        const int bits = isRsa ? 2048 : std::stoi(name.substr(1));
        Run("0 keys export " + name + " --format pem --out @pem\n0 keys export " + name + " --format cng --out @cng\n");
        EXPECT_EQ(expected, ReadFile(File("pem")));
        const std::string blob = ReadFile(File("cng"));
        EXPECT_EQ(der, SubjectPublicKeyInfo(kelvaroctl::ParsePublicBlob({blob.begin(), blob.end()})));
        const json shown = CtlJson({"keys", "show", name});
        EXPECT_EQ(bits, shown["bits"]);
        EXPECT_EQ(expected, shown["publicKey"]["pem"]);
        EXPECT_EQ(Fingerprint(name), shown["fingerprint"]);
        EXPECT_EQ(shown["publicKey"]["jwk"], json::parse(Out({"keys", "export", name, "--format", "jwk"})));
        const json jwk = shown["publicKey"]["jwk"];
        EXPECT_EQ(name, jwk["kid"]);
        EXPECT_EQ(isRsa ? "RSA " : "EC P-" + std::to_string(bits), jwk.value("kty", "") + " " + jwk.value("crv", ""));
        // Its numbers are the end of the DER form.
        const std::string numbers =
            isRsa ? Decoded(jwk["n"]) + "\2\3" + Decoded(jwk["e"]) : Decoded(jwk["x"]) + Decoded(jwk["y"]);
        EXPECT_EQ(isRsa ? 256 + 2 + 3 : (bits + 7) / 8 * 2, static_cast<int>(numbers.size()));
        EXPECT_EQ(numbers, std::string(der.end() - static_cast<int>(numbers.size()), der.end()));
    }
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
    Run("0 keys list | Schl\xC3\xBCssel 1 \xF0\x9F\x94\x91  .. bell\\x07\\x1b[2J  \n");
}

TEST_F(KeysTest, AreCreatedAndDeleted)
{
    CheckCreated("rsa --length 3072", "RSA 3072", "false");
    AddKey("rsa", "RSA");
    Vault("/certificates", {{"name", "web"}, {"kty", "RSA"}});
    RunSection();
    EXPECT_TRUE(Held("certificates").empty() && Held("deletedCertificates").empty());
    RunSection(2);
    EXPECT_EQ(json{"rsa"}, Held("deletedKeys"));
}

TEST_F(KeysTest, AreCreatedWithACertificate)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "CertificatesOrKeys", 0);
    CheckCreated("ECDSA_P384", "P-384", "true");
}

TEST_F(KeysTest, AFailureSaysWhatTheModuleLogged)
{
    AddKeys();
    RunSection();
    // A page of the list that isn't JSON: the keys before it are shown.
    Vault("/seed", {{"keys", 30}});
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
    for (const std::string& path :
         {std::string("/nowhere/libkelvaro.so"), File("nonsense.so"), std::string("libc.so.6")}) {
        const Ran ran = RunToolHere({"--module", path, "keys", "list"}, "");
        EXPECT_EQ(3, ran.exit) << path;
        EXPECT_NE(std::string::npos, ran.err.find(fs::path(path).filename().string())) << ran.err;
    }
    // Arguments that a script adds after the command can't name a module.
    for (const std::vector<std::string>& command : std::initializer_list<std::vector<std::string>>{
             {"keys", "list", "--module", KELVARO_MODULE_PATH},
             {"keys", "list", std::string("--module=") + KELVARO_MODULE_PATH},
             {"keys", "--module", KELVARO_MODULE_PATH, "list"},
             {"config", "import", "--", File("settings.reg"), "--module", "other"}})
        EXPECT_EQ(2, RunToolHere(command, "").exit) << command.back();
    // The one beside the program is used.
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
