#include "platform/linux/certificate.h"

#include <openssl/evp.h>

#include <new>

#include "platform/linux/outcome.h"

namespace {

// Windows' structures have no const members.
CRYPT_INTEGER_BLOB BlobOf(std::string_view bytes)
{
    BYTE* data = reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
    return {static_cast<DWORD>(bytes.size()), bytes.empty() ? nullptr : data};
}

CRYPT_BIT_BLOB BitBlobOf(const BitStringParts& parts)
{
    const CRYPT_INTEGER_BLOB blob = BlobOf(parts.bytes);
    return {blob.cbData, blob.pbData, parts.unusedBits};
}

}  // namespace

LONG Certificate::Parse(std::string_view encoded)
{
    LONG error = ERROR_SUCCESS;
    DerReader outer(encoded, &error);
    const DerElement whole = outer.TakeAny();
    if (error == ERROR_SUCCESS && whole.tag != kDerSequence)
        error = CRYPT_E_ASN1_BADTAG;
    der_ = whole.whole;
    DerReader certificate = outer.Inside(std::string_view(der_).substr(whole.whole.size() - whole.content.size()));
    DerReader toBeSigned = certificate.Inside(certificate.Take(kDerSequence));
    ReadInfo(&toBeSigned);
    TakeAlgorithm(&certificate);
    SplitBitString(certificate.Take(kDerBitString), &certificate);
    return error;
}

void Certificate::ReadInfo(DerReader* toBeSigned)
{
    DerReader version = toBeSigned->Inside(toBeSigned->TakeOptional(DerContext(0)));
    info_.dwVersion = version.AtEnd() ? CERT_V1 : SmallNumber(version.Take(kDerInteger), &version);
    texts_.push_back(Reversed(toBeSigned->Take(kDerInteger)));
    info_.SerialNumber = BlobOf(texts_.back());
    info_.SignatureAlgorithm = AlgorithmOf(TakeAlgorithm(toBeSigned));
    info_.Issuer = BlobOf(TakeName(toBeSigned));
    DerReader validity = toBeSigned->Inside(toBeSigned->Take(kDerSequence));
    info_.NotBefore = TakeTime(&validity);
    info_.NotAfter = TakeTime(&validity);
    info_.Subject = BlobOf(TakeName(toBeSigned));
    const PublicKeyParts publicKey = TakePublicKey(toBeSigned);
    info_.SubjectPublicKeyInfo = {AlgorithmOf(publicKey.algorithm), BitBlobOf(publicKey.key)};
    if (toBeSigned->NextTag() == DerContext(1, false))
        info_.IssuerUniqueId = BitBlobOf(SplitBitString(toBeSigned->TakeAny().content, toBeSigned));
    if (toBeSigned->NextTag() == DerContext(2, false))
        info_.SubjectUniqueId = BitBlobOf(SplitBitString(toBeSigned->TakeAny().content, toBeSigned));
    if (toBeSigned->NextTag() != DerContext(3))
        return;
    DerReader tagged = toBeSigned->Inside(toBeSigned->TakeAny().content);
    DerReader extensions = tagged.Inside(tagged.Take(kDerSequence));
    ReadExtensions(&extensions);
}

void Certificate::ReadExtensions(DerReader* extensions)
{
    while (!extensions->AtEnd()) {
        DerReader one = extensions->Inside(extensions->Take(kDerSequence));
        CERT_EXTENSION extension = {};
        extension.pszObjId = Keep(TakeObjectId(&one));
        const std::string_view critical = one.TakeOptional(kDerBoolean);
        extension.fCritical = critical.empty() || critical[0] == 0 ? FALSE : TRUE;
        extension.Value = BlobOf(one.Take(kDerOctetString));
        extensions_.push_back(extension);
    }
    info_.cExtension = static_cast<DWORD>(extensions_.size());
    info_.rgExtension = extensions_.data();
}

LPSTR Certificate::Keep(std::string text)
{
    texts_.push_back(std::move(text));
    return texts_.back().data();
}

CRYPT_ALGORITHM_IDENTIFIER Certificate::AlgorithmOf(const AlgorithmParts& parts)
{
    return {Keep(parts.objectId), BlobOf(parts.parameters)};
}

std::string Sha1Of(std::string_view bytes)
{
    std::string digest(kSha1Size, '\0');
    // Fails only when memory runs out.
    if (EVP_Digest(bytes.data(), bytes.size(), reinterpret_cast<BYTE*>(digest.data()), nullptr, EVP_sha1(), nullptr) !=
        1)
        throw std::bad_alloc();
    return digest;
}
