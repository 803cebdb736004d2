// Input from the machine: settings, registry text, imported keys, certificate stores.
#include <iterator>
#include <vector>

#include "fuzz/harness.h"
#include "keyvault/kvc.h"
#include "platform/linux/registry_file.h"
#include "provider/key_object.h"
#include "provider/pkcs8_decryption.h"
#include "provider/pkcs8_scheme.h"
#include "support/secrets.h"
#include "support/text.h"

using namespace fuzz;

namespace {

// More iterations would only slow the search.
constexpr DWORD kIterations = 100;

const BYTE* Bytes(std::string_view text)
{
    return reinterpret_cast<const BYTE*>(text.data());
}

// Imports a blob with two parameters.
struct Parameter {
    DWORD kind;
    std::string_view bytes;
};
void Import(const WCHAR* type, std::string_view blob, const Parameter& first, const Parameter& second,
            std::string_view plan)
{
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = Table();
    const NCRYPT_PROV_HANDLE provider = OpenProvider();
    Require(provider != 0);
    const auto buffer = [](const Parameter& parameter) {
        const std::string_view bytes = parameter.bytes;
        return NCryptBuffer{static_cast<DWORD>(bytes.size()), parameter.kind, const_cast<BYTE*>(Bytes(bytes))};
    };
    NCryptBuffer buffers[] = {buffer(first), buffer(second)};
    NCryptBufferDesc list = {NCRYPTBUFFER_VERSION, 2, buffers};
    NCRYPT_KEY_HANDLE handle = 0;
    const auto import = [&] {
        const AllocFault fault = FaultFrom(plan);
        return table.ImportKey(provider, 0, type, &list, &handle, const_cast<BYTE*>(Bytes(blob)),
                               static_cast<DWORD>(blob.size()), NCRYPT_DO_NOT_FINALIZE_FLAG);
    };
    const SECURITY_STATUS status = import();
    Require((status == 0) == (handle != 0));
    if (handle) {
        const KSP_KEY& key = *KeyFromHandle(handle);
        Require(key.dwBitLength >= 2048 && key.dwBitLength <= 4096 && View(key.pszKeyName).size() <= kKeyNameLimit);
        table.FreeKey(provider, handle);
    }
    table.FreeProvider(provider);
}

// Whether decryption would be quick.
bool Quick(const CRYPT_OBJID_BLOB& parameters)
{
    for (const auto decode : {DecodePbes2, DecodePkcs12Pbe}) {
        Pkcs8Encryption encryption;
        if (decode(parameters.pbData, parameters.cbData, &encryption) != ERROR_SUCCESS)
            continue;
        Require(encryption.cipher && encryption.hash && encryption.salt && encryption.cbSalt <= kLongestSalt);
        Require(encryption.iterations >= 1 && encryption.iterations <= kMostIterations);
        Require(encryption.cipher->cbKey <= kLargestCipherKey && encryption.cipher->cbBlock <= kLargestCipherBlock);
        return encryption.iterations <= kIterations;
    }
    return true;
}

}  // namespace

// One line per value: its number, type and bytes. The provider is opened twice: first a plaintext secret is encrypted,
// then it is read.
FUZZ_TARGET(settings)
{
    static const WCHAR* const kNames[] = {
        TEXT("KeyVault"),           TEXT("AuthenticationType"), TEXT("TenantId"),     TEXT("ClientId"),
        TEXT("ClientSecret"),       TEXT("ClientDPAPISecret"),  TEXT("ClientCertID"), TEXT("DoDeletePurge"),
        TEXT("CertificatesOrKeys"), TEXT("ExportableOption"),   TEXT("CertSync"),     TEXT("FromKVLastSyncTime")};
    const std::string_view plan = TakeLine(input);
    const auto set = [](const WCHAR* name, DWORD type, const void* bytes, size_t size) {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, TEXT("Software\\Zandrel\\Kelvaro"), name, type, bytes,
                        static_cast<DWORD>(size));
    };
    // Values without a type count as missing.
    for (const WCHAR* name : kNames)
        set(name, REG_NONE, "", 0);
    while (!input.empty()) {
        const std::string_view line = TakeLine(input);
        if (line.size() < 2)
            continue;
        const DWORD type = static_cast<DWORD>(line[1] - '0') % 8;
        const TextString text = Wide(std::string(line.substr(2)));
        const void* const bytes = type == REG_SZ ? static_cast<const void*>(text.c_str()) : line.data() + 2;
        const size_t size = type == REG_SZ ? (text.size() + 1) * sizeof(WCHAR) : line.size() - 2;
        set(kNames[static_cast<BYTE>(line[0]) % std::size(kNames)], type, bytes, size);
        BYTE secret[kSecretBufferSize];
        if (type == REG_SZ)
            GetSecretFromDPAPI(text.c_str(), secret, sizeof(secret));
    }
    {
        const AllocFault fault = FaultFrom(plan);
        OpenKeyOnce();
        OpenKeyOnce();
    }
    set(kNames[0], REG_SZ, TEXT("vault"), 12);
    const DWORD credentials = KVC_AUTHN_CLIENT_CREDENTIALS;
    set(kNames[1], REG_DWORD, &credentials, sizeof(credentials));
}

