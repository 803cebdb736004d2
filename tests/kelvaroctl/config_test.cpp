// Settings: shown as the module takes them, imported all or not at all.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;
using ConfigTest = CtlTest;

constexpr char kHead[] = "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Zandrel\\Kelvaro]\n";

// The settings but for the secret, as the registry editor writes them.
std::string ExportedText(const TestRoot& root)
{
    std::string text =
        kHead + std::string("\"AuthenticationType\"=dword:00000002\n") + "\"CertificatesOrKeys\"=dword:00000001\n";
    for (const char* name : {"KeyVault", "TenantId", "ClientId"})
        text += std::string("\"") + name + "\"=\"" + root.GetText(HKEY_LOCAL_MACHINE, name) + "\"\n";
    return text;
}

TEST_F(ConfigTest, FromAnEmptyMachineToAListOfKeys)
{
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    EXPECT_FALSE(Settings()["exists"]);
    AddKey("first", "P-256");
    sim.AddKey(Simulator::kStandardVault, {{"name", "mine"}, {"kty", "EC"}, {"crv", "P-256"}});
    Run(std::string("0 config set KeyVault ") + Simulator::kVault + "\n0 config set authenticationtype 0x2\n" +
        "0 config set TenantId " + Simulator::kTenant + "\n0 config set ClientId " + Simulator::kClientId + "\n" +
        "0 config protect\n< " + Simulator::kClientSecret + R"(
0 config set ClientSecret | is protected
0 keys list | first
0 config show --json | HKEY_LOCAL_MACHINE .. "exists": true .. "AuthenticationType" .. "set": true .. 2 .. "LoggingLevel" .. "set": false .. 0
0 config set KeyVault fabrikam --user
0 --user config get KeyVault | fabrikam
0 --machine config get KeyVault | contoso-keys
0 keys list --user | mine
5 keys show mine
0 config unset KeyVault --user --json | "removed": true
0 config get KeyVault --user | %G
)");
}

TEST_F(ConfigTest, ShowTellsWhatTheModuleIgnoresAndKeeps)
{
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", "contoso", REG_EXPAND_SZ);
    root.SetText(HKEY_LOCAL_MACHINE, "AuthenticationType", "2");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientId", std::string(600, 'c'));
    root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 1700000600);
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", std::string(40, 'A') + ",");
    Run(R"(
0 config show | %G .. ignored: the value is a REG_EXPAND_SZ; only a REG_SZ is read .. AuthenticationType .. 1  managed .. 1202 bytes; at most 1024 .. last certificate sync 2023-11-14 22:13:20 UTC .. 41 characters
0 config set LogfilePath C:\Kelvaroé | next line .. folder does not exist
0 config show --json | "KeyVault" .. "value": "%G" .. "AuthenticationType" .. "value": 1 .. C:\\Kelvaroé .. "value": 1700000600 .. "characters": 41
)");
}

TEST_F(ConfigTest, ImportTakesWhatAnotherMachineExported)
{
    ASSERT_EQ(0, Ctl({"config", "set", "LogfilePath", "C:\\Kelvaro \xE2\x82\xAC"}).exit);
    const json expected = Settings()["settings"];
    WriteFile("export.reg", ExportedText(root) + "\"LogfilePath\"=\"C:\\\\Kelvaro \xE2\x82\xAC\"\n" +
                                "\"ClientSecret\"=\"" + Simulator::kClientSecret + "\"\n");
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    Run("0 config protect\n0 config import @export.reg | contains a secret in clear text\n");
    json settings = Settings()["settings"];
    EXPECT_EQ("protected", settings["ClientSecret"]["state"]);
    settings["ClientSecret"] = expected["ClientSecret"];
    EXPECT_EQ(expected, settings);
    WriteFile("import.reg",
              "\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n\r\n; a comment\r\n"
              "[hkey_local_machine\\software\\zandrel\\kelvaro]\r\n\"TenantId\"=-\r\n\"DoDeletePurge\"=dword:1\r\n");
    Run("0 config import @import.reg | TenantId of the machine removed .. DoDeletePurge of the machine set .. 2 "
        "values\n"
        "0 config get DoDeletePurge | 1\n");
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "TenantId"));
}

// An export of what is in force holds the secret in protected form, and an empty clear one.
TEST_F(ConfigTest, ImportTakesAProtectedSecret)
{
    ASSERT_EQ(0, Ctl({"config", "set", "ClientSecret", "--anyway"}, Simulator::kClientSecret).exit);
    WriteFile("export.reg", ExportedText(root) + "\"ClientDPAPISecret\"=\"" +
                                root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret") + "\"\n\"ClientSecret\"=\"\"\n");
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    Run("0 config protect\n0 config import @export.reg | ClientDPAPISecret can only be decrypted on\n0 keys list\n");
}

TEST_F(ConfigTest, ImportIsAllOrNothing)
{
    const struct {
        const char* text;
        const char* message;
    } rows[] = {
        {"\"KeyVaults\"=\"x\"\n", "line 5: unknown setting \"KeyVaults\""},
        {"\"TenantId\"=dword:1\n", "line 5: TenantId must be a REG_SZ, not a REG_DWORD"},
        {"\"TenantId\"=hex(2):61,00,00,00\n", "not a REG_EXPAND_SZ"},
        {"\"TenantId\"=hex(1):61,00,00\n", "line 5: the bytes of TenantId end"},
        {"\"LoggingLevel\"=hex(4):01,00\n", "line 5: the bytes of LoggingLevel end"},
        {"\"LoggingLevel\"=dword:b\n", "line 5: LoggingLevel: the value must be"},
        {"\"TenantId\"=\"a b\"\n", "line 5: TenantId: the value contains a character"},
        {"\"keyvault\"=\"again\"\n", "line 5: KeyVault is given twice"},
        {"@=\"x\"\n", "line 5: the key's default value"},
        {"[-HKEY_LOCAL_MACHINE\\Software\\Zandrel\\Kelvaro]\n", "line 5: a whole key cannot be removed"},
        {"\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel]\n", "line 6: only the settings key"},
        {"[HKEY_CURRENT_USER\\Software\\Zandrel\\Kelvaro]\n\"LoggingLevel\"=dword:1\n", "line 6: LoggingLevel is only"},
        {"\"TenantId\"=x\n", "line 5: the data must be"},
    };
    const json before = Settings();
    for (const auto& row : rows) {
        WriteFile("import.reg", kHead + std::string("\"KeyVault\"=\"imported\"\n") + row.text);
        Run(std::string("2 config import @import.reg | import.reg: .. ") + row.message + " .. nothing was imported\n");
    }
    EXPECT_EQ(before, Settings());
}

}  // namespace
