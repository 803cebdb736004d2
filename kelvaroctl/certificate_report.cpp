#include "kelvaroctl/certificate_report.h"

#include "kelvaroctl/certificate_record.h"

namespace kelvaroctl {

Json CertificateObject(const StoredCertificate& certificate, const std::string& record)
{
    return {{"subject", certificate.subject},
            {"thumbprint", certificate.thumbprint},
            {"notBefore", certificate.notBefore},
            {"notAfter", certificate.notAfter},
            {"expired", certificate.IsExpired()},
            {"container", certificate.container.empty() ? Json(nullptr) : Json(certificate.container)},
            {"provider", certificate.provider.empty() ? Json(nullptr) : Json(certificate.provider)},
            {"bound", certificate.IsBound()},
            {"inStep", Knows(record, certificate.thumbprint)}};
}

static std::string KeyWords(const StoredCertificate& certificate)
{
    if (certificate.IsBound())
        return "bound to '" + Printable(certificate.container) + "'";
    return certificate.provider.empty() ? "no key" : "key of another provider";
}

std::vector<std::string> CertificateRow(const StoredCertificate& certificate, const std::string& record)
{
    const size_t kDay = sizeof("2026-01-31") - 1;
    return {certificate.thumbprint,
            certificate.notBefore.substr(0, kDay) + " to " + certificate.notAfter.substr(0, kDay) +
                (certificate.IsExpired() ? ", expired" : ""),
            KeyWords(certificate), Knows(record, certificate.thumbprint) ? "in step" : "-",
            Printable(certificate.subject)};
}

}  // namespace kelvaroctl
