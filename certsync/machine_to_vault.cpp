#include "certsync/machine_to_vault.h"

#include <string.h>

#include "certsync/cert_sync_list.h"
#include "certsync/certificate_fetch.h"
#include "certsync/store_search.h"
#include "keyvault/key_certificate_creation.h"
#include "support/log.h"
#include "support/text.h"

namespace {

// The certificate to publish. On the heap: a host's thread may have a small stack.
struct Candidate {
    BYTE cert[kCertificateBytes];
    DWORD certSize;
    BYTE hash[kCertificateHashBytes];
    DWORD hashSize;
    WCHAR subject[kSubjectChars];
};

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

// True if the vault has the certificate, or if its key could be read after the attempt to merge it.
bool BringIntoStep(KVC* kvc, const PublishedKey& key, const WCHAR* encodedName, const Candidate& candidate)
{
    KVCFreeKVKey(key.kvk);  // the creation fills it again
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

// False: no memory.
bool Publish(KVCClient* client, const PublishedKey& key, const WCHAR* encodedName, BldStr* list, Candidate* candidate)
{
    if (!FindCandidate(key, candidate))
        return true;
    const HashText hash(candidate->hash, candidate->hashSize);
    LogString(TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Found Certificate Hash"), hash.text(), LOG_DETAIL_LEVEL);
    if (TextContains(list->cStr, View(hash.text())))
        return true;
    LogString(TEXT("KelvaroSetKeyProperty EvaluateCertsInStore Found Certificate"), candidate->subject,
              LOG_DETAIL_LEVEL);
    const KVCCall call(client ? KVCBeginCall(client) : nullptr);
    if (!call)
        return false;
    KVCTakeHeldToken(call.get());
    if (BringIntoStep(call.get(), key, encodedName, *candidate))
        Record(key, list, hash);
    return true;
}

}  // namespace

void PublishKeyCertificate(KVCClient* client, const PublishedKey& key)
{
    const BldStrPtr list = ReadCertSync(key.isMachine);
    LogString(TEXT("KelvaroFreeKey publishCert"), key.name, LOG_RELEASE_LEVEL);
    WCHAR encodedName[kEncodedNameChars] = {};
    int encoded = 0;
    // The vault can't have a certificate with a name that can't be encoded.
    if (!KVCConvertClearKeyNameToEncoded(key.name, encodedName, &encoded))
        return;
    const MallocPtr<Candidate> candidate(static_cast<Candidate*>(calloc(1, sizeof(Candidate))));
    if (!list || !candidate || !Publish(client, key, encodedName, list.get(), candidate.get()))
        LogLine(TEXT("KelvaroFreeKey publishCert Out of memory"), LOG_ERROR_LEVEL);
}
