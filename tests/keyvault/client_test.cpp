// Building and releasing clients, and the vault's name out of its template.
#include <algorithm>
#include <cctype>

#include "keyvault/vault_name.h"
#include "tests/keyvault/client_fixture.h"

namespace {

std::string MachineName()
{
    WCHAR name[256] = {};
    DWORD size = 256;
    GetComputerNameExW(ComputerNameDnsFullyQualified, name, &size);
    return Narrow(name);
}

// The rule of the names, told once more in another way.
std::string Filtered(std::string text)
{
    text.erase(std::remove(text.begin(), text.end(), '.'), text.end());
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char ch) { return static_cast<char>(ch < 128 ? std::tolower(ch) : ch); });
    return text.substr(0, 24);
}

std::string Repeat(const std::string& text, int times)
{
    return times ? text + Repeat(text, times - 1) : "";
}

using ClientObject = ClientTest;

TEST_F(ClientObject, TemplatesBecomeVaultNames)
{
    const std::string machine = MachineName();
    ASSERT_FALSE(machine.empty());
    const struct {
        const char* story;
        std::string nameTemplate;
        std::string name;
    } rows[] = {
        {"a marker for the identity's own name", "%G", "oidguid"},
        {"the marker beside something else is plain text", "kv%G", "kvoidguid"},
        {"the machine's name", "%D", Filtered(machine)},
        {"an empty template is the machine's name", "", Filtered(machine)},
        {"text before the machine's name", "KV-%D", Filtered("KV-" + machine)},
        {"capitals", "CONTOSO-Keys", "contoso-keys"},
        {"dots between letters", "a.b.c", "abc"},
        {"more than the limit", "Abcdefghij.Klmnopqrst.Uvwxyz1234", "abcdefghijklmnopqrstuvwx"},
        {"a lonely percent sign at the end", "vault%", "vault"},
        {"an unknown escape", "%x9", "9"},
        {"escapes are case-sensitive", "%d%g1", "1"},
        {"a doubled percent sign", "a%%b", "ab"},
        {"letters beyond ASCII stay",
         "\xC3\x84"
         "B",
         "\xC3\x84"
         "b"},
        {"what stands behind the buffer's end is cut", Repeat(".", 600) + "abc", ""},
        {"an expansion beyond the buffer", Repeat("%D", 200), Filtered(Repeat(machine, 24))},
    };
    for (const auto& row : rows) {
        WCHAR name[kVaultNameLimit + 1];
        VaultNameFromTemplate(Wide(row.nameTemplate).c_str(), name);
        EXPECT_EQ(row.name, Narrow(name)) << row.story;
    }
}

TEST_F(ClientObject, NewClientCarriesItsConfigurationAndNoToken)
{
    const ClientPtr kvc(
        KVCNew(TEXT("Contoso.Keys"), 0, TEXT("tenant"), TEXT("app"), TEXT("hush-hush"), TEXT("cert"), 1, 2, 3));
    ASSERT_TRUE(kvc);
    EXPECT_EQ("contosokeys", TextOf(kvc->kvname));
    EXPECT_EQ(KVC_AUTHN_MANAGED_IDENTITY, kvc->authn);
    EXPECT_EQ("tenant", TextOf(kvc->tenant));
    EXPECT_EQ("app", TextOf(kvc->clientId));
    EXPECT_EQ("hush-hush", TextOf(kvc->clientSecret));
    EXPECT_EQ("cert", TextOf(kvc->clientCertId));
    EXPECT_EQ(1u, kvc->purgeOnDelete);
    EXPECT_EQ(2u, kvc->certificateMode);
    EXPECT_EQ(3u, kvc->exportableOption);
    EXPECT_EQ(0, kvc->tokenExpiry);
    EXPECT_EQ(nullptr, kvc->accessToken);
    EXPECT_EQ(
        (Strings{"KVCNew KeyVault and Authentication Type 8", "KVCNew KeyVault and Authentication Type contosokeys 0 8",
                 "KVCNew ClientID and Client Cert app cert 8"}),
        root.LogLines());
    EXPECT_EQ(nullptr, KVCNew(nullptr, 1, TEXT("t"), TEXT("c"), TEXT("s"), TEXT("x"), 0, 0, 0));
    EXPECT_TRUE(root.Logged("KVCNew NULL kvname", 1));
    KVCDelete(nullptr);
}

TEST_F(ClientObject, WithoutMemoryThereIsNoHalfClient)
{
    SetLogging(0);
    ClientPtr kvc;
    SweepAllocations([&] { kvc.reset(KVCNew(TEXT("vault"), 2, TEXT("t"), TEXT("c"), TEXT("s"), TEXT("x"), 0, 0, 0)); },
                     [&](bool whole) { EXPECT_EQ(whole, kvc != nullptr); });
}

TEST_F(ClientObject, ACallGoesByItsClientAndKeepsTheLastError)
{
    const ClientPtr client(KVCNew(TEXT("vault"), 3, TEXT("t"), TEXT("c"), TEXT("s"), TEXT("x"), 1, 2, 7));
    KVC* call = KVCBeginCall(client.get());
    ASSERT_TRUE(call);
    EXPECT_EQ(client.get(), call->client);
    EXPECT_EQ(1u, call->purgeOnDelete);
    EXPECT_EQ(2u, call->certificateMode);
    SetLastError(1234);
    KVCEndCall(call);
    EXPECT_EQ(1234u, GetLastError());
    KVCEndCall(nullptr);

    const AllocFault fault(0);
    EXPECT_EQ(nullptr, KVCBeginCall(client.get()));
}

}  // namespace
