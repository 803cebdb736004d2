// Settings: shown as the module takes them, set only to what can work, imported all or not at all.
#include "tests/kelvaroctl/ctl_fixture.h"

namespace {

using nlohmann::json;

class ConfigTest : public CtlTest {
  protected:
    // The settings but for the secret, as the registry editor writes them.
    std::string ExportedText() const
    {
        std::string text =
            "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Zandrel\\Kelvaro]\n"
            "\"AuthenticationType\"=dword:00000002\n\"CertificatesOrKeys\"=dword:00000001\n";
        for (const char* name : {"KeyVault", "TenantId", "ClientId"})
            text += std::string("\"") + name + "\"=\"" + root.GetText(HKEY_LOCAL_MACHINE, name) + "\"\n";
        return text;
    }
};

TEST_F(ConfigTest, FromAnEmptyMachineToAListOfKeys)
{
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    EXPECT_FALSE(CtlJson({"config", "show"})["exists"]);
    EXPECT_EQ(0, Ctl({"config", "set", "KeyVault", Simulator::kVault}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "authenticationtype", "0x2"}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "TenantId", Simulator::kTenant}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "ClientId", Simulator::kClientId}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "ClientSecret"}, Simulator::kClientSecret).exit);
    const json shown = CtlJson({"config", "show"});
    EXPECT_TRUE(shown["exists"]);
    EXPECT_NE(std::string::npos, shown["place"].get<std::string>().find("HKEY_LOCAL_MACHINE"));
    EXPECT_EQ(json({{"set", true}, {"value", 2}}), shown["settings"]["AuthenticationType"]);
    EXPECT_EQ(json({{"set", false}, {"value", 0}}), shown["settings"]["LoggingLevel"]);
    sim.AddKey(Simulator::kVault, {{"name", "first"}, {"kty", "EC"}, {"crv", "P-256"}});
    EXPECT_EQ("first", CtlJson({"keys", "list"})["keys"][0]["name"]);
}

TEST_F(ConfigTest, ValuesThatCouldNotWorkAreRefused)
{
    const struct {
        const char* name;
        std::string value;
        const char* message;
    } rows[] = {
        {"KeyVaults", "contoso", "unknown setting: 'KeyVaults'"},
        {"KeyVault", "contoso.vault.azure.net", "has no dots"},
        {"KeyVault", "contoso_keys", "letters, digits and hyphens"},
        {"KeyVault", "x%Z", "only %D and %G"},
        {"KeyVault", "x%G", "%G must be the whole value"},
        {"KeyVault", std::string(25, 'a'), "3 to 24 characters"},
        {"KeyVault", "", "config unset"},
        {"AuthenticationType", "4", "0 to 3"},
        {"AuthenticationType", "secret", "0 to 3"},
        {"AuthenticationType", "-1", "0 to 3"},
        {"AuthenticationType", "99999999999", "0 to 3"},
        {"TenantId", "a/b", "not allowed in an id"},
        {"ClientId", "x&resource=y", "not allowed in an id"},
        {"ClientCertID", std::string(512, 'c'), "at most 511 are read"},
        {"ClientCertID", "two\nlines", "control character"},
        {"EventLog", std::string(128, 'e'), "at most 127 are read"},
        {"LogfilePath", "C:\\Logs\\", "without a separator at its end"},
        {"LogfilePath", "Logs", "full path"},
        {"LoggingLevel", "11", "0 to 10"},
        {"LoggingLevel", "4x", "0 to 10"},
        {"FromKVLastSyncTime", "0", "own state"},
        {"ClientDPAPISecret", "QUJD", "own state"},
    };
    const json before = Settings();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + " " + row.value.substr(0, 30));
        const Ran ran = Ctl({"config", "set", row.name, row.value});
        EXPECT_EQ(2, ran.exit);
        EXPECT_NE(std::string::npos, ran.err.find(row.message)) << ran.err;
    }
    EXPECT_EQ(2, Ctl({"config", "set", "LoggingLevel", "4", "--user"}).exit);
    EXPECT_EQ(before, Settings());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "KeyVaults"));
}

