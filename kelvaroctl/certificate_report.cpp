#include "kelvaroctl/certificate_report.h"

#include <algorithm>

namespace kelvaroctl {

static const char kRecordValue[] = "CertSync";

std::string ReadRecord(const SettingsHive& hive)
{
    const auto value = hive.Read(kRecordValue);
    return value && value->type == REG_SZ ? ToNarrow(TextIn(value->bytes)) : "";
}

bool Knows(const std::string& record, const std::string& hash)
{
    return record.find(hash) != std::string::npos;
}

std::vector<std::string> HashesOf(const std::string& record)
{
    std::vector<std::string> hashes;
    for (const std::string_view hash : Split(record, ",")) {
        if (!hash.empty())
            hashes.emplace_back(hash);
    }
    return hashes;
}

// Writes only what has changed.
static void WriteRecord(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    if (hashes == HashesOf(ReadRecord(hive)))
        return;
    std::string record;
    for (const std::string& hash : hashes)
        record += hash + ",";
    hive.Write(kRecordValue, TextValue(ToWide(record)));
}

void ForgetHashes(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    std::vector<std::string> kept;
    for (const std::string& hash : HashesOf(ReadRecord(hive))) {
        if (std::find(hashes.begin(), hashes.end(), hash) == hashes.end())
            kept.push_back(hash);
    }
    WriteRecord(hive, kept);
}

void RememberHashes(const SettingsHive& hive, const std::vector<std::string>& hashes)
{
    const std::string record = ReadRecord(hive);
    std::vector<std::string> all = HashesOf(record);
    for (const std::string& hash : hashes) {
        if (!Knows(record, hash))
            all.push_back(hash);
    }
    WriteRecord(hive, all);
}

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

void AddCertificate(const StoredCertificate& certificate, const std::string& record, Answer* answer)
{
    answer->object["certificate"] = CertificateObject(certificate, record);
    answer->text += Columns({CertificateRow(certificate, record)}, 2);
}

}  // namespace kelvaroctl
