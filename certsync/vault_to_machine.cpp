#include "certsync/vault_to_machine.h"

#include <utility>

#include "certsync/cert_sync_list.h"
#include "certsync/certificate_fetch.h"
#include "certsync/certificate_listing.h"
#include "certsync/certificate_store.h"
#include "certsync/known_hashes.h"
#include "keyvault/kvkey.h"
#include "platform/product.h"
#include "support/base64.h"
#include "support/clock.h"
#include "support/log.h"
#include "support/settings.h"
#include "support/text.h"

namespace {

constexpr WCHAR kStampValue[] = TEXT("FromKVLastSyncTime");
// The stamp is written this much ahead of the clock and compared with as much more: a run is due after 1,200 s.
constexpr int64_t kHalfPeriodSeconds = 600;
constexpr WCHAR kDummyName[] = TEXT("Dummy Certificate Name");
constexpr DWORD kSimpleNameChars = 2048;

// Whether a run is due. Records the time before the work, so that a failing vault isn't asked again each time a key is
// opened.
bool ClaimRun()
{
    const int64_t now = ClockUnixTime();
    const int64_t last = SettingsReadNumber(HKEY_LOCAL_MACHINE, kStampValue);
    if (now - last <= kHalfPeriodSeconds)
        return false;
    LogLine(TEXT("KVCSyncCertsFromKVToMachine Time Check"), LOG_DETAIL_LEVEL);
    LogLine(TEXT("KVCSyncCertsFromKVToMachine Update Time"), LOG_DETAIL_LEVEL);
    SettingsWriteNumber(HKEY_LOCAL_MACHINE, kStampValue, static_cast<DWORD>(now + kHalfPeriodSeconds));
    return true;
}

bool FetchAndStore(KVC* kvc, const WCHAR* name)
{
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    CertBlob blob = {};
    return KVCConvertClearKeyNameToEncoded(name, encodedName, &encoded) && KVCGetCert(kvc, encodedName, &blob) &&
           KVCPropogateCertificateFromKeyVault(name, blob.size, blob.der.get());
}

// Handles one entry of the listing. True if the list has grown.
bool SyncEntry(KVC* kvc, const WCHAR* name, const WCHAR* thumbprint, KnownHashes* known)
{
    LogString(TEXT("KVCSyncCertsFromKVToMachine KVCGetCerts Loop Name"), name, LOG_DETAIL_LEVEL);
    LogString(TEXT("KVCSyncCertsFromKVToMachine KVCGetCerts Loop Thumbprint"), thumbprint, LOG_DETAIL_LEVEL);
    BYTE hash[kLongestHash];
    DWORD size = kLongestHash;
    if (!BldBinFromBase64(thumbprint, hash, &size))
        return false;
    const HashText hex(hash, size);
    if (known->Contains(View(hex.text())))
        return false;
    LogString(TEXT("KVCSyncCertsFromKVToMachine Found New Cert"), name, LOG_DETAIL_LEVEL);
    if (!FetchAndStore(kvc, name))
        return false;
    return known->Add(hex.text());
}

// Handles all entries. True if the list has grown.
bool SyncAll(KVC* kvc, KnownHashes* known)
{
    WCHAR** names = nullptr;
    WCHAR** thumbprints = nullptr;
    LONG count = 0;
    if (!KVCGetCerts(kvc, &names, &thumbprints, &count)) {
        LogLine(TEXT("KVCSyncCertsFromKVToMachine KVCGetCerts Failed"), LOG_DETAIL_LEVEL);
        return false;
    }
    LogLine(TEXT("KVCSyncCertsFromKVToMachine KVCGetCerts OK"), LOG_DETAIL_LEVEL);
    if (count < 1) {
        LogNumber(TEXT("KVCSyncCertsFromKVToMachine Count"), TEXT(""), count, LOG_DETAIL_LEVEL);
        // Not KVCGetCertsFree, which would log.
        const HeapPtr<WCHAR*> emptyNames(names);
        const HeapPtr<WCHAR*> emptyThumbprints(thumbprints);
        return false;
    }
    bool changed = false;
    for (LONG i = 0; i < count; i++)
        changed |= SyncEntry(kvc, names[i], thumbprints[i], known);
    KVCGetCertsFree(names, thumbprints);
    return changed;
}

// The subject's simple name, empty if it can't be converted. NULL: no memory.
MallocPtr<WCHAR> SimpleName(const CERT_CONTEXT* context)
{
    MallocPtr<WCHAR> name(static_cast<WCHAR*>(calloc(kSimpleNameChars, sizeof(WCHAR))));
    if (name)
        CertNameToStrW(X509_ASN_ENCODING, &context->pCertInfo->Subject, CERT_SIMPLE_NAME_STR, name.get(),
                       kSimpleNameChars);
    return name;
}

// Lets the certificate find its private key through the provider.
bool Bind(const CERT_CONTEXT* context, const WCHAR* container)
{
    CRYPT_KEY_PROV_INFO info = {};
    info.pwszContainerName = const_cast<WCHAR*>(container);
    info.pwszProvName = const_cast<WCHAR*>(kProviderName);
    info.dwFlags = NCRYPT_MACHINE_KEY_FLAG;
    if (!CertSetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, 0, &info)) {
        LogError(TEXT("KVCPropogateCertificateFromKeyVault Certificate Provider Set FAILED"), GetLastError(),
                 LOG_ERROR_LEVEL);
        return false;
    }
    LogLine(TEXT("KVCPropogateCertificateFromKeyVault Certificate Provider Set OK"), LOG_DETAIL_LEVEL);
    return true;
}

