// Commands as they are typed: how they end, and what they say.
#include <filesystem>

#include "kelvaroctl/commands.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

class CommandsTest : public CtlTest {
  protected:
    void AddKeys()
    {
        AddKey("rsa", "RSA");
        AddKey("p256", "P-256");
        WriteFile("data", "data");
    }
};

TEST_F(CommandsTest, CommandLines)
{
    Run(R"(
2 | --help
2 keys burn | unknown command or option: 'burn'; see kelvaroctl keys --help
2 keys lst | 'lst'; did you mean 'list'?
2 certz | did you mean 'certs'?
2 keys list --all | '--all'; see kelvaroctl keys list --help
2 keys list --detail | did you mean '--details'?; see
2 keys list --names --details | choose one
2 --user --machine keys list | --user
2 config get Loglevel | unknown setting: 'Loglevel'; choose one of KeyVault
2 config get LogingLevel | did you mean 'LoggingLevel'?
0 version | kelvaroctl  .. module
0 provider show | Zandrel Key Storage Provider for Key Vault .. 1.0 .. hardware .. 42 characters .. contoso-keys .. protected
0 algorithms | RSA         encryption, signature .. ECDH_P521   secret agreement, signature
0 --version | kelvaroctl 
0 completion bash | complete -o filenames -F _kelvaroctl kelvaroctl
2 completion fish | fish
)");
    const std::string out = RunToolHere({"--module", "/nowhere", "version", "--json"}, "").out;
    EXPECT_NE(std::string::npos, out.find("\"version\": \"" KELVARO_VERSION "\",\n  \"module\": null")) << out;
}

TEST_F(CommandsTest, Keys)
{
    AddKeys();
    Run(R"(
5 keys show nobody | 'nobody': NTE_NOT_FOUND (0x80090011)
2 keys show n*43 | 1 to 42 characters
0 keys show p256 | operations       sign .. enabled, expiry  not reported
2 keys create rsa --alg RSA | NTE_EXISTS .. --overwrite
2 keys create k --alg DSA | DSA
2 keys create k | --alg
2 keys create k --alg RSA --length 1024 | NTE_NOT_SUPPORTED .. 2048 to 4096
! {"path":"/create?","action":"status","status":500}
6 keys create k --alg RSA | cannot create the key 'k': NTE_FAIL
2 keys import @none | none: No such file
2 keys delete p256 | there is no terminal: add --yes
5 keys delete nobody --yes | NTE_NOT_FOUND
2 keys export p256 --format der | der
2 keys export rsa --format cng | --out
0 keys list --prefix p | p256  ECDH_P256
0 keys list --prefix P2 | no keys
)");
}

TEST_F(CommandsTest, Settings)
{
    const nlohmann::json before = CtlTest::Settings();
    Run(R"(
2 config set KeyVaults contoso | 'KeyVaults'; did you mean 'KeyVault'?
2 config set KeyVault contoso.vault.azure.cn | has no dots
2 config set KeyVault https://contoso.example.com/ | a vault's name
2 config set KeyVault .vault.azure.net | is empty
2 config set KeyVault contoso_keys | letters, digits and hyphens
2 config set KeyVault x%Z | only %D and %G
2 config set KeyVault x%G | %G must be the whole value
2 config set KeyVault a*25 | 3 to 24 characters
2 config set KeyVault '' | config unset
2 config set AuthenticationType 4 | 0 to 3
2 config set AuthenticationType 99999999999 | 0 to 3
2 config set TenantId a/b | not allowed in an id
2 config set ClientId x&resource=y | not allowed in an id
2 config set ClientCertID c*512 | at most 511 are read
2 config set EventLog e*128 | at most 127 are read
2 config set LogfilePath C:\Logs\ | without a separator at its end
2 config set LogfilePath Logs | full path
2 config set LoggingLevel 11 | 0 to 10
2 config set LoggingLevel 4 --user | only read from the machine's
2 config set FromKVLastSyncTime 0 | own state
2 config set ClientDPAPISecret QUJD | own state
2 config set ClientSecret another~Secret.1 | cannot be an argument
2 config set TenantId | missing value
)");
    EXPECT_EQ(2, Ctl({"config", "set", "ClientCertID", "two\nlines"}).exit);
    EXPECT_EQ(before, CtlTest::Settings());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "KeyVaults"));
    Run(R"(
0 config get LoggingLevel | 0
0 config get TenantId | 11111111-2222-3333-4444-555555555555
0 config get ClientSecret | set
0 config set ClientCertID c*511 | ClientCertID of the machine is set
0 config set KeyVault %D
0 config set KeyVault https://Contoso.vault.azure.net/keys/web?x
0 config get KeyVault | Contoso
0 config set KeyVault contoso-keys.VAULT.azure.net
0 config get KeyVault | contoso-keys
0 config set EventLog Kelvaro | next starts
0 config get authenticationtype --json | "name": "AuthenticationType" .. "value": 2
)");
    EXPECT_EQ("contoso-keys", root.GetText(HKEY_LOCAL_MACHINE, "KeyVault"));
    EXPECT_EQ("contoso-keys\n", Out({"config", "get", "KeyVault"}));
}

