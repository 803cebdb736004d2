#include "kelvaroctl/certificate_file.h"

#include <algorithm>

#include "kelvaroctl/der.h"
#include "kelvaroctl/failure.h"
#include "kelvaroctl/files.h"
#include "kelvaroctl/owner.h"

namespace kelvaroctl {

constexpr size_t kLargestCertificateFile = 1024 * 1024;

std::vector<Bytes> ReadCertificateFile(const std::string& name)
{
    const Bytes content = ReadInput(name, kLargestCertificateFile);
    std::vector<Bytes> found;
    size_t at = 0;
    while (auto der = ReadPem(AsText(content), "CERTIFICATE", name, &at))
        found.push_back(std::move(*der));
    if (found.empty() && !content.empty() && content[0] == kDerSequence)
        found.push_back(content);
    if (found.empty())
        throw UsageFailure(name + " contains no certificate in PEM or DER");
    return found;
}

bool IsCertificateOf(const Bytes& der, const PublicKey& key)
{
    const CertificateContext context(CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(),
                                                                  static_cast<DWORD>(der.size())));
    if (!context)
        throw UsageFailure("the file contains no certificate that the platform can read");
    const CRYPT_BIT_BLOB& bits = context->pCertInfo->SubjectPublicKeyInfo.PublicKey;
    // The structure ends with the bits, preceded by the count of unused ones.
    const Bytes whole = SubjectPublicKeyInfo(key);
    if (bits.cUnusedBits || bits.cbData + 1 > whole.size() || whole[whole.size() - bits.cbData - 1])
        return false;
    return std::equal(bits.pbData, bits.pbData + bits.cbData, whole.end() - static_cast<std::ptrdiff_t>(bits.cbData));
}

}  // namespace kelvaroctl
