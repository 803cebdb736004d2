// Opening and freeing a provider: the settings of both hives, the clients made from them, and the way of the client
// secret.
#include <thread>

#include "support/secrets.h"
#include "tests/provider/provider_fixture.h"
#include "tests/provider/read_only_settings.h"

namespace {

const HKEY kMachine = HKEY_LOCAL_MACHINE;
const HKEY kUser = HKEY_CURRENT_USER;

std::string Text(const BldStr* str)
{
    return Narrow(KVCText(str));
}

// What a client has of one setting, as text.
struct SettingRow {
    const char* name;
    std::string value;  // a number where `number` is set
    bool number;
    std::string unset;
    std::string set;
    std::string (*read)(const KSP_PROVIDER& provider, bool machine);
};

template <BldStr* KVCClient::*field>
std::string ReadString(const KSP_PROVIDER& provider, bool machine)
{
    return Text(ProviderClient(&provider, machine)->*field);
}

template <DWORD KVCClient::*field>
std::string ReadNumber(const KSP_PROVIDER& provider, bool machine)
{
    return std::to_string(ProviderClient(&provider, machine)->*field);
}

std::string ReadTemplate(const KSP_PROVIDER& provider, bool machine)
{
    return Narrow(machine ? provider.machineVaultName : provider.userVaultName);
}

const SettingRow kSettings[] = {
    {"KeyVault", "Contoso.Keys", false, "%G", "Contoso.Keys", ReadTemplate},
    {"KeyVault", "Contoso.Keys", false, "oidguid", "contosokeys", ReadString<&KVCClient::kvname>},
    {"AuthenticationType", "2", true, "1", "2", ReadNumber<&KVCClient::authn>},
    {"TenantId", "tenant", false, "", "tenant", ReadString<&KVCClient::tenant>},
    {"ClientId", "client", false, "", "client", ReadString<&KVCClient::clientId>},
    {"ClientSecret", "secret", false, "", "secret", ReadString<&KVCClient::clientSecret>},
    {"ClientCertID", "cert", false, "", "cert", ReadString<&KVCClient::clientCertId>},
    {"DoDeletePurge", "1", true, "1", "0", ReadNumber<&KVCClient::purgeOnDelete>},
    {"CertificatesOrKeys", "7", true, "1", "0", ReadNumber<&KVCClient::certificateMode>},
    {"ExportableOption", "5", true, "0", "5", ReadNumber<&KVCClient::exportableOption>},
};

TEST_F(ProviderTest, OpensWithoutAnyConfiguration)
{
    root.RemoveKey(kMachine);
    root.RemoveKey(kUser);
    const KSP_PROVIDER* provider = Record(Open());
    for (const bool machine : {true, false}) {
        ASSERT_NE(nullptr, ProviderClient(provider, machine));
        for (const SettingRow& row : kSettings)
            EXPECT_EQ(row.unset, row.read(*provider, machine)) << row.name;
    }
    EXPECT_FALSE(root.Has(kMachine, "ClientSecret"));
    EXPECT_FALSE(root.Has(kMachine, "ClientDPAPISecret"));
}

TEST_F(ProviderTest, SettingsReachTheClientOfTheirHiveAlone)
{
    for (const SettingRow& row : kSettings) {
        for (const bool machine : {true, false}) {
            SCOPED_TRACE(std::string(row.name) + (machine ? " machine" : " user"));
            ClearSettings();
            const HKEY hive = machine ? kMachine : kUser;
            if (row.number)
                root.SetNumber(hive, row.name, static_cast<DWORD>(std::stoul(row.value)));
            else
                root.SetText(hive, row.name, row.value);
            NCRYPT_PROV_HANDLE provider = 0;
            ASSERT_EQ(0, table->OpenProvider(&provider, kProviderName, 0));
            EXPECT_EQ(row.set, row.read(*Record(provider), machine));
            EXPECT_EQ(row.unset, row.read(*Record(provider), !machine));
            EXPECT_EQ(0, table->FreeProvider(provider));

            ClearSettings();
            root.SetText(hive, row.name, row.value, row.number ? REG_SZ : REG_EXPAND_SZ);  // of another type
            ASSERT_EQ(0, table->OpenProvider(&provider, kProviderName, 0));
            EXPECT_EQ(row.unset, row.read(*Record(provider), machine));
            EXPECT_EQ(0, table->FreeProvider(provider));
        }
    }
}

TEST_F(ProviderTest, TextsOverTheirLimitCountAsAbsent)
{
    root.SetText(kMachine, "TenantId", std::string(511, 't'));
    root.SetText(kMachine, "ClientId", std::string(512, 'c'));
    root.SetText(kMachine, "KeyVault", std::string(600, 'v'));
    root.SetText(kMachine, "ClientSecret", std::string(512, 's'));
    root.SetText(kMachine, "ClientDPAPISecret", std::string(4096, 'A'));
    const KSP_PROVIDER* provider = Record(Open());
    EXPECT_EQ(std::string(511, 't'), Text(provider->machineKvc->tenant));
    EXPECT_EQ("", Text(provider->machineKvc->clientId));
    EXPECT_EQ("%G", Narrow(provider->machineVaultName));
    EXPECT_EQ("", Text(provider->machineKvc->clientSecret));
    EXPECT_EQ(std::string(512, 's'), root.GetText(kMachine, "ClientSecret")) << "left as it is";
    EXPECT_TRUE(LinesWith("DPAPI").empty());
}

TEST_F(ProviderTest, ClearSecretMovesUnderProtection)
{
    root.SetText(kMachine, "ClientSecret", "machine secret");
    root.SetText(kUser, "ClientSecret", "user secret");
    const KSP_PROVIDER* first = Record(Open());
    EXPECT_EQ("machine secret", Text(first->machineKvc->clientSecret));
    EXPECT_EQ("user secret", Text(first->userKvc->clientSecret));
    std::vector<std::string> sealed;
    for (const HKEY hive : {kMachine, kUser}) {
        EXPECT_TRUE(root.Has(hive, "ClientSecret"));
        EXPECT_EQ("", root.GetText(hive, "ClientSecret"));
        sealed.push_back(root.GetText(hive, "ClientDPAPISecret"));
        EXPECT_GT(sealed.back().size(), kSecretBufferSize);
    }
    EXPECT_NE(sealed[0], sealed[1]);

    const KSP_PROVIDER* second = Record(Open());
    EXPECT_EQ("machine secret", Text(second->machineKvc->clientSecret));
    EXPECT_EQ("user secret", Text(second->userKvc->clientSecret));
    EXPECT_EQ(sealed[0], root.GetText(kMachine, "ClientDPAPISecret")) << "protected once";
    root.SetText(kMachine, "ClientSecret", "new");
    EXPECT_EQ("new", Text(Record(Open())->machineKvc->clientSecret)) << "a clear one beats a protected one";
    EXPECT_EQ("", root.GetText(kMachine, "ClientSecret"));
    EXPECT_NE(sealed[0], root.GetText(kMachine, "ClientDPAPISecret"));
    EXPECT_EQ("new", Text(Record(Open())->machineKvc->clientSecret));
    EXPECT_EQ(std::string::npos, root.WholeLog().find("machine secret"));
    EXPECT_EQ(std::string::npos, root.WholeLog().find("user secret"));
}

TEST_F(ProviderTest, OpenLogsItsStepsInOrder)
{
    root.SetText(kMachine, "ClientSecret", "s");
    root.SetText(kMachine, "ClientId", "machine-client");
    root.SetText(kUser, "KeyVault", "user-vault");
    Open();
    WCHAR user[257];
    DWORD size = 257;
    ASSERT_TRUE(GetUserNameW(user, &size));
    const std::vector<std::string> expected = {
        "KelvaroOpenProvider " + Narrow(kProviderName) + " " + Narrow(user) + " 4",
        "KelvaroOpenProvider Read Key Vault Names 8",
        "KelvaroOpenProvider Saving Machine DPAPI Secret 8",
        "KelvaroOpenProvider Reading Machine DPAPI Secret 8",
        "KelvaroOpenProvider %G machine-client 8",
        "KelvaroOpenProvider user-vault  8",
    };
    EXPECT_EQ(expected, LinesWith("KelvaroOpenProvider"));
}

TEST_F(ProviderTest, ProtectedValueThatCannotBeReadLeavesTheOpenAlive)
{
    for (const char* sealed : {"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", "not base64!"}) {
        SCOPED_TRACE(sealed);
        root.ClearLog();
        root.SetText(kUser, "ClientDPAPISecret", sealed);
        EXPECT_EQ("", Text(Record(Open())->userKvc->clientSecret));
        EXPECT_TRUE(root.Logged("KelvaroOpenProvider Reading User DPAPI Secret", 8));
        EXPECT_TRUE(root.Logged("KelvaroOpenProvider Failed to Decrypt DPAPI Secret", 8));
        EXPECT_FALSE(root.Has(kUser, "ClientSecret"));
        EXPECT_EQ(sealed, root.GetText(kUser, "ClientDPAPISecret"));
    }
}

TEST_F(ProviderTest, ProtectedSecretWithoutTerminatorEndsWithItsBuffer)
{
    const TextString filled(kSecretBufferSize / sizeof(WCHAR), 'x');
    WCHAR sealed[4096] = {};
    ASSERT_TRUE(ProtectSecret(reinterpret_cast<const BYTE*>(filled.data()), true, sealed, 4096));
    root.SetText(kMachine, "ClientDPAPISecret", Narrow(sealed));
    EXPECT_EQ(std::string(511, 'x'), Text(Record(Open())->machineKvc->clientSecret));
}

TEST_F(ProviderTest, TwoFirstOpensAtOnceBothGetTheSecret)
{
    root.SetText(kMachine, "ClientSecret", "shared");
    std::vector<std::thread> threads;
    std::vector<std::string> secrets(4);
    for (std::string& secret : secrets) {
        threads.emplace_back([this, &secret] {
            NCRYPT_PROV_HANDLE provider = 0;
            EXPECT_EQ(0, table->OpenProvider(&provider, kProviderName, 0));
            secret = Text(Record(provider)->machineKvc->clientSecret);
            EXPECT_EQ(0, table->FreeProvider(provider));
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<std::string>(4, "shared"), secrets);
    EXPECT_EQ("", root.GetText(kMachine, "ClientSecret"));
    EXPECT_EQ("shared", Text(Record(Open())->machineKvc->clientSecret));
}

TEST_F(ProviderTest, WithoutWriteAccessTheClearSecretStaysAndServes)
{
    root.SetText(kMachine, "ClientSecret", "old");
    Open();
    root.SetText(kMachine, "ClientSecret", "new");
    const std::string sealed = root.GetText(kMachine, "ClientDPAPISecret");
    {
        const ReadOnlySettings readOnly(root);
        EXPECT_EQ("new", Text(Record(Open())->machineKvc->clientSecret));
    }
    EXPECT_EQ("new", root.GetText(kMachine, "ClientSecret"));
    EXPECT_EQ(sealed, root.GetText(kMachine, "ClientDPAPISecret"));
    EXPECT_EQ("new", Text(Record(Open())->machineKvc->clientSecret));
    EXPECT_EQ("", root.GetText(kMachine, "ClientSecret"));
}

TEST_F(ProviderTest, RecordHoldsHeaderAndANameOf65534BytesAtTheMost)
{
    NCRYPT_PROV_HANDLE handle = 0;
    const TextString longest(32766, 'n');
    ASSERT_EQ(0, table->OpenProvider(&handle, longest.c_str(), 0xFFFFFFFF));
    const KSP_PROVIDER* provider = Record(handle);
    EXPECT_EQ(longest, provider->pszName);
    EXPECT_EQ(reinterpret_cast<const WCHAR*>(provider + 1), provider->pszName);
    EXPECT_EQ(sizeof(KSP_PROVIDER) + 65534, provider->cbLength);
    EXPECT_EQ(0x7866ABCEu, provider->dwMagic);
    EXPECT_EQ(0, table->FreeProvider(handle));
}

TEST_F(ProviderTest, RefusedOpensLogStepAndEntryPoint)
{
    const TextString tooLong(32767, 'n');
    const struct {
        const char* text;
        bool withOutput;
        const WCHAR* name;
    } rows[] = {
        {"phProvider NULL", false, nullptr},
        {"pszProviderName NULL", true, nullptr},
        {"cbProviderName too long", true, tooLong.c_str()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        root.ClearLog();
        NCRYPT_PROV_HANDLE provider = 42;
        EXPECT_EQ(Hex(NTE_INVALID_PARAMETER),
                  Hex(table->OpenProvider(row.withOutput ? &provider : nullptr, row.name, 0)));
        EXPECT_EQ(42u, provider);
        const std::vector<std::string> expected = {
            std::string("KelvaroOpenProvider ") + row.text + " Error 0x80090027 1",
            "KelvaroOpenProvider Error 0x80090027 1",
        };
        EXPECT_EQ(expected, LinesWith("Error"));
    }
}

TEST_F(ProviderTest, HandlesOfAnotherKindAreRefused)
{
    struct Header {
        DWORD cbLength, dwMagic;
    };
    constexpr DWORD kProvider = sizeof(KSP_PROVIDER);
    Header noProviders[] = {{kProvider, 0x7866ABCF}, {kProvider - 1, 0x7866ABCE}, {0, 0x7866ABCE}};
    for (Header& header : noProviders)
        EXPECT_EQ(Hex(NTE_INVALID_HANDLE), Hex(table->FreeProvider(reinterpret_cast<NCRYPT_PROV_HANDLE>(&header))));
    EXPECT_EQ(3u, LinesWith("KelvaroFreeProvider Error 0x80090026 1").size());
    EXPECT_EQ(3u, LinesWith("KelvaroFreeProvider 4").size());

    constexpr DWORD kKey = sizeof(KSP_KEY);
    Header noKeys[] = {{kKey, 0x7866ABCE}, {kKey - 1, 0x7866ABCF}, {0, 0}};
    for (Header& header : noKeys)
        EXPECT_EQ(nullptr, KeyFromHandle(reinterpret_cast<NCRYPT_KEY_HANDLE>(&header)));
    EXPECT_EQ(nullptr, KeyFromHandle(0));
}

TEST_F(ProviderTest, FreeTakesClientsAndContextAlong)
{
    NCRYPT_PROV_HANDLE provider = 0;
    ASSERT_EQ(0, table->OpenProvider(&provider, kProviderName, 0));
    Bytes context = TextBytes("context");
    ASSERT_EQ(0, table->SetProviderProperty(provider, TEXT("Use Context"), context.data(),
                                            static_cast<DWORD>(context.size()), 0));
    // A client that could not be made is passed over.
    KVCDelete(Record(provider)->userKvc);
    Record(provider)->userKvc = nullptr;
    root.ClearLog();
    EXPECT_EQ(0, table->FreeProvider(provider));
    EXPECT_EQ(1u, LinesWith("KVCDelete 8").size());
}

}  // namespace
