// Settings: shown as the module uses them, imported all or none.
#include "tests/common/data_rows.h"
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

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
    RunSection();
}

TEST_F(ConfigTest, ShowReportsWhatTheModuleIgnoresAndKeeps)
{
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", "contoso", REG_EXPAND_SZ);
    root.SetText(HKEY_LOCAL_MACHINE, "AuthenticationType", "2");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientId", std::string(600, 'c'));
    root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 1700000600);
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", std::string(40, 'A') + ",");
    RunSection();
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

// An export of the current settings has the secret in protected form, and an empty clear one.
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
    const json before = Settings();
    for (const std::string& line : SectionLines("registry_lines.txt")) {
        const TextRow row(line);
        WriteFile("import.reg", kHead + ("\"KeyVault\"=\"imported\"\n" + row.text));
        Run("2 config import @import.reg | import.reg: .. " + row.words + " .. nothing was imported\n");
    }
    EXPECT_EQ(before, Settings());
}

}  // namespace
