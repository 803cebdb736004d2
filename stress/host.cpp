#include "stress/host.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "provider/entry_points.h"
#include "tests/common/client_settings.h"

namespace stress {

constexpr WCHAR kProvider[] = TEXT("Zandrel Key Storage Provider for Key Vault");

void Require(bool holds, const std::string& text)
{
    if (!holds)
        throw std::runtime_error(text);
}

std::string StatusName(SECURITY_STATUS status)
{
    static const std::map<SECURITY_STATUS, const char*> kNames = {
        {ERROR_SUCCESS, "0"},
        {NTE_FAIL, "NTE_FAIL"},
        {NTE_NOT_FOUND, "NTE_NOT_FOUND"},
        {NTE_INVALID_PARAMETER, "NTE_INVALID_PARAMETER"},
        {NTE_BAD_SIGNATURE, "NTE_BAD_SIGNATURE"},
        {NTE_NO_MORE_ITEMS, "NTE_NO_MORE_ITEMS"},
        {NTE_NO_MEMORY, "NTE_NO_MEMORY"},
        {NTE_BAD_DATA, "NTE_BAD_DATA"},
        {NTE_INTERNAL_ERROR, "NTE_INTERNAL_ERROR"},
        {NTE_NOT_SUPPORTED, "NTE_NOT_SUPPORTED"},
        {SEC_E_LOGON_DENIED, "SEC_E_LOGON_DENIED"},
    };
    const auto found = kNames.find(status);
    if (found != kNames.end())
        return found->second;
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08x", static_cast<unsigned>(status));
    return text;
}

const NCRYPT_KEY_STORAGE_FUNCTION_TABLE* FunctionTable()
{
    static NCRYPT_KEY_STORAGE_FUNCTION_TABLE* const table = [] {
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* found = nullptr;
        Require(GetKeyStorageInterface(kProvider, &found, 0) == 0, "no function table");
        return found;
    }();
    return table;
}

Host::Host() : table(FunctionTable())
{
    sim.Reset();
    // Making an RSA key would take longer than the rest.
    std::ifstream pem(KELVARO_RSA_KEY);
    sim.AddKey(Simulator::kVault, {{"name", "rsa"}, {"pem", std::string(std::istreambuf_iterator<char>(pem), {})}});
    sim.AddKey(Simulator::kVault, {{"name", "p256"}, {"kty", "EC"}, {"crv", "P-256"}});
    WriteClientSettings(root);
}

std::multiset<std::string> StoredContainers()
{
    std::multiset<std::string> names;
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, TEXT("My"));
    for (PCCERT_CONTEXT each = nullptr; store && (each = CertEnumCertificatesInStore(store, each)) != nullptr;) {
        std::vector<uint64_t> room(128);
        DWORD size = static_cast<DWORD>(room.size() * sizeof(uint64_t));
        const BOOL bound = CertGetCertificateContextProperty(each, CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size);
        const auto* const info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
        names.insert(bound ? Narrow(info->pwszContainerName) : "unbound");
    }
    if (store)
        CertCloseStore(store, 0);
    return names;
}

NCRYPT_PROV_HANDLE Host::OpenProvider()
{
    NCRYPT_PROV_HANDLE provider = 0;
    Require(table->OpenProvider(&provider, kProvider, 0) == 0, "no provider");
    return provider;
}

NCRYPT_KEY_HANDLE Host::OpenKey(NCRYPT_PROV_HANDLE provider, const std::string& name)
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status = table->OpenKey(provider, &key, Wide(name).c_str(), 0, NCRYPT_MACHINE_KEY_FLAG);
    Require(status == 0, "cannot open " + name + ": " + StatusName(status));
    return key;
}

NCRYPT_KEY_HANDLE Host::NewKey(NCRYPT_PROV_HANDLE provider, const std::string& name)
{
    NCRYPT_KEY_HANDLE key = 0;
    const SECURITY_STATUS status =
        table->CreatePersistedKey(provider, &key, TEXT("ECDSA_P256"), Wide(name).c_str(), 0, NCRYPT_MACHINE_KEY_FLAG);
    Require(status == 0, "cannot create " + name + ": " + StatusName(status));
    return key;
}

SECURITY_STATUS Host::Sign(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key, bool rsa)
{
    BCRYPT_PKCS1_PADDING_INFO padding = {BCRYPT_SHA256_ALGORITHM};
    BYTE hash[32] = {1, 2, 3};
    BYTE signature[256];
    DWORD size = 0;
    return table->SignHash(provider, key, rsa ? &padding : nullptr, hash, sizeof(hash), signature, sizeof(signature),
                           &size, rsa ? BCRYPT_PAD_PKCS1 : 0);
}

}  // namespace stress
