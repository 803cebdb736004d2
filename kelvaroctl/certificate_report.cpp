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
            {"daysLeft", certificate.DaysLeft()},
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

static std::string ExpiryWords(const StoredCertificate& certificate)
{
    constexpr int64_t kSoon = 30;
    if (certificate.IsExpired())
        return ", expired";
    const int64_t days = certificate.DaysLeft();
    return days < kSoon ? ", " + std::to_string(days) + (days == 1 ? " day left" : " days left") : "";
}

std::vector<std::string> CertificateRow(const StoredCertificate& certificate, const std::string& record)
{
    const size_t kDay = sizeof("2026-01-31") - 1;
    return {certificate.thumbprint,
            certificate.notBefore.substr(0, kDay) + " to " + certificate.notAfter.substr(0, kDay) +
                ExpiryWords(certificate),
            KeyWords(certificate), Knows(record, certificate.thumbprint) ? "in step" : "-",
            Printable(certificate.subject)};
}

}  // namespace kelvaroctl
