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

namespace {

constexpr WCHAR kEntryPoint[] = TEXT("KelvaroOpenProvider");
constexpr WCHAR kClearValue[] = TEXT("ClientSecret");
constexpr WCHAR kProtectedValue[] = TEXT("ClientDPAPISecret");
constexpr size_t kSettingChars = 512;
constexpr size_t kProtectedSecretChars = kSettingTextLimit;
constexpr size_t kNameBytesLimit = 0xFFFF;  // of the provider's name, terminator included

static_assert(kSettingChars * sizeof(WCHAR) == kSecretBufferSize, "the whole buffer of a secret is protected");

// The settings of one hive, without the vault's template.
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

void ReadSettings(HKEY hive, WCHAR (&vaultTemplate)[kVaultTemplateChars], HiveSettings* settings)
{
    SettingsReadText(hive, TEXT("KeyVault"), vaultTemplate, sizeof(vaultTemplate));
    settings->authenticationType = SettingsReadNumber(hive, TEXT("AuthenticationType"));
    SettingsReadText(hive, TEXT("TenantId"), settings->tenant, sizeof(settings->tenant));
    SettingsReadText(hive, TEXT("ClientId"), settings->clientId, sizeof(settings->clientId));
    // The clear secret is read before the encrypted one: an open that moves it writes them in the opposite order, so no
    // reader finds both empty.
    SettingsReadText(hive, kClearValue, settings->secret, sizeof(settings->secret));
    SettingsReadText(hive, kProtectedValue, settings->protectedSecret, sizeof(settings->protectedSecret));
    SettingsReadText(hive, TEXT("ClientCertID"), settings->clientCertId, sizeof(settings->clientCertId));
    settings->doDeletePurge = SettingsReadNumber(hive, TEXT("DoDeletePurge"));
    settings->certificatesOrKeys = SettingsReadNumber(hive, TEXT("CertificatesOrKeys"));
    settings->exportableOption = SettingsReadNumber(hive, TEXT("ExportableOption"));
}

// What became of a clear secret that an open found in the registry.
enum class Sealing {
    Refused,    // the platform didn't encrypt it
    NotStored,  // encrypted in memory; the registry has only the clear form
    Stored,     // the registry has both forms
};

// Encrypts the clear secret into settings->protectedSecret and the registry, unless an administrator has set another
// secret meanwhile: another open may already have stored that one.
Sealing SealSecret(const HivePass& pass, HiveSettings* settings)
{
    LogLine(pass.savingText, LOG_STEP_LEVEL);
    const bool sealed = ProtectSecret(reinterpret_cast<const BYTE*>(settings->secret), pass.forMachine,
                                      settings->protectedSecret, kProtectedSecretChars);
    const SettingText seen[] = {{kClearValue, settings->secret}};
    const bool written = SettingsWriteTextIf(pass.hive, {kProtectedValue, settings->protectedSecret}, seen, 1);
    if (!sealed)
        return Sealing::Refused;
    return written ? Sealing::Stored : Sealing::NotStored;
}

// Decrypts the secret. False, with the secret unchanged, if that fails.
bool LoadProtectedSecret(const HivePass& pass, HiveSettings* settings)
{
    LogLine(pass.readingText, LOG_STEP_LEVEL);
    if (!GetSecretFromDPAPI(settings->protectedSecret, reinterpret_cast<BYTE*>(settings->secret), kSecretBufferSize)) {
        LogLine(TEXT("KelvaroOpenProvider Failed to Decrypt DPAPI Secret"), LOG_STEP_LEVEL);
        return false;
    }
    // A value that another program protected may lack its terminator.
    settings->secret[kSettingChars - 1] = 0;
    return true;
}

// Empties the clear value if both values in the registry are still the ones of this open: a new clear secret is left to
// a later open.
void ClearSecret(const HivePass& pass, const HiveSettings& settings)
{
    const SettingText seen[] = {{kClearValue, settings.secret}, {kProtectedValue, settings.protectedSecret}};
    SettingsWriteTextIf(pass.hive, {kClearValue, TEXT("")}, seen, 2);
}

// Encrypts a clear secret, or decrypts the stored one.
void SettleSecret(const HivePass& pass, HiveSettings* settings)
{
    if (!settings->secret[0]) {
        if (settings->protectedSecret[0])
            LoadProtectedSecret(pass, settings);
        return;
    }
    switch (SealSecret(pass, settings)) {
        case Sealing::Refused:
            // The clear secret is used, not an older encrypted one.
            return;
        case Sealing::NotStored:
            // The registry has no other copy: the clear value stays.
            LoadProtectedSecret(pass, settings);
            return;
        case Sealing::Stored:
            if (LoadProtectedSecret(pass, settings))
                ClearSecret(pass, *settings);
            return;
    }
}

// Reads one hive and builds its client. NULL: no memory.
KVCClient* BuildClient(const HivePass& pass, WCHAR (&vaultTemplate)[kVaultTemplateChars])
{
    HiveSettings settings;
    ReadSettings(pass.hive, vaultTemplate, &settings);
    if (!vaultTemplate[0])
        TextCopyCut(vaultTemplate, kVaultTemplateChars, TEXT("%G"));
    SettleSecret(pass, &settings);
    LogStrings(kEntryPoint, vaultTemplate, settings.clientId, LOG_STEP_LEVEL);
    // Both switches are negated: 0 in the registry means that a deletion purges and that keys are certificates.
    KVCClient* kvc = KVCNew(vaultTemplate, settings.authenticationType, settings.tenant, settings.clientId,
                            settings.secret, settings.clientCertId, settings.doDeletePurge == 0,
                            settings.certificatesOrKeys == 0, settings.exportableOption);
    Wipe(&settings, sizeof(settings));
    return kvc;
}

KSP_PROVIDER* CreateRecord(const WCHAR* name, size_t cbName)
{
    const uint64_t cbLength = sizeof(KSP_PROVIDER) + uint64_t{cbName};
    if (static_cast<DWORD>(cbLength) != cbLength)
        return nullptr;  // cbLength can't hold it
    void* block = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, static_cast<SIZE_T>(cbLength));
    if (!block)
        return nullptr;
    auto* provider = new (block) KSP_PROVIDER{};
    provider->cbLength = static_cast<DWORD>(cbLength);
    provider->dwMagic = KSP_PROVIDER_MAGIC;
    provider->pszName = reinterpret_cast<WCHAR*>(provider + 1);
    memcpy(provider->pszName, name, cbName);
    return provider;
}

