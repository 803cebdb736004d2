// CryptSignAndEncodeCertificate: the DER form of a CERT_INFO, and its signature.
#include <string>
#include <string_view>

#include "platform/find_row.h"
#include "platform/linux/object_identifier.h"
#include "platform/linux/outcome.h"
#include "platform/linux/software_key.h"
#include "platform/linux/two_call.h"
#include "platform/linux/win_certificates.h"
#include "platform/linux/x509_parts.h"

namespace {

struct SignatureAlgorithm {
    std::string_view objectId;
    const char* digestName;
};
constexpr SignatureAlgorithm kSignatureAlgorithms[] = {
    {szOID_RSA_SHA1RSA, "SHA1"},
    {szOID_RSA_SHA256RSA, "SHA256"},
    {"1.2.840.113549.1.1.12", "SHA384"},
    {"1.2.840.113549.1.1.13", "SHA512"},
};

// Empty parameters are omitted for these algorithms, and written as NULL for all others.
constexpr std::string_view kWithoutParameters[] = {
    "1.2.840.10040.4.1",   "1.2.840.10040.4.3",   "1.2.840.10045.2.1",   "1.2.840.10045.4.1",
    "1.2.840.10045.4.3.2", "1.2.840.10045.4.3.3", "1.2.840.10045.4.3.4",
};
constexpr std::string_view kNull("\x05\x00", 2);
constexpr std::string_view kEmptyName("\x30\x00", 2);

std::string_view ViewOf(const CRYPT_INTEGER_BLOB& blob)
{
    return BytesOf(blob.pbData, blob.cbData);
}

const char* DigestOf(const CRYPT_ALGORITHM_IDENTIFIER& algorithm)
{
    const std::string_view objectId = algorithm.pszObjId ? algorithm.pszObjId : "";
    const SignatureAlgorithm* known =
        FindRow(kSignatureAlgorithms, [objectId](const SignatureAlgorithm& row) { return row.objectId == objectId; });
    return known ? known->digestName : nullptr;
}

// Adds elements to a sequence. Throws Failure for a part that can't be encoded: an empty element.
class DerSequence {
  public:
    std::string Made() const { return MakeDer(kDerSequence, content_); }

    void Add(std::string_view element)
    {
        if (element.empty())
            throw Failure(E_INVALIDARG);
        content_.append(element);
    }
    void AddObjectId(const char* text)
    {
        std::string content;
        Add(text && ObjectIdFromText(text, &content) ? MakeDer(kDerObjectId, content) : "");
    }

  private:
    std::string content_;
};

std::string MakeAlgorithm(const CRYPT_ALGORITHM_IDENTIFIER& algorithm)
{
    DerSequence made;
    made.AddObjectId(algorithm.pszObjId);
    const bool staysEmpty =
        FindRow(kWithoutParameters, [&](std::string_view objectId) { return objectId == algorithm.pszObjId; });
    if (algorithm.Parameters.cbData != 0)
        made.Add(ViewOf(algorithm.Parameters));
    else if (!staysEmpty)
        made.Add(kNull);
    return made.Made();
}

// The shortest two's complement form of a number that begins with its least significant byte.
std::string MakeInteger(std::string_view littleEndian)
{
    std::string content = Reversed(littleEndian);
    const auto isRedundant = [&content] {
        const bool nextNegative = (static_cast<BYTE>(content[1]) & 0x80) != 0;
        return content[0] == (nextNegative ? '\xFF' : '\0');
    };
    while (content.size() > 1 && isRedundant())
        content.erase(0, 1);
    return MakeDer(kDerInteger, content.empty() ? std::string(1, '\0') : content);
}

std::string MakeBitString(const CRYPT_BIT_BLOB& bits)
{
    if (bits.cUnusedBits > 7)
        return "";
    std::string content(1, static_cast<char>(bits.cUnusedBits));
    return MakeDer(kDerBitString, content.append(BytesOf(bits.pbData, bits.cbData)));
}

std::string_view NameOf(const CERT_NAME_BLOB& name)
{
    return name.cbData == 0 ? kEmptyName : ViewOf(name);
}

std::string MakeExtensions(const CERT_EXTENSION* extensions, DWORD count)
{
    DerSequence all;
    for (DWORD i = 0; i < count; i++) {
        DerSequence one;
        one.AddObjectId(extensions[i].pszObjId);
        if (extensions[i].fCritical)
            one.Add(MakeDer(kDerBoolean, "\xFF"));
        one.Add(MakeDer(kDerOctetString, ViewOf(extensions[i].Value)));
        all.Add(one.Made());
    }
    return all.Made();
}

std::string MakeToBeSigned(const CERT_INFO& info)
{
    DerSequence made;
    if (info.dwVersion != CERT_V1)
        made.Add(MakeDer(DerContext(0), MakeDer(kDerInteger, std::string(1, static_cast<char>(info.dwVersion)))));
    made.Add(MakeInteger(ViewOf(info.SerialNumber)));
    made.Add(MakeAlgorithm(info.SignatureAlgorithm));
    made.Add(NameOf(info.Issuer));
    DerSequence validity;
    validity.Add(MakeTime(info.NotBefore));
    validity.Add(MakeTime(info.NotAfter));
    made.Add(validity.Made());
    made.Add(NameOf(info.Subject));
    DerSequence publicKey;
    publicKey.Add(MakeAlgorithm(info.SubjectPublicKeyInfo.Algorithm));
    publicKey.Add(MakeBitString(info.SubjectPublicKeyInfo.PublicKey));
    made.Add(publicKey.Made());
    if (info.cExtension != 0)
        made.Add(MakeDer(DerContext(3), MakeExtensions(info.rgExtension, info.cExtension)));
    return made.Made();
}

// Unique identifiers are not supported.
bool IsUsable(const CERT_INFO* info)
{
    return info && info->dwVersion <= CERT_V3 && (info->cExtension == 0 || info->rgExtension) &&
           info->IssuerUniqueId.cbData == 0 && info->SubjectUniqueId.cbData == 0;
}

}  // namespace

BOOL WINAPI CryptSignAndEncodeCertificate(HCRYPTPROV_OR_NCRYPT_KEY_HANDLE key, DWORD, DWORD encodingType,
                                          LPCSTR structType, const void* structure,
                                          PCRYPT_ALGORITHM_IDENTIFIER signatureAlgorithm, const void*, BYTE* encoded,
                                          DWORD* size)
{
    const CERT_INFO* info = static_cast<const CERT_INFO*>(structure);
    if ((encodingType & X509_ASN_ENCODING) == 0 || structType != X509_CERT_TO_BE_SIGNED)
        return Fail(ERROR_FILE_NOT_FOUND);
    if (!size || !signatureAlgorithm || !IsUsable(info))
        return Fail(E_INVALIDARG);
    const char* digestName = DigestOf(*signatureAlgorithm);
    if (!digestName)
        return Fail(NTE_BAD_ALGID);
    return Succeeds([&]() -> LONG {
        const std::string toBeSigned = MakeToBeSigned(*info);
        // A size query needs no signature.
        size_t signatureSize = 0;
        Check(SoftwareSignatureSize(key, &signatureSize));
        std::string signature(signatureSize, '\0');
        if (encoded)
            Check(SignWithSoftwareKey(key, digestName, toBeSigned, &signature));
        DerSequence certificate;
        certificate.Add(toBeSigned);
        certificate.Add(MakeAlgorithm(*signatureAlgorithm));
        certificate.Add(MakeDer(kDerBitString, std::string(1, '\0') + signature));
        return GiveOut(certificate.Made(), encoded, size);
    });
}
