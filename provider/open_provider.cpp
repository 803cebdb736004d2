#include <string.h>

#include <new>

#include "provider/entry_points.h"
#include "provider/provider.h"
#include "provider/user_name.h"
#include "support/guards.h"
#include "support/log.h"
#include "support/secrets.h"
#include "support/settings.h"
#include "support/text.h"

static constexpr WCHAR kEntryPoint[] = TEXT("KelvaroOpenProvider");
static constexpr size_t kSettingChars = 512;
static constexpr size_t kProtectedSecretChars = 4096;
static constexpr size_t kNameBytesLimit = 0xFFFF;  // of the provider's name, terminator included

static_assert(kSettingChars * sizeof(WCHAR) == kSecretBufferSize, "the whole buffer of a secret is protected");

// What one hive says, but for the vault's template.
struct HiveSettings {
    DWORD authenticationType;
    WCHAR tenant[kSettingChars];
    WCHAR clientId[kSettingChars];
    WCHAR secret[kSettingChars];
    WCHAR protectedSecret[kProtectedSecretChars];
    WCHAR clientCertId[kSettingChars];
    DWORD doDeletePurge;
    DWORD certificatesOrKeys;
    DWORD exportableOption;
};

struct HivePass {
    HKEY hive;
    bool forMachine;
    const WCHAR* savingText;
    const WCHAR* readingText;
};

static void ReadSettings(HKEY hive, WCHAR (&vaultTemplate)[kVaultTemplateChars], HiveSettings* settings)
{
    SettingsReadText(hive, TEXT("KeyVault"), vaultTemplate, sizeof(vaultTemplate));
    settings->authenticationType = SettingsReadNumber(hive, TEXT("AuthenticationType"));
    SettingsReadText(hive, TEXT("TenantId"), settings->tenant, sizeof(settings->tenant));
    SettingsReadText(hive, TEXT("ClientId"), settings->clientId, sizeof(settings->clientId));
    // The clear secret before the protected one: an open that is about to move it writes them in the other order, so
    // that nobody ever finds both empty.
    SettingsReadText(hive, TEXT("ClientSecret"), settings->secret, sizeof(settings->secret));
    SettingsReadText(hive, TEXT("ClientDPAPISecret"), settings->protectedSecret, sizeof(settings->protectedSecret));
    SettingsReadText(hive, TEXT("ClientCertID"), settings->clientCertId, sizeof(settings->clientCertId));
    settings->doDeletePurge = SettingsReadNumber(hive, TEXT("DoDeletePurge"));
    settings->certificatesOrKeys = SettingsReadNumber(hive, TEXT("CertificatesOrKeys"));
    settings->exportableOption = SettingsReadNumber(hive, TEXT("ExportableOption"));
}

// Puts a clear secret under protection. *stored: the registry now holds it in protected form.
static void SaveProtectedSecret(const HivePass& pass, HiveSettings* settings, bool* sealed, bool* stored)
{
    LogLine(pass.savingText, LOG_STEP_LEVEL);
    *sealed = ProtectSecret(reinterpret_cast<const BYTE*>(settings->secret), pass.forMachine, settings->protectedSecret,
                            kProtectedSecretChars);
    *stored = SettingsWriteText(pass.hive, TEXT("ClientDPAPISecret"), settings->protectedSecret) && *sealed;
}

// Takes the secret from its protected form. mayClear: the clear value may leave the registry after that.
static void LoadProtectedSecret(const HivePass& pass, HiveSettings* settings, bool mayClear)
{
    LogLine(pass.readingText, LOG_STEP_LEVEL);
    if (!GetSecretFromDPAPI(settings->protectedSecret, reinterpret_cast<BYTE*>(settings->secret), kSecretBufferSize)) {
        LogLine(TEXT("KelvaroOpenProvider Failed to Decrypt DPAPI Secret"), LOG_STEP_LEVEL);
        return;
    }
    // A value that another program protected may lack its terminator.
    settings->secret[kSettingChars - 1] = 0;
    if (mayClear)
        SettingsWriteText(pass.hive, TEXT("ClientSecret"), TEXT(""));
}

