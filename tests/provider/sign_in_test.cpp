// What a host sees of the sign-in: identity servers that refuse or are false, and a machine without any settings.
#include "tests/provider/key_fixture.h"

namespace {

using nlohmann::json;
using Lines = std::vector<std::string>;

constexpr char kArc[] = "http://localhost:40342/";
constexpr char kIdentity[] = "KVCAuthenticate MSIAuthenticate failure - Return ";

class SignInTest : public KeyTest {
  protected:
    void SetUp() override
    {
        KeyTest::SetUp();
        SetEndpoint(nullptr);
    }
    void TearDown() override
    {
        SetEndpoint(nullptr);
        KeyTest::TearDown();
    }
    static void SetEndpoint(const char* url)
    {
        SetEnvironmentVariableW(TEXT("IDENTITY_ENDPOINT"), url ? Wide(url).c_str() : nullptr);
    }
    // Lines of level 1, but for the transport's.
    Lines SignInErrors() const
    {
        Lines lines;
        for (const std::string& line : ErrorLines()) {
            if (line.rfind("KVCDoWebCall", 0) != 0)
                lines.push_back(line);
        }
        return lines;
    }
    static json Status(int status, const std::string& body)
    {
        return {{"action", "status"}, {"status", status}, {"body", body}};
    }
};

TEST_F(SignInTest, AnIdentityServerThatRefusesOrIsFalseIsALogonFailure)
{
    constexpr DWORD kApplication = 2;
    constexpr DWORD kMachine = 1;
    const std::string unknown = ReadServiceSample("error-400-identity-not-found");
    const std::string posted = "KVCAuthenticate KVCDoWebCall failure Error 0x1";
    const std::string returned = std::string(kIdentity) + "Code Error ";
    const std::string text = std::string(kIdentity) + "String ";
    const std::string noFile = "/no/such/file.key";
    const json challenge = {
        {"action", "raw"},
        {"raw",
         "HTTP/1.1 401 Unauthorized\r\nConnection: close\r\nContent-Length: 2\r\nWWW-Authenticate: Basic realm=" +
             noFile + "\r\n\r\nno"}};
    const struct {
        const char* name;
        DWORD method;
        const char* endpoint;
        const char* certificate;  // of the TLS listener
        json fault;               // of any token path
        Lines lines;
    } rows[] = {
        {"wrong secret",
         kApplication,
         nullptr,
         "good",
         Status(401, ReadServiceSample("error-401-client-secret")),
         {posted}},
        {"another host's certificate", kApplication, nullptr, "wrong-host", nullptr, {posted}},
        {"an unknown authority", kApplication, nullptr, "unknown-root", nullptr, {posted}},
        {"no JSON", kApplication, nullptr, "good", Status(200, "<html>"), {}},
        {"an answer without a token", kApplication, nullptr, "good", Status(200, "{}"), {}},
        {"no such identity", kMachine, nullptr, "good", Status(400, unknown), {returned + "0x190", text + unknown}},
        {"no JSON of the metadata service", kMachine, nullptr, "good", Status(200, "<html>"), {}},
        {"a challenge that names no file",
         kMachine,
         kArc,
         "good",
         challenge,
         {"KVCAuthenticate MSIAuthenticate failure - Could not open secret file " + noFile, returned + "0x191",
          text + "no"}},
    };
    AddRsaKey("web");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        sim.Control("DELETE", "/faults");
        sim.Control("PUT", "/certificate", {{"mode", row.certificate}});
        if (!row.fault.is_null()) {
            json fault = row.fault;
            fault["path"] = "oauth2/token";
            fault["times"] = 2;
            sim.Fault(fault);
        }
        SetEndpoint(row.endpoint);
        root.SetNumber(HKEY_LOCAL_MACHINE, "AuthenticationType", row.method);
        OpenProvider();
        root.ClearLog();
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ(Hex(SEC_E_LOGON_DENIED),
                  Hex(table->OpenKey(provider, &key, TEXT("web"), 0, NCRYPT_MACHINE_KEY_FLAG)));
        EXPECT_EQ(0u, key);
        Lines expected = row.lines;
        expected.insert(expected.end(), {"KVCAuthenticate Logon failure contoso-keys",
                                         "KelvaroOpenKey Authenticate Failed  Error 0x8009030c",
                                         "KelvaroOpenKey Error Error 0x8009030c"});
        EXPECT_EQ(expected, SignInErrors());
        PVOID state = nullptr;
        EXPECT_EQ(Hex(SEC_E_LOGON_DENIED), Hex(Next(&state).status));
        EXPECT_EQ(Lines{}, sim.VaultRequests());
        FreeProvider(provider);
    }
}

TEST_F(SignInTest, WithoutSettingsTheIdentityOfTheMachineSignsInAndNamesTheVault)
{
    const std::string vault = "x0f1e2d3c4b5a69788796a5b";
    sim.Control("PUT", "/vaults/" + vault, {{"tier", "standard"}});
    sim.AddKey(vault, {{"name", "identity-key"}, {"kty", "EC"}, {"crv", "P-384"}});
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    root.RemoveKey(HKEY_CURRENT_USER);
    Reattach();
    sim.ClearJournal();
    for (const DWORD scope : {DWORD{0}, DWORD{NCRYPT_MACHINE_KEY_FLAG}}) {
        PVOID state = nullptr;
        EXPECT_EQ("identity-key", Next(&state, scope).name);
        EXPECT_EQ(0, table->FreeBuffer(state));
    }
    const json journal = sim.Journal();
    ASSERT_EQ(6u, journal.size());
    EXPECT_EQ("169.254.169.254", journal[0]["host"]);
    EXPECT_EQ("/metadata/identity/oauth2/token?resource=https://vault.azure.net&api-version=2018-02-01",
              journal[0]["target"]);
    EXPECT_EQ(vault + ".vault.azure.net", journal[1]["host"]);
    EXPECT_EQ("/keys/identity-key?api-version=2016-10-01", journal[2]["target"]);

    const NCRYPT_KEY_HANDLE key = OpenKey("identity-key");
    EXPECT_EQ(96u, Sign(key, nullptr, Pattern(48), 0).bytes.size());
    FreeKey(key);
    sim.Control("DELETE", "/vaults/" + vault);
}

}  // namespace
