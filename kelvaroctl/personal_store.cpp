#include "kelvaroctl/personal_store.h"

#include "kelvaroctl/failure.h"
#include "kelvaroctl/module_host.h"
#include "kelvaroctl/owner.h"

namespace kelvaroctl {

std::string TimeText(__time64_t seconds)
{
    return UtcText(seconds, "%Y-%m-%dT%H:%M:%SZ");
}

int64_t UnixTime(const FILETIME& time)
{
    constexpr int64_t kUnixEpoch = 11644473600;  // seconds since 1601
    const ULONGLONG ticks = static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return static_cast<int64_t>(ticks / 10000000) - kUnixEpoch;
}

std::string NameText(const CERT_NAME_BLOB& name)
{
    CERT_NAME_BLOB blob = name;
    const DWORD size = CertNameToStrW(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, nullptr, 0);
    WideText text(size, 0);
    CertNameToStrW(X509_ASN_ENCODING, &blob, CERT_X500_NAME_STR, text.data(), size);
    return ToNarrow(text.substr(0, text.find(WCHAR{0})));
}

namespace {

// Bytes; the module only publishes smaller ones.
constexpr size_t kTooLarge = 5000;

Failure PlatformFailure(const std::string& what)
{
    return ConfigurationFailure(what + ": error " + HexNumber(GetLastError()));
}

std::string StoreName(bool machine)
{
    return machine ? "the machine's certificate store" : "the user's certificate store";
}

void CloseStore(HCERTSTORE store)
{
    CertCloseStore(store, 0);
}
using Store = Owner<void, CloseStore>;

Store OpenStore(bool machine, DWORD flags)
{
    const DWORD place = machine ? CERT_SYSTEM_STORE_LOCAL_MACHINE : CERT_SYSTEM_STORE_CURRENT_USER;
    Store store(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, place | flags, TEXT("My")));
    if (!store)
        throw PlatformFailure("cannot open " + StoreName(machine));
    return store;
}

// Empty if the certificate does not have it.
Bytes Property(const CERT_CONTEXT* context, DWORD id)
{
    DWORD size = 0;
    CertGetCertificateContextProperty(context, id, nullptr, &size);
    Bytes value(size);
    const bool read = size && CertGetCertificateContextProperty(context, id, value.data(), &size);
    value.resize(read ? size : 0);
    return value;
}

// Moves on to the store's next certificate; false after the last one.
bool Next(const Store& store, CertificateContext* context)
{
    // Frees the context before it.
    context->reset(CertEnumCertificatesInStore(store.get(), context->release()));
    return *context != nullptr;
}

StoredCertificate Describe(const CERT_CONTEXT* context)
{
    const CERT_INFO& info = *context->pCertInfo;
    StoredCertificate found;
    found.subject = NameText(info.Subject);
    found.start = static_cast<ULONGLONG>(info.NotBefore.dwHighDateTime) << 32 | info.NotBefore.dwLowDateTime;
    found.notBefore = TimeText(UnixTime(info.NotBefore));
    found.end = UnixTime(info.NotAfter);
    found.notAfter = TimeText(found.end);
    found.der.assign(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
    found.thumbprint = HexText(Property(context, CERT_SHA1_HASH_PROP_ID), kUpperHex);
    const Bytes block = Property(context, CERT_KEY_PROV_INFO_PROP_ID);
    if (!block.empty()) {
        const auto* key = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block.data());
        found.container = key->pwszContainerName ? ToNarrow(key->pwszContainerName) : "";
        found.provider = key->pwszProvName ? ToNarrow(key->pwszProvName) : "";
    }
    return found;
}

}  // namespace

bool StoredCertificate::IsBound() const
{
    return provider == ToNarrow(kProviderName);
}

bool StoredCertificate::IsExpired() const
{
    return end < time(nullptr);
}

int64_t StoredCertificate::DaysLeft() const
{
    constexpr int64_t kDay = 24 * 60 * 60;
    const int64_t left = end - time(nullptr);
    return left < 0 ? (left - kDay + 1) / kDay : left / kDay;
}

std::vector<StoredCertificate> ReadPersonalStore(bool machine)
{
    const Store store = OpenStore(machine, CERT_STORE_READONLY_FLAG);
    std::vector<StoredCertificate> found;
    CertificateContext context;
    while (Next(store, &context))
        found.push_back(Describe(context.get()));
    return found;
}

StoredCertificate InstallCertificate(bool machine, const Bytes& der, const std::string& keyName)
{
    const Store store = OpenStore(machine, 0);
    const CERT_CONTEXT* added = nullptr;
    if (!CertAddEncodedCertificateToStore(store.get(), X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(),
                                          static_cast<DWORD>(der.size()), CERT_STORE_ADD_USE_EXISTING, &added))
        throw PlatformFailure("cannot add the certificate to " + StoreName(machine));
    const CertificateContext context(added);
    WideText container = ToWide(keyName);
    WideText provider = kProviderName;
    CRYPT_KEY_PROV_INFO info = {};
    info.pwszContainerName = container.data();
    info.pwszProvName = provider.data();
    info.dwFlags = machine ? NCRYPT_MACHINE_KEY_FLAG : 0;
    if (!CertSetCertificateContextProperty(context.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info))
        throw PlatformFailure("the certificate is in " + StoreName(machine) + ", but cannot be bound to its key");
    return Describe(context.get());
}

std::optional<StoredCertificate> RemoveCertificate(bool machine, const std::string& thumbprint)
{
    const Store store = OpenStore(machine, 0);
    CertificateContext context;
    while (Next(store, &context)) {
        StoredCertificate found = Describe(context.get());
        if (found.thumbprint != thumbprint)
            continue;
        // Frees the context.
        if (!CertDeleteCertificateFromStore(context.release()))
            throw PlatformFailure("cannot remove the certificate from " + StoreName(machine));
        return found;
    }
    return std::nullopt;
}

std::optional<StoredCertificate> CertificateToPublish(bool machine, const std::string& keyName, bool* tooLarge)
{
    std::optional<StoredCertificate> best;
    *tooLarge = false;
    for (const StoredCertificate& found : ReadPersonalStore(machine)) {
        if (!found.IsBound() || found.container != keyName || (best && found.start <= best->start))
            continue;
        if (found.der.size() >= kTooLarge)
            *tooLarge = true;
        else
            best = found;
    }
    return best;
}

}  // namespace kelvaroctl
