#include "certsync/store_search.h"

#include <string.h>

#include "certsync/certificate_store.h"
#include "platform/product.h"
#include "support/log.h"
#include "support/text.h"

namespace {

constexpr DWORD kProviderInfoBytes = 1000;

// Whether the certificate is bound to this key of this provider.
bool IsBoundTo(const CERT_CONTEXT* context, const WCHAR* keyName)
{
    alignas(CRYPT_KEY_PROV_INFO) BYTE block[kProviderInfoBytes];
    DWORD size = sizeof(block);
    if (!CertGetCertificateContextProperty(context, CERT_KEY_PROV_INFO_PROP_ID, block, &size)) {
        LogError(TEXT("KVCEvaluateCertsInStore CertGetCertificateContextProperty Failed"), GetLastError(),
                 LOG_DETAIL_LEVEL);
        return false;
    }
    const CRYPT_KEY_PROV_INFO* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block);
    LogString(TEXT("KVCEvaluateCertsInStore kspInfoP->pwszContainerName"), info->pwszContainerName, LOG_DETAIL_LEVEL);
    LogString(TEXT("KVCEvaluateCertsInStore kspInfoP->pwszProvName"), info->pwszProvName, LOG_DETAIL_LEVEL);
    return TextEqual(info->pwszContainerName, keyName) && TextEqual(info->pwszProvName, kProviderName);
}

uint64_t StartOf(const CERT_CONTEXT* context)
{
    const FILETIME& time = context->pCertInfo->NotBefore;
    return static_cast<uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

// The outputs, which hold the best certificate so far.
struct Search {
    BYTE* cert;
    DWORD certRoom;
    BYTE* hash;
    DWORD hashRoom;
    WCHAR* subject;
    uint64_t bestStart = 0;
    DWORD bestSize = 0;  // 0: none yet
    DWORD bestHashSize = 0;
};

void Take(const CERT_CONTEXT* context, uint64_t start, Search* search)
{
    memcpy(search->cert, context->pbCertEncoded, context->cbCertEncoded);
    search->bestStart = start;
    search->bestSize = context->cbCertEncoded;
    search->bestHashSize = search->hashRoom;
    if (!CertGetCertificateContextProperty(context, CERT_SHA1_HASH_PROP_ID, search->hash, &search->bestHashSize))
        search->bestHashSize = 0;
    CertNameToStrW(X509_ASN_ENCODING, &context->pCertInfo->Subject, CERT_X500_NAME_STR, search->subject, kSubjectChars);
}

void Consider(const CERT_CONTEXT* context, const WCHAR* keyName, Search* search)
{
    if (!IsBoundTo(context, keyName))
        return;
    LogString(TEXT("KVCEvaluateCertsInStore Found Matching Certificate"), keyName, LOG_DETAIL_LEVEL);
    // Of two that start at the same time the first one wins.
    const uint64_t start = StartOf(context);
    if (start <= search->bestStart)
        return;
    if (context->cbCertEncoded >= search->certRoom) {
        LogLine(TEXT("KVCEvaluateCertsInStore certificate too large"), LOG_DETAIL_LEVEL);
        return;
    }
    Take(context, start, search);
}

}  // namespace

bool KVCEvaluateCertsInStore(int userStore, const WCHAR* keyName, BYTE* cert, DWORD* certSize, BYTE* hash,
                             DWORD* hashSize, WCHAR* subject)
{
    LogString(TEXT("KVCEvaluateCertsInStore store"), userStore ? TEXT("User") : TEXT("Machine"), LOG_STEP_LEVEL);
    LogString(TEXT("KVCEvaluateCertsInStore Look for Certificate"), keyName, LOG_DETAIL_LEVEL);
    const HCERTSTORE store = OpenPersonalStore(userStore == 0, StoreAccess::Read);
    if (!store) {
        LogError(TEXT("KVCEvaluateCertsInStore CertOpenStore Failed"), GetLastError(), LOG_DETAIL_LEVEL);
        return false;
    }
    Search search = {cert, *certSize, hash, *hashSize, subject};
    // Each step of the walk releases the context before it.
    const CERT_CONTEXT* context = nullptr;
    while ((context = CertEnumCertificatesInStore(store, context)))
        Consider(context, keyName, &search);
    if (!CertCloseStore(store, 0))
        LogError(TEXT("KVCEvaluateCertsInStore CertCloseStore Failed"), GetLastError(), LOG_DETAIL_LEVEL);
    if (!search.bestSize) {
        LogString(TEXT("KVCEvaluateCertsInStore Failed to find certificate"), TEXT("Blob"), LOG_DETAIL_LEVEL);
        return false;
    }
    LogString(TEXT("KVCEvaluateCertsInStore Found certificate OK"), TEXT("Blob"), LOG_DETAIL_LEVEL);
    *certSize = search.bestSize;
    *hashSize = search.bestHashSize;
    return true;
}
