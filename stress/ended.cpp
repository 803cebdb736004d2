// What ended.sh interrupts, and the look at what is left. No network.
//   stress_ended prepare   a root with an old secret under protection and a new one in clear
//   stress_ended work      moves the secret, stores a certificate, notes it down; writes a log
//   stress_ended check     nothing is damaged, and the secret is the new one
//   stress_ended done      and all that `work` does is there
#include <iostream>
#include <vector>

#include "certsync/vault_to_machine.h"
#include "provider/provider.h"
#include "stress/host.h"
#include "support/base64.h"
#include "support/settings.h"
#include "support/text.h"

using namespace stress;

namespace {

constexpr WCHAR kHash[] = TEXT("0123456789ABCDEF0123456789ABCDEF01234567,");
// Self-signed, for "CN=web".
constexpr WCHAR kCertificate[] =
    TEXT("MIIBcjCCARmgAwIBAgIUCHIXVN2ASC8nr181GSY2l026twcwCgYIKoZIzj0EAwIwDjEMMAoGA1UEAwwDd2ViMCAXDT")
        TEXT("I2MTEyMzEzMTYzM1oYDzIxMjYxMDMwMTMxNjMzWjAOMQwwCgYDVQQDDAN3ZWIwWTATBgcqhkjOPQIBBggqhkjOPQMB")
            TEXT("BwNCAASSvbhwvcoq7K+HjCj+b1VCTVFPhRGcDMEwZOYz/5FquACI/3KVdHtAl66z1WMEGxQRoaW8r+ACLIly5A3p6M")
                TEXT("sMo1MwUTAdBgNVHQ4EFgQUUQpEcd0HC2cbBmHqv/zAAfLXeoMwHwYDVR0jBBgwFoAUUQpEcd0HC2cbBmHqv/zAAfLX")
                    TEXT("eoMwDwYDVR0TAQH/BAUwAwEB/zAKBggqhkjOPQQDAgNHADBEAiAFot4VabttfH2fi9IWnoGqwZsjPC07brkrEDZAU7")
                        TEXT("10qAIgFzqEEWRfwBI2LQgrhNDwigyjGvnX1ItlM+1P/lGCj8Y=");

std::string Text(const WCHAR* name)
{
    WCHAR text[4096];
    SettingsReadText(HKEY_LOCAL_MACHINE, name, text, sizeof(text));
    return Narrow(text);
}

void Write(const WCHAR* name, const WCHAR* text)
{
    SettingsWriteText(HKEY_LOCAL_MACHINE, name, text);
}

// The secret that an open finds.
std::string OpenOnce()
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = FunctionTable();
    NCRYPT_PROV_HANDLE provider = 0;
    Require(table->OpenProvider(&provider, TEXT("provider"), 0) == 0, "no provider");
    const KVCClient* const client = ProviderFromHandle(provider)->machineKvc;
    const std::string secret = Narrow(KVCText(client->clientSecret));
    table->FreeProvider(provider);
    return secret;
}

void Prepare()
{
    HKEY key = nullptr;
    Require(RegCreateKeyExW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), 0, nullptr, 0, KEY_WRITE, nullptr,
                            &key, nullptr) == 0,
            "no settings");
    RegCloseKey(key);
    Write(TEXT("KeyVault"), TEXT("vault"));
    Write(TEXT("TenantId"), TEXT("tenant"));
    Write(TEXT("ClientSecret"), TEXT("old"));
    Require(OpenOnce() == "old" && Text(TEXT("ClientSecret")).empty(), "the old secret isn't moved");
    Write(TEXT("ClientSecret"), TEXT("new"));
    SettingsWriteNumber(HKEY_LOCAL_MACHINE, TEXT("LoggingLevel"), 8);
}

void Work()
{
    OpenOnce();
    std::vector<BYTE> der(1000);
    DWORD size = static_cast<DWORD>(der.size());
    Require(BldBinFromBase64(kCertificate, der.data(), &size), "no certificate");
    KVCPropogateCertificateFromKeyVault(TEXT("web"), size, der.data());
    Write(TEXT("CertSync"), kHash);
}

// The containers of the machine's store; fails if a certificate can't be read.
std::string Containers()
{
    std::string names;
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, TEXT("My"));
    for (PCCERT_CONTEXT each = nullptr; store && (each = CertEnumCertificatesInStore(store, each)) != nullptr;) {
        std::vector<uint64_t> room(128);
        DWORD size = static_cast<DWORD>(room.size() * sizeof(uint64_t));
        const BOOL bound = CertGetCertificateContextProperty(each, CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size);
        names +=
            bound ? Narrow(reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data())->pwszContainerName) : "unbound";
    }
    if (store)
        CertCloseStore(store, 0);
    return names;
}

void Check(bool done)
{
    Require(Text(TEXT("KeyVault")) == "vault" && Text(TEXT("TenantId")) == "tenant", "a setting is lost");
    const std::string noted = Text(TEXT("CertSync"));
    const std::string stored = Containers();
    Require(noted == Narrow(kHash) || (!done && noted.empty()), "CertSync: " + noted);
    Require(stored == "web" || (!done && (stored.empty() || stored == "unbound")), "store: " + stored);
    Require(OpenOnce() == "new", "the secret is lost");
    Require(Text(TEXT("ClientSecret")).empty(), "the secret stays in clear");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    try {
        if (what == "prepare")
            Prepare();
        else if (what == "work")
            Work();
        else
            Check(what == "done");
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