TEST_F(ConfigTest, ValuesAtTheirLimits)
{
    EXPECT_EQ(0, Ctl({"config", "set", "ClientCertID", std::string(511, 'c')}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "KeyVault", "%D"}).exit);
    EXPECT_EQ(0, Ctl({"config", "set", "KeyVault", "%G"}).exit);
    const json logFolder = CtlJson({"config", "set", "LogfilePath", "C:\\Kelvaro\xC3\xA9"});
    EXPECT_NE(std::string::npos, logFolder["warnings"][0].get<std::string>().find("folder does not exist"));
    EXPECT_NE(std::string::npos, Out({"config", "set", "LogfilePath", "C:\\Kelvaro\xC3\xA9"}).find("the next line"));
    EXPECT_NE(std::string::npos, Out({"config", "set", "EventLog", "Kelvaro"}).find("next starts"));
    const json settings = CtlJson({"config", "show"})["settings"];
    EXPECT_EQ(std::string(511, 'c'), settings["ClientCertID"]["value"]);
    EXPECT_FALSE(settings["ClientCertID"].contains("ignored"));
    EXPECT_EQ("C:\\Kelvaro\xC3\xA9", settings["LogfilePath"]["value"]);
}

TEST_F(ConfigTest, ShowTellsWhatTheModuleIgnores)
{
    root.SetText(HKEY_LOCAL_MACHINE, "KeyVault", "contoso", REG_EXPAND_SZ);
    root.SetText(HKEY_LOCAL_MACHINE, "AuthenticationType", "2");
    root.SetText(HKEY_LOCAL_MACHINE, "ClientId", std::string(600, 'c'));
    const json settings = CtlJson({"config", "show"})["settings"];
    EXPECT_EQ("%G", settings["KeyVault"]["value"]);
    EXPECT_EQ("the value is a REG_EXPAND_SZ; only a REG_SZ is read", settings["KeyVault"]["ignored"]);
    EXPECT_EQ(1, settings["AuthenticationType"]["value"]);
    EXPECT_EQ("the value has 1202 bytes; at most 1024 are read", settings["ClientId"]["ignored"]);
    EXPECT_NE(std::string::npos, Out({"config", "show"}).find("ignored: the value is a REG_EXPAND_SZ"));
}

TEST_F(ConfigTest, TheTwoHivesAreApart)
{
    EXPECT_EQ(0, Ctl({"config", "set", "KeyVault", "fabrikam", "--user"}).exit);
    EXPECT_EQ("fabrikam", CtlJson({"--user", "config", "show"})["settings"]["KeyVault"]["value"]);
    EXPECT_EQ(Simulator::kVault, CtlJson({"--machine", "config", "show"})["settings"]["KeyVault"]["value"]);
    sim.AddKey(Simulator::kStandardVault, {{"name", "mine"}, {"kty", "EC"}, {"crv", "P-256"}});
    EXPECT_EQ("mine", CtlJson({"keys", "list", "--user"})["keys"][0]["name"]);
    EXPECT_EQ(5, Ctl({"keys", "show", "mine"}).exit);
    EXPECT_EQ(true, CtlJson({"config", "unset", "KeyVault", "--user"})["removed"]);
    EXPECT_EQ("%G", CtlJson({"config", "show", "--user"})["settings"]["KeyVault"]["value"]);
}

TEST_F(ConfigTest, TheModulesOwnNotesAreShownBySize)
{
    root.SetNumber(HKEY_LOCAL_MACHINE, "FromKVLastSyncTime", 1700000600);
    root.SetText(HKEY_LOCAL_MACHINE, "CertSync", std::string(40, 'A') + ",");
    const json state = CtlJson({"config", "show"})["state"];
    EXPECT_EQ(1700000600, state["FromKVLastSyncTime"]["value"]);
    EXPECT_EQ(41, state["CertSync"]["characters"]);
    EXPECT_NE(std::string::npos, Out({"config", "show"}).find("last certificate sync 2023-11-14 22:13:20 UTC"));
}

