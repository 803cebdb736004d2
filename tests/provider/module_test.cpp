// Loading and unloading the module, and opening a provider: settings, secrets, clients, buffers.
#include <thread>

#include "provider/buffer_list.h"
#include "provider/property_list.h"
#include "support/log.h"
#include "support/secrets.h"
#include "tests/provider/provider_fixture.h"

namespace {

std::string Text(const BldStr* str)
{
    return Narrow(KVCText(str));
}

class ModuleTest : public ProviderTest {
  protected:
    // Leaves only the log's directory in the hives.
    void ClearSettings()
    {
        root.RemoveKey(HKEY_LOCAL_MACHINE);
        root.RemoveKey(HKEY_CURRENT_USER);
        root.SetText(HKEY_LOCAL_MACHINE, "LogfilePath", root.logDirectory());
    }
    // Opens a provider, and returns the result of `read` for it.
    template <class Read>
    std::string Opened(Read read)
    {
        NCRYPT_PROV_HANDLE opened = 0;
        EXPECT_EQ(kDone, Hex(table->OpenProvider(&opened, TEXT("name"), 0xFFFFFFFF)));
        const std::string text = read(*reinterpret_cast<const KSP_PROVIDER*>(opened));
        EXPECT_EQ(0, table->FreeProvider(opened));
        return text;
    }
    std::string Secret(bool machine = true)
    {
        return Opened([=](const KSP_PROVIDER& opened) { return Text(ProviderClient(&opened, machine)->clientSecret); });
    }
    static std::string UserName()
    {
        WCHAR user[257];
        DWORD size = 257;
        return GetUserNameW(user, &size) ? Narrow(user) : "";
    }
};

TEST_F(ModuleTest, EveryNameGivesTheOneTable)
{
    for (const WCHAR* name : {TEXT("some other name"), static_cast<const WCHAR*>(nullptr)}) {
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
        EXPECT_EQ(0, GetKeyStorageInterface(name, &found, 0xFFFFFFFF));
        EXPECT_EQ(table, found);
    }
    EXPECT_EQ(1u, table->Version.MajorVersion);
    EXPECT_EQ(0u, table->Version.MinorVersion);
}

TEST_F(ModuleTest, AttachLogsTheProcessAndItsUser)
{
    DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
    EXPECT_EQ(nullptr, KelvaroPropertySemaphore);
    root.ClearLog();
    EXPECT_EQ(TRUE, DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr));
    EXPECT_NE(nullptr, KelvaroPropertySemaphore);
    ASSERT_FALSE(root.LogLines().empty());
    const std::string line = root.LogLines()[0];
    EXPECT_EQ(0u, line.rfind("DllMain DLL_PROCESS_ATTACH ", 0)) << line;
    EXPECT_NE(std::string::npos, line.find("provider_tests")) << line;
    EXPECT_NE(std::string::npos, line.find(" " + UserName() + " 4")) << line;
    root.RemoveKey(HKEY_LOCAL_MACHINE);
    Reattach();
    EXPECT_EQ("Application", Narrow(EventSourceName));
    EXPECT_EQ(0, LogLevel + EVLoggingLevel);
}

// The vault's template and the client's settings.
std::string Settings(const KSP_PROVIDER& opened, bool machine)
{
    const KVCClient& client = *ProviderClient(&opened, machine);
    std::string all = Narrow(machine ? opened.machineVaultName : opened.userVaultName);
    for (const BldStr* text : {client.kvname, client.tenant, client.clientId, client.clientSecret, client.clientCertId})
        all += "|" + Text(text);
    for (const DWORD number : {client.authn, client.purgeOnDelete, client.certificateMode, client.exportableOption})
        all += "|" + std::to_string(number);
    return all;
}

TEST_F(ModuleTest, SettingsReachOnlyTheClientOfTheirHive)
{
    const std::string t511(511, 't'), t512(512, 't');
    const Row<const char*, std::string, std::string> texts[] = {
        // A value, the longest one in the tenant's case, and one that is too long.
        {"KeyVault", "Contoso.Keys", t512}, {"TenantId", t511, t512},
        {"ClientId", "client", t512},       {"ClientSecret", "secret", t512},
        {"ClientCertID", "cert", t512},     {"ClientDPAPISecret", "", std::string(4096, 'A')},
    };
    const std::pair<const char*, DWORD> numbers[] = {
        {"AuthenticationType", 2}, {"DoDeletePurge", 1}, {"CertificatesOrKeys", 7}, {"ExportableOption", 5}};
    const std::string unset = "%G|oidguid|||||1|1|1|0";
    for (const bool machine : {true, false}) {
        SCOPED_TRACE(machine);
        const HKEY hive = machine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
        const auto read = [&](bool of) {
            return Opened([&](const KSP_PROVIDER& opened) { return Settings(opened, of); });
        };
        ClearSettings();
        EXPECT_EQ(unset, read(machine));
        EXPECT_FALSE(root.Has(hive, "ClientSecret"));
        for (const auto& [name, value, tooLong] : texts)
            root.SetText(hive, name, value, REG_EXPAND_SZ);
        for (const auto& [name, number] : numbers)
            root.SetText(hive, name, std::to_string(number));
        EXPECT_EQ(unset, read(machine)) << "of other types";
        for (const auto& [name, value, tooLong] : texts)
            root.SetText(hive, name, value);
        for (const auto& [name, number] : numbers)
            root.SetNumber(hive, name, number);
        EXPECT_EQ("Contoso.Keys|contosokeys|" + t511 + "|client|secret|cert|2|0|0|5", read(machine));
        EXPECT_EQ(unset, read(!machine));
        ClearSettings();
        for (const auto& [name, value, tooLong] : texts)
            root.SetText(hive, name, tooLong);
        EXPECT_EQ(unset, read(machine)) << "too long";
    }
}

