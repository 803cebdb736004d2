// The work that ended.sh interrupts, and checks of the result. Uses no network.
//   stress_ended prepare KIND  creates a root with a plaintext secret. KIND "moved": an older one is already encrypted;
//                              "fresh": there is no master key yet
//   stress_ended work          encrypts the secrets, changes settings of both hives, adds, binds and removes
//                              certificates, and writes a log past midnight
//   stress_ended check         nothing is damaged, each setting has its old or new value, and no secret is lost
//   stress_ended done          the same, and everything that `work` does is done
//   stress_ended whole         after an import: nothing is damaged, and all or none of the imported settings are new
//   stress_ended imported      the same, and all are new
#include <iostream>
#include <vector>

#include "certsync/certificate_store.h"
#include "certsync/vault_to_machine.h"
#include "provider/provider.h"
#include "stress/host.h"
#include "support/base64.h"
#include "support/settings.h"
#include "support/text.h"
#include "tests/common/sample_certificate.h"
#include "tests/common/test_clock.h"

using namespace stress;

namespace {

const HKEY kHives[] = {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER};
constexpr int kChanged = 9;  // settings of each hive that `work` changes; the first two are imported too
constexpr const char* kImported[] = {"ClientId", "ClientCertID"};
constexpr int kUntouched = 60;  // other settings of the machine
constexpr WCHAR kHash[] = TEXT("0123456789ABCDEF0123456789ABCDEF01234567,");

std::string Text(HKEY hive, const std::string& name)
{
    WCHAR text[4096];
    SettingsReadText(hive, Wide(name).c_str(), text, sizeof(text));
    return Narrow(text);
}

void Write(HKEY hive, const std::string& name, const std::string& text)
{
    SettingsWriteText(hive, Wide(name).c_str(), Wide(text).c_str());
}

std::string Changed(int number)
{
    return number < 2 ? kImported[number] : "Changed" + std::to_string(number);
}

void WriteChanged(const char* text)
{
    for (const HKEY hive : kHives) {
        for (int i = 0; i < kChanged; ++i)
            Write(hive, Changed(i), text);
    }
}

// Opens a provider. Returns the secrets that it found, of the machine and of the user.
std::string OpenOnce()
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = FunctionTable();
    NCRYPT_PROV_HANDLE provider = 0;
    Require(table->OpenProvider(&provider, TEXT("provider"), 0) == 0, "no provider");
    const KSP_PROVIDER* const opened = ProviderFromHandle(provider);
    const std::string secrets =
        Narrow(KVCText(opened->machineKvc->clientSecret)) + " " + Narrow(KVCText(opened->userKvc->clientSecret));
    table->FreeProvider(provider);
    return secrets;
}

void WriteSecrets(const std::string& text)
{
    for (const HKEY hive : kHives)
        Write(hive, "ClientSecret", text);
}

void Prepare(bool moved)
{
    for (const HKEY hive : kHives) {
        HKEY key = nullptr;
        Require(RegCreateKeyExW(hive, TEXT("Software\\Zandrel\\Kelvaro"), 0, nullptr, 0, KEY_WRITE, nullptr, &key,
                                nullptr) == 0,
                "no settings");
        RegCloseKey(key);
        Write(hive, "KeyVault", "vault");
        Write(hive, "TenantId", "tenant");
    }
    for (int i = 0; i < kUntouched; ++i)
        Write(HKEY_LOCAL_MACHINE, "Untouched" + std::to_string(i), "as it was");
    WriteChanged("old");
    if (moved) {
        WriteSecrets("old");
        Require(OpenOnce() == "old old" && Text(HKEY_LOCAL_MACHINE, "ClientSecret").empty(),
                "a secret isn't encrypted");
    }
    WriteSecrets("new");
    SettingsWriteNumber(HKEY_LOCAL_MACHINE, TEXT("LoggingLevel"), 4);
}

// Binds the certificate to the name, first adding it if it is missing.
void StoreCertificate(const WCHAR* name)
{
    std::vector<BYTE> der(1000);
    DWORD size = static_cast<DWORD>(der.size());
    Require(BldBinFromBase64(Wide(kSampleCertificate).c_str(), der.data(), &size), "no certificate");
    KVCPropogateCertificateFromKeyVault(name, size, der.data());
}

void RemoveCertificates()
{
    const HCERTSTORE store = OpenPersonalStore(true, StoreAccess::Write);
    PCCERT_CONTEXT first = nullptr;
    while (store && (first = CertEnumCertificatesInStore(store, nullptr)) != nullptr &&
           CertDeleteCertificateFromStore(first)) {
    }
    if (store)
        CertCloseStore(store, 0);
}

void Work()
{
    TestClock clock;
    clock.Set(1700000000);
    OpenOnce();
    WriteChanged("new");
    StoreCertificate(TEXT("first"));
    StoreCertificate(TEXT("replaced"));
    RemoveCertificates();
    clock.Advance(24 * 3600);
    OpenOnce();
    StoreCertificate(TEXT("web"));
    Write(HKEY_LOCAL_MACHINE, "CertSync", Narrow(kHash));
}

void CheckSettings(HKEY hive, bool done = false)
{
    Require(Text(hive, "KeyVault") == "vault" && Text(hive, "TenantId") == "tenant", "a setting is lost");
    for (int i = 0; i < kUntouched && hive == HKEY_LOCAL_MACHINE; ++i)
        Require(Text(hive, "Untouched" + std::to_string(i)) == "as it was", "an unrelated setting is lost");
    for (int i = 0; i < kChanged; ++i) {
        const std::string value = Text(hive, Changed(i));
        Require(value == "new" || (!done && value == "old"), "a setting is '" + value + "'");
    }
}

void CheckImport(bool done)
{
    for (const HKEY hive : kHives) {
        CheckSettings(hive);
        for (const char* name : kImported)
            Require(Text(hive, name) == (done ? "new" : Text(hive, kImported[0])), "the import is incomplete");
    }
}

void Check(bool done)
{
    for (const HKEY hive : kHives)
        CheckSettings(hive, done);
    const std::string noted = Text(HKEY_LOCAL_MACHINE, "CertSync");
    Require(noted == Narrow(kHash) || (!done && noted.empty()), "CertSync: " + noted);
    const std::multiset<std::string> stored = StoredContainers();
    const std::string only = stored.empty() ? "" : *stored.begin();
    const bool unfinished = only.empty() || only == "first" || only == "replaced" || only == "unbound";
    Require(stored.size() <= 1 && (only == "web" || (!done && unfinished)), "store: " + only);
    Require(OpenOnce() == "new new", "a secret is lost");
    for (const HKEY hive : kHives)
        Require(Text(hive, "ClientSecret").empty(), "a secret is still in plaintext");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string what = argc > 1 ? argv[1] : "";
    try {
        if (what == "prepare")
            Prepare(argc > 2 && std::string(argv[2]) == "moved");
        else if (what == "work")
            Work();
        else if (what == "whole" || what == "imported")
            CheckImport(what == "imported");
        else
            Check(what == "done");
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