// The same text as the registry editor writes it.
std::string Utf16(const std::string& text)
{
    std::string bytes = "\xFF\xFE";
    for (const char16_t unit : Wide(text)) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

TEST_F(ConfigTest, ImportTakesWhatAnotherMachineExported)
{
    ASSERT_EQ(0, Ctl({"config", "set", "LogfilePath", "C:\\Kelvaro \xE2\x82\xAC"}).exit);
    const json expected = Settings()["settings"];
    const std::string clear = ExportedText() + "\"LogfilePath\"=\"C:\\\\Kelvaro \xE2\x82\xAC\"\n" +
                              "\"ClientSecret\"=\"" + Simulator::kClientSecret + "\"\n";
    for (const std::string& content : {clear, Utf16(clear)}) {
        WriteFile("export.reg", content);
        root.RemoveKey(HKEY_LOCAL_MACHINE);
        ASSERT_EQ(0, Ctl({"config", "protect"}).exit);
        const Ran ran = Ctl({"config", "import", File("export.reg")});
        EXPECT_EQ(0, ran.exit) << ran.err;
        EXPECT_NE(std::string::npos, ran.err.find("contains a secret in clear text"));
        json settings = Settings()["settings"];
        EXPECT_EQ("protected", settings["ClientSecret"]["state"]);
        settings["ClientSecret"] = expected["ClientSecret"];
        EXPECT_EQ(expected, settings);
    }
}

// An export of what is in force holds the secret in protected form, and an empty clear one.
TEST_F(ConfigTest, ImportTakesAProtectedSecret)
{
    ASSERT_EQ(0, Ctl({"config", "set", "ClientSecret", "--anyway"}, Simulator::kClientSecret).exit);
    WriteFile("export.reg", ExportedText() + "\"ClientDPAPISecret\"=\"" +
                                root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret") + "\"\n\"ClientSecret\"=\"\"\n");
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    ASSERT_EQ(0, Ctl({"config", "protect"}).exit);
    const json imported = CtlJson({"config", "import", File("export.reg")});
    EXPECT_EQ(1u, imported["warnings"].size());
    EXPECT_EQ(0, Ctl({"keys", "list"}).exit);
}

TEST_F(ConfigTest, ImportIsAllOrNothing)
{
    const std::string head =
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Zandrel\\Kelvaro]\n";
    const std::string first = "\"KeyVault\"=\"imported\"\n";
    const struct {
        const char* name;
        std::string text;
        const char* message;
    } rows[] = {
        {"no such setting", head + first + "\"KeyVaults\"=\"x\"\n", "line 5: unknown setting \"KeyVaults\""},
        {"wrong type", head + first + "\"TenantId\"=dword:1\n", "line 5: TenantId must be a REG_SZ, not a REG_DWORD"},
        {"expandable", head + first + "\"TenantId\"=hex(2):61,00,00,00\n", "not a REG_EXPAND_SZ"},
        {"odd bytes", head + first + "\"TenantId\"=hex(1):61,00,00\n", "line 5: the bytes of TenantId end"},
        {"short number", head + first + "\"LoggingLevel\"=hex(4):01,00\n", "line 5: the bytes of LoggingLevel end"},
        {"out of range", head + first + "\"LoggingLevel\"=dword:b\n", "line 5: LoggingLevel: the value must be"},
        {"useless", head + first + "\"TenantId\"=\"a b\"\n", "line 5: TenantId: the value contains a character"},
        {"twice", head + first + "\"keyvault\"=\"again\"\n", "line 5: KeyVault is given twice"},
        {"another key", head + first + "\n[HKEY_LOCAL_MACHINE\\Software\\Zandrel]\n", "line 6: only the settings key"},
        {"the log in the user's hive",
         head + first + "[HKEY_CURRENT_USER\\Software\\Zandrel\\Kelvaro]\n\"LoggingLevel\"=dword:1\n",
         "line 6: LoggingLevel is only read from HKEY_LOCAL_MACHINE"},
        {"grammar", head + first + "\"TenantId\"=x\n", "line 5: the data must be"},
    };
    const json before = Settings();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        WriteFile("import.reg", row.text);
        const Ran ran = Ctl({"config", "import", File("import.reg")});
        EXPECT_EQ(2, ran.exit);
        EXPECT_NE(std::string::npos, ran.err.find(File("import.reg") + ": line ")) << ran.err;
        EXPECT_NE(std::string::npos, ran.err.find(row.message)) << ran.err;
    }
    EXPECT_EQ(before, Settings());
}

TEST_F(ConfigTest, ImportRemovesWhatTheFileRemoves)
{
    WriteFile(
        "import.reg",
        "\xEF\xBB\xBFWindows Registry Editor Version 5.00\r\n\r\n; a comment\r\n"
        "[hkey_local_machine\\software\\zandrel\\kelvaro]\r\n\"TenantId\"=-\r\n\"DoDeletePurge\"=dword:00000001\r\n");
    const json imported = CtlJson({"config", "import", File("import.reg")})["imported"];
    EXPECT_EQ(2u, imported.size());
    EXPECT_FALSE(root.Has(HKEY_LOCAL_MACHINE, "TenantId"));
    EXPECT_EQ(1, CtlJson({"config", "show"})["settings"]["DoDeletePurge"]["value"]);
}

}  // namespace
