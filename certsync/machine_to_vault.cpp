#include "certsync/machine_to_vault.h"

#include <string.h>

#include "certsync/cert_sync_list.h"
#include "certsync/certificate_fetch.h"
#include "certsync/store_search.h"
#include "keyvault/key_certificate_creation.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// The certificate of the store that is to be published. On the heap: a host's thread may have a small stack.
struct Candidate {
    BYTE cert[kCertificateBytes];
    DWORD certSize;
    BYTE hash[kCertificateHashBytes];
    DWORD hashSize;
    WCHAR subject[kSubjectChars];
};

void FailNoMemory()
{
    LogLine(TEXT("KelvaroFreeKey publishCert Out of memory"), LOG_ERROR_LEVEL);
}

bool FindCandidate(const PublishedKey& key, Candidate* candidate)
{
    candidate->certSize = sizeof(candidate->cert);
    candidate->hashSize = sizeof(candidate->hash);
    if (!KVCEvaluateCertsInStore(key.isMachine ? 0 : 1, key.name, candidate->cert, &candidate->certSize,
                                 candidate->hash, &candidate->hashSize, candidate->subject))
        return false;
    if (candidate->certSize && candidate->hashSize)
        return true;
    LogLine(TEXT("KelvaroFreeKey KVCEvaluateCertsInStore Failed - cannot find certificate"), LOG_ERROR_LEVEL);
    if (!candidate->certSize)
        LogLine(TEXT("KelvaroFreeKey KVCEvaluateCertsInStore Failed - tmpCertSiz 0"), LOG_ERROR_LEVEL);
    if (!candidate->hashSize)
        LogLine(TEXT("KelvaroFreeKey KVCEvaluateCertsInStore Failed - tmpCertHashSize 0"), LOG_ERROR_LEVEL);
    return false;
}

bool IsInVault(KVC* kvc, const WCHAR* encodedName, const Candidate& candidate)
{
    const WCHAR* difference = nullptr;
    CertBlob blob = {};
    if (!KVCGetCert(kvc, encodedName, &blob))
        difference = TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Could not find KV Certificate");
    else if (blob.size != candidate.certSize)
        difference = TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Certificate Different Sizes");
    else if (memcmp(blob.der.get(), candidate.cert, blob.size) != 0)
        difference = TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Certificate Different");
    if (difference)
        LogString(difference, candidate.subject, LOG_DETAIL_LEVEL);
    return !difference;
}

// True when the vault holds the certificate, or its key could be read after the attempt to put it there.
bool BringIntoStep(KVC* kvc, const PublishedKey& key, const WCHAR* encodedName, const Candidate& candidate)
{
    KVCFreeKVKey(key.kvk);  // the creation fills it afresh
    if (IsInVault(kvc, encodedName, candidate))
        LogString(TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Certificate Already in KV - Skip Sync"),
                  candidate.subject, LOG_DETAIL_LEVEL);
    else if (!KVCLowLevelCreateKeyCertificate(kvc, key.name, encodedName, key.algName, static_cast<LONG>(key.bitLength),
                                              key.kvk, key.exportPolicy, candidate.cert, candidate.certSize,
                                              candidate.subject))
        return false;
    LogString(TEXT("KelvaroSetKeyProperty KVCLowLevelCreateKeyCertificate OK"), candidate.subject, LOG_DETAIL_LEVEL);
    return true;
}

void Record(const PublishedKey& key, BldStr* list, const HashText& hash)
{
    if (list->length && !BldStrCat(list, TEXT(",")))
        return;
    if (BldStrCat(list, hash.text()))
        WriteCertSync(key.isMachine, list);
}

}  // namespace

void PublishKeyCertificate(KVCClient* client, const PublishedKey& key)
{
    const BldStrPtr list = ReadCertSync(key.isMachine);
    LogString(TEXT("KelvaroFreeKey publishCert"), key.name, LOG_RELEASE_LEVEL);
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    // A name that has no form in the vault has no certificate there either.
    if (!KVCConvertClearKeyNameToEncoded(key.name, encodedName, &encoded))
        return;
    const MallocPtr<Candidate> candidate(static_cast<Candidate*>(calloc(1, sizeof(Candidate))));
    if (!list || !candidate)
        return FailNoMemory();
    if (!FindCandidate(key, candidate.get()))
        return;

    const HashText hash(candidate->hash, candidate->hashSize);
    LogString(TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Found Certificate Hash"), hash.text(), LOG_DETAIL_LEVEL);
    if (TextContains(list->cStr, View(hash.text())))
        return;
    LogString(TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Found Certificate"), candidate->subject,
              LOG_DETAIL_LEVEL);
    const KVCCall call(client ? KVCBeginCall(client) : nullptr);
    if (!call || !KVCTakeHeldToken(call.get()))
        return FailNoMemory();
    if (BringIntoStep(call.get(), key, encodedName, *candidate))
        Record(key, list.get(), hash);
}