TEST_F(ModuleTest, AClearSecretIsProtected)
{
    Lines sealed;
    for (const HKEY hive : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
        const bool machine = hive == HKEY_LOCAL_MACHINE;
        for (const char* text : {machine ? "machine secret" : "user secret", "changed"}) {
            root.SetText(hive, "ClientSecret", text);
            EXPECT_EQ(text, Secret(machine));
            EXPECT_TRUE(root.Has(hive, "ClientSecret"));
            EXPECT_EQ("", root.GetText(hive, "ClientSecret"));
            sealed.push_back(root.GetText(hive, "ClientDPAPISecret"));
            EXPECT_GT(sealed.back().size(), kSecretBufferSize);
            EXPECT_EQ(text, Secret(machine));
            EXPECT_EQ(sealed.back(), root.GetText(hive, "ClientDPAPISecret")) << "protected once";
            EXPECT_EQ(std::string::npos, root.WholeLog().find(text));
        }
        EXPECT_NE(sealed.back(), sealed[sealed.size() - 2]);
    }
    EXPECT_NE(sealed[1], sealed[3]);
}

TEST_F(ModuleTest, AnUnreadableProtectedSecretFailsNoOpen)
{
    root.SetText(HKEY_LOCAL_MACHINE, "ClientSecret", "");
    for (const char* sealed : {"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA", "not base64!"}) {
        root.SetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret", sealed);
        EXPECT_EQ("", Secret());
        EXPECT_EQ(sealed, root.GetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret"));
    }
    // A secret without a terminator ends with its buffer.
    const TextString filled(kSecretBufferSize / sizeof(WCHAR), 'x');
    WCHAR sealed[4096] = {};
    ASSERT_TRUE(ProtectSecret(reinterpret_cast<const BYTE*>(filled.data()), true, sealed, 4096));
    root.SetText(HKEY_LOCAL_MACHINE, "ClientDPAPISecret", Narrow(sealed));
    EXPECT_EQ(std::string(511, 'x'), Secret());
}

TEST_F(ModuleTest, AProviderHoldsItsHeaderAndANameOf65534Bytes)
{
    NCRYPT_PROV_HANDLE handle = 0;
    const TextString longest(32766, 'n');
    ASSERT_EQ(0, table->OpenProvider(&handle, longest.c_str(), 0));
    KSP_PROVIDER* const opened = reinterpret_cast<KSP_PROVIDER*>(handle);
    EXPECT_EQ(longest, opened->pszName);
    EXPECT_EQ(reinterpret_cast<const WCHAR*>(opened + 1), opened->pszName);
    EXPECT_EQ(sizeof(KSP_PROVIDER) + 65534, opened->cbLength);
    EXPECT_EQ(0x7866ABCEu, opened->dwMagic);
    // A provider without a client can be freed.
    KVCDelete(opened->userKvc);
    opened->userKvc = nullptr;
    EXPECT_EQ(0, table->FreeProvider(handle));
}

TEST_F(ModuleTest, FreeBufferFreesListedAndUnlistedBlocks)
{
    const auto block = [] { return HeapAlloc(GetProcessHeap(), 0, 16); };
    void* const listed[] = {block(), block(), block()};
    for (void* each : listed)
        EXPECT_NE(nullptr, KelvaroRegisterBuffer(each, BufferKind::KeyName));
    EXPECT_EQ(nullptr, KelvaroRegisterBuffer(listed[1], BufferKind::KeyName)) << "twice";
    for (void* each : {listed[1], listed[2], listed[0]}) {
        EXPECT_TRUE(KelvaroIsRegistered(each, BufferKind::KeyName));
        EXPECT_FALSE(KelvaroIsRegistered(each, BufferKind::EnumState));
        EXPECT_EQ(0, table->FreeBuffer(each));
        EXPECT_FALSE(KelvaroIsRegistered(each, BufferKind::KeyName));
    }
    EXPECT_EQ(0, table->FreeBuffer(block()));
    EXPECT_EQ(0, table->FreeBuffer(nullptr));
}

// The provider's own lines while a host works, at the level that logs everything: tests/data/host_trace.txt.
TEST_F(ModuleTest, TheTraceOfAHostsCalls)
{
    AddKey("web", "RSA");
    root.SetText(HKEY_CURRENT_USER, "ClientSecret", "");
    root.ClearLog();
    const NCRYPT_KEY_HANDLE key = OpenKey("web");
    const Bytes signature = Sign(key, Pattern(32), BCRYPT_PAD_PSS, "SHA256", 256).bytes;
    Verify(key, Pattern(32), signature, BCRYPT_PAD_PSS, "SHA256");
    Sign(key, {}, BCRYPT_PAD_PSS, nullptr, 0);
    Export(key, "RSAPUBLICBLOB");
    GetKey(key, "Length");
    PVOID state = nullptr;
    Next(&state);
    table->FreeBuffer(state);
    FreeKey(key);
    const NCRYPT_KEY_HANDLE made = Pending("ECDSA_P256", "made");
    EXPECT_EQ(0, Finalize(made));
    Sign(made, Pattern(20));
    EXPECT_EQ(0, table->DeleteKey(provider, made, 0));
    Forget(made);
    FreeProvider(provider);
    std::string trace;
    for (const std::string& line : root.LogLines()) {
        if (line.rfind("Kelvaro", 0) == 0 || line.rfind("DeleteKeyObject", 0) == 0)
            trace += line + "\n";
    }
    std::ifstream file(KELVARO_TEST_DATA "/host_trace.txt");
    std::string expected(std::istreambuf_iterator<char>(file), {});
    expected.replace(expected.find("USER"), 4, UserName());
    EXPECT_EQ(expected, trace);
}

}  // namespace
