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
#include "tests/common/sample_certificate.h"

using namespace stress;

namespace {

constexpr WCHAR kHash[] = TEXT("0123456789ABCDEF0123456789ABCDEF01234567,");
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
    Require(BldBinFromBase64(Wide(kSampleCertificate).c_str(), der.data(), &size), "no certificate");
    KVCPropogateCertificateFromKeyVault(TEXT("web"), size, der.data());
    Write(TEXT("CertSync"), kHash);
}

void Check(bool done)
{
    Require(Text(TEXT("KeyVault")) == "vault" && Text(TEXT("TenantId")) == "tenant", "a setting is lost");
    const std::string noted = Text(TEXT("CertSync"));
    const std::multiset<std::string> stored = StoredContainers();
    Require(noted == Narrow(kHash) || (!done && noted.empty()), "CertSync: " + noted);
    const bool unfinished = stored.empty() || stored == std::multiset<std::string>{"unbound"};
    Require(stored == std::multiset<std::string>{"web"} || (!done && unfinished),
            "store: " + (stored.empty() ? "" : *stored.begin()));
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