// Called only if the line is written: it looks up the user's name.
void LogOpening(const WCHAR* providerName)
{
    WCHAR userName[kUserNameChars];
    FetchUserName(userName);
    LogStrings(kEntryPoint, providerName, userName, LOG_ENTRY_LEVEL);
}

}  // namespace

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
        return FailStatus(FailStatus(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider phProvider NULL")), kEntryPoint);
    if (!pszProviderName)
        return FailStatus(FailStatus(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider pszProviderName NULL")),
                          kEntryPoint);
    const size_t cbName = (View(pszProviderName).size() + 1) * sizeof(WCHAR);
    if (cbName > kNameBytesLimit)
        return FailStatus(FailStatus(NTE_INVALID_PARAMETER, TEXT("KelvaroOpenProvider cbProviderName too long")),
                          kEntryPoint);
    KSP_PROVIDER* provider = CreateRecord(pszProviderName, cbName);
    if (!provider)
        return FailStatus(FailStatus(NTE_NO_MEMORY, TEXT("KelvaroOpenProvider HeapAlloc Failed")), kEntryPoint);

    LogLine(TEXT("KelvaroOpenProvider Read Key Vault Names"), LOG_STEP_LEVEL);
    provider->machineKvc = BuildClient(machinePass, provider->machineVaultName);
    provider->userKvc = BuildClient(userPass, provider->userVaultName);
    *phProvider = reinterpret_cast<NCRYPT_PROV_HANDLE>(provider);  // the host owns it now
    return ERROR_SUCCESS;
}