// What is written is read back unchanged.
FUZZ_TARGET(registry_text)
{
    RegistryHive hive;
    if (!ParseRegistryFile(input, u"HKEY_LOCAL_MACHINE", &hive))
        return;
    const SecretString first = FormatRegistryFile(hive, u"HKEY_LOCAL_MACHINE");
    RegistryHive again;
    Require(ParseRegistryFile(first, u"HKEY_LOCAL_MACHINE", &again));
    Require(FormatRegistryFile(again, u"HKEY_LOCAL_MACHINE") == first);
}

// In this target and the next two, the first line says what fails.
FUZZ_TARGET(import_blob)
{
    const std::string_view plan = TakeLine(input);
    for (const size_t skipped : {size_t{0}, size_t{1}}) {  // also at an odd address
        if (input.size() <= skipped)
            return;
        const std::string_view blob = input.substr(skipped);
        for (const WCHAR* type : {TEXT("RSAPUBLICBLOB"), TEXT("RSAPRIVATEBLOB")})
            Import(type, blob, {NCRYPTBUFFER_PKCS_KEY_NAME, blob}, {}, plan);
    }
}

FUZZ_TARGET(pkcs8)
{
    const std::string_view plan = TakeLine(input);
    DecodedStructure<CRYPT_ENCRYPTED_PRIVATE_KEY_INFO> encrypted;
    const DWORD size = static_cast<DWORD>(input.size());
    if (size == 0 || (encrypted.Decode(PKCS_ENCRYPTED_PRIVATE_KEY_INFO, Bytes(input), size) &&
                      !Quick(encrypted->EncryptionAlgorithm.Parameters)))
        return;
    constexpr std::string_view kSecret("s\0e\0c\0r\0e\0t\0", 12);
    Import(TEXT("PKCS8_PRIVATEKEY"), input, {NCRYPTBUFFER_PKCS_KEY_NAME, kSecret}, {NCRYPTBUFFER_PKCS_SECRET, kSecret},
           plan);
}

// The store's size in two bytes, the store, and the envelope. The recipient's key is in the container "box".
FUZZ_TARGET(envelope)
{
    const std::string_view plan = TakeLine(input);
    const std::string_view all = input;
    if (all.size() < 3)
        return;
    const size_t size = static_cast<BYTE>(all[0]) * 256u + static_cast<BYTE>(all[1]);
    const std::string_view store = all.substr(2, size);
    const std::string_view message = all.substr(2 + store.size());
    if (!message.empty())
        Import(TEXT("PKCS7_ENVELOPE"), message, {NCRYPTBUFFER_PKCS_KEY_NAME, {}}, {NCRYPTBUFFER_CERT_BLOB, store},
               plan);
}

FUZZ_TARGET(serialized_store)
{
    CRYPT_DATA_BLOB blob = {static_cast<DWORD>(input.size()), const_cast<BYTE*>(Bytes(input))};
    const HCERTSTORE store = CertOpenStore(CERT_STORE_PROV_SERIALIZED, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0,
                                           CERT_STORE_CREATE_NEW_FLAG, &blob);
    if (!store)
        return;
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(store, certificate)) != nullptr) {
        DWORD size = 0;
        if (!CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &size))
            continue;
        std::vector<uint64_t> room(size / sizeof(uint64_t) + 1);
        Require(CertGetCertificateContextProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID, room.data(), &size) !=
                FALSE);
        const auto* const info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(room.data());
        Require(info->pwszContainerName && info->cProvParam == 0);
    }
    CertCloseStore(store, CERT_CLOSE_STORE_FORCE_FLAG);
}