bool AddBound(HCERTSTORE store, const WCHAR* certName, DWORD certSize, const BYTE* certBytes)
{
    const CERT_CONTEXT* added = nullptr;
    if (!CertAddEncodedCertificateToStore(store, kCertificateEncodings, certBytes, certSize,
                                          CERT_STORE_ADD_USE_EXISTING, &added)) {
        LogError(TEXT("KVCPropogateCertificateFromKeyVault CertAddEncodedCertificateToStore FAILED"), GetLastError(),
                 LOG_ERROR_LEVEL);
        return false;
    }
    LogLine(TEXT("KVCPropogateCertificateFromKeyVault Certificate Added to Store OK"), LOG_DETAIL_LEVEL);
    const CertContextPtr context(added);
    return Bind(context.get(), certName);
}

}  // namespace

void KVCSyncCertsFromKVToMachine(KVC* kvc)
{
    LogLine(TEXT("KVCSyncCertsFromKVToMachine"), LOG_STEP_LEVEL);
    if (!ClaimRun())
        return;
    BldStrPtr list = ReadCertSync(true);
    if (!list)
        return;
    LogString(TEXT("KVCSyncCertsFromKVToMachine CertSync"), list->cStr, LOG_DETAIL_LEVEL);
    KnownHashes known(std::move(list));
    if (!SyncAll(kvc, &known))
        return;
    LogString(TEXT("KVCSyncCertsFromKVToMachine Save Changed"), known.list()->cStr, LOG_DETAIL_LEVEL);
    WriteCertSync(true, known.list());
}

bool KVCPropogateCertificateFromKeyVault(const WCHAR* certName, DWORD certSize, const BYTE* certBytes)
{
    LogLine(TEXT("KVCPropogateCertificateFromKeyVault"), LOG_STEP_LEVEL);
    const CertContextPtr context(CertCreateCertificateContext(kCertificateEncodings, certBytes, certSize));
    if (!context) {
        LogError(TEXT("KVCPropogateCertificateFromKeyVault CertCreateCertificateContext Failed"), GetLastError(),
                 LOG_ERROR_LEVEL);
        return false;
    }
    const MallocPtr<WCHAR> subject = SimpleName(context.get());
    if (!subject) {
        LogLine(TEXT("KVCPropogateCertificateFromKeyVault Out of memory"), LOG_ERROR_LEVEL);
        return false;
    }
    // A placeholder for a certificate that the key doesn't have yet.
    if (TextContains(subject.get(), kDummyName)) {
        LogLine(TEXT("KVCPropogateCertificateFromKeyVault Found Dummy Cert"), LOG_DETAIL_LEVEL);
        return true;
    }
    const HCERTSTORE store = OpenPersonalStore(true, StoreAccess::Write);
    if (!store) {
        LogError(TEXT("KVCPropogateCertificateFromKeyVault CertOpenStore FAILED"), GetLastError(), LOG_ERROR_LEVEL);
        return false;
    }
    LogLine(TEXT("KVCPropogateCertificateFromKeyVault Certificate Store Open OK"), LOG_DETAIL_LEVEL);
    const bool bound = AddBound(store, certName, certSize, certBytes);
    if (!CertCloseStore(store, 0))
        LogError(TEXT("KVCPropogateCertificateFromKeyVault CertCloseStore FAILED"), GetLastError(), LOG_ERROR_LEVEL);
    return bound;
}