static void SettleSecret(const HivePass& pass, HiveSettings* settings)
{
    // A clear secret that could not be stored in protected form stays where it is: the registry has no other copy.
    bool sealed = true;
    bool stored = true;
    if (settings->secret[0])
        SaveProtectedSecret(pass, settings, &sealed, &stored);
    // An older protected secret doesn't take the place of a clear one that could not be sealed.
    if (sealed && settings->protectedSecret[0])
        LoadProtectedSecret(pass, settings, stored);
}

// Reads one hive and builds its client. NULL: no memory.
static KVC* BuildClient(const HivePass& pass, WCHAR (&vaultTemplate)[kVaultTemplateChars])
{
    HiveSettings settings;
    ReadSettings(pass.hive, vaultTemplate, &settings);
    if (!vaultTemplate[0])
        TextCopyCut(vaultTemplate, kVaultTemplateChars, TEXT("%G"));
    SettleSecret(pass, &settings);
    LogStrings(kEntryPoint, vaultTemplate, settings.clientId, LOG_STEP_LEVEL);
    // Both switches travel negated: 0 in the registry means that a deletion purges and that keys live as certificates.
    KVC* kvc = KVCNew(vaultTemplate, settings.authenticationType, settings.tenant, settings.clientId, settings.secret,
                      settings.clientCertId, settings.doDeletePurge == 0, settings.certificatesOrKeys == 0,
                      settings.exportableOption);
    Wipe(&settings, sizeof(settings));
    return kvc;
}

static KSP_PROVIDER* CreateRecord(const WCHAR* name, size_t cbName)
{
    const size_t cbLength = sizeof(KSP_PROVIDER) + cbName;
    void* block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, cbLength);
    if (!block)
        return nullptr;
    auto* provider = new (block) KSP_PROVIDER{};
    provider->cbLength = static_cast<DWORD>(cbLength);
    provider->dwMagic = KSP_PROVIDER_MAGIC;
    provider->pszName = reinterpret_cast<WCHAR*>(provider + 1);
    memcpy(provider->pszName, name, cbName);
    return provider;
}

// The user's name is looked up for this line alone.
static void LogOpening(const WCHAR* providerName)
{
    WCHAR userName[kUserNameChars];
    FetchUserName(userName);
    LogStrings(kEntryPoint, providerName, userName, LOG_ENTRY_LEVEL);
}

SECURITY_STATUS WINAPI KelvaroOpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName, DWORD /*dwFlags*/)
{
    static const HivePass machinePass = {HKEY_LOCAL_MACHINE, true,
                                         TEXT("KelvaroOpenProvider Saving Machine DPAPI Secret"),
                                         TEXT("KelvaroOpenProvider Reading Machine DPAPI Secret")};
    static const HivePass userPass = {HKEY_CURRENT_USER, false, TEXT("KelvaroOpenProvider Saving User DPAPI Secret"),
                                      TEXT("KelvaroOpenProvider Reading User DPAPI Secret")};

    if (LogGateOpen(LOG_ENTRY_LEVEL))
        LogOpening(pszProviderName);
    if (!phProvider)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider phProvider NULL"), kEntryPoint);
    if (!pszProviderName)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider pszProviderName NULL"), kEntryPoint);
    const size_t cbName = (View(pszProviderName).size() + 1) * sizeof(WCHAR);
    if (cbName > kNameBytesLimit)
        return Fail(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider cbProviderName too long"), kEntryPoint);
    KSP_PROVIDER* provider = CreateRecord(pszProviderName, cbName);
    if (!provider)
        return Fail(NTE_NO_MEMORY, TEXT("KelvaroOpenProvider HeapAlloc Failed"), kEntryPoint);

    LogLine(TEXT("KelvaroOpenProvider Read Key Vault Names"), LOG_STEP_LEVEL);
    provider->machineKvc = BuildClient(machinePass, provider->machineVaultName);
    provider->userKvc = BuildClient(userPass, provider->userVaultName);
    *phProvider = reinterpret_cast<NCRYPT_PROV_HANDLE>(provider);  // the host owns it now
    return ERROR_SUCCESS;
}