TEST_F(CommandsTest, SigningAndEncrypting)
{
    AddKeys();
    WriteFile("large", std::string(215, 'p'));
    sim.ClearJournal();
    Run(R"(
2 sign --key rsa --alg RS256 --in @missing --out @s | missing: No such file
2 sign --key rsa --alg RS256 --in @data --out /nowhere/s | cannot write /nowhere/s: No such file
2 sign --key rsa --alg RS256 --in @data --out @data | the same file
2 sign --key rsa --alg HS256 --in @data | unknown signature algorithm: 'HS256'
2 sign --key rsa --alg RS256 --in @data --der | --der is for ES256
2 sign --key rsa --alg RS384 --in @data --digest-hex | hexadecimal digest
)");
    EXPECT_TRUE(sim.VaultRequests().empty());
    EXPECT_EQ("data", ReadFile(File("data")));
    WriteFile("short", "0011");
    WriteFile("s", "before");
    Run(R"(
2 sign --key p256 --alg RS256 --in @data | RS256 needs a key of RSA, and 'p256' is P-256
2 sign --key rsa --alg ES256 --in @data | ES256 needs a key of P-256, and 'rsa' is RSA 2048
2 sign --key rsa --alg RS256 --in @short --digest-hex | 2 bytes; RS256 takes 32
! /sign 403
6 sign --key rsa --alg RS256 --in @data --out @s | NTE_FAIL .. permission to sign
! {"path":"/sign","action":"status","status":200,"body":"{}"}
6 sign --key rsa --alg RS256 --in @data | NTE_INVALID_PARAMETER .. no signature
! /sign nojson
6 sign --key rsa --alg RS256 --in @data | no signature
2 encrypt --key p256 --padding oaep --in @data --out @e | only RSA keys encrypt
2 encrypt --key rsa --padding none --in @data --out @e | none
2 encrypt --key rsa --padding oaep --in @large --out @e | encrypts 1 to 214
2 decrypt --key rsa --padding oaep --in @data --out @e | a ciphertext of this key has 256
)");
    EXPECT_FALSE(std::filesystem::exists(File("e")));
    EXPECT_EQ("before", ReadFile(File("s"))) << "what a command that fails would have replaced";
    WriteFile("plain", std::string("se\0cret", 7) + std::string(238, 'p'));
    for (const std::string padding : {"oaep", "pkcs1"}) {
        Run("0 encrypt --key rsa --padding " + padding + " --in " + (padding == "oaep" ? "@data" : "@plain") +
            " --out @encrypted\n0 decrypt --key rsa --padding " + padding +
            " --in @encrypted --out @decrypted | bytes written\n");
        EXPECT_EQ(ReadFile(File(padding == "oaep" ? "data" : "plain")), ReadFile(File("decrypted")));
    }
    Run("6 decrypt --key rsa --padding oaep --in @encrypted --out @e | NTE_FAIL .. this key's with this padding\n");
    EXPECT_FALSE(std::filesystem::exists(File("e")));
}

TEST_F(CommandsTest, WithoutSignIn)
{
    AddKeys();
    Run(R"(
! /oauth2/token 401
4 keys show rsa | SEC_E_LOGON_DENIED .. ClientSecret
! /oauth2/token 401
4 keys list --details | SEC_E_LOGON_DENIED
! /sign 403
6 sign --key rsa --alg RS256 --in @data --json | "code": "NTE_FAIL" .. "exit": 6 .. "status": "0x80090020" .. "operation": "sign with 'rsa'" .. "vault": "contoso-keys.vault.azure.net" .. "signIn": "client credentials"
)");
}

// docs/kelvaroctl.md and the manual page have every command with its options.
TEST_F(CommandsTest, AreDocumented)
{
    const std::string document = ReadFile(KELVARO_TEST_DATA "/../../docs/kelvaroctl.md");
    const std::string manual = Out({"manual"});
    const auto commands = kelvaroctl::AllCommands();
    for (const kelvaroctl::NamedCommand& named : kelvaroctl::Flatten(commands)) {
        if (!named.command->action)
            continue;
        const size_t row = document.find("| `" + named.name);
        ASSERT_NE(std::string::npos, row) << named.name;
        EXPECT_NE(std::string::npos, manual.find(".SS " + named.name.substr(0, named.name.find('-')))) << named.name;
        const std::string rows = document.substr(row, document.find("\n\n", row) - row);
        for (const kelvaroctl::Argument& argument : named.command->arguments)
            EXPECT_NE(std::string::npos, rows.find(argument.name)) << named.name << " " << argument.name;
    }
}

}  // namespace
