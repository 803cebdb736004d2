#include "kelvaroctl/certificate_report.h"
#include "kelvaroctl/commands.h"

namespace kelvaroctl {

namespace {

// Reading this property makes the module publish the certificate when the key handle is released.
constexpr WCHAR kCertificateProperty[] = TEXT("SmartCardKeyCertificate");

// The certificate that a release of the key would publish.
StoredCertificate FindToPublish(const SettingsHive& hive, const std::string& key)
{
    bool tooLarge = false;
    const auto found = CertificateToPublish(hive.isMachine(), key, &tooLarge);
    if (found)
        return *found;
    throw Failure(ExitCode::NotFound, "no_certificate",
                  tooLarge ? "the certificate of '" + key + "' has 5000 bytes or more, which the provider skips"
                           : "no certificate of the " + hive.scope() + " store is bound to '" + key +
                                 "'; install one with kelvaroctl certs install");
}

// Makes the module publish the certificate unless the vault already has it. True if the module then recorded it.
bool Release(std::unique_ptr<Key> key, const SettingsHive& hive, const std::string& hash)
{
    key->Property(kCertificateProperty);
    key.reset();
    return Knows(ReadRecord(hive), hash);
}

// The module records a certificate even if the vault refused to merge it. On a second release it compares with the
// vault's certificate and records only the same one, since the request left pending stops it from sending again.
bool PublishAndReadBack(const Provider& provider, const SettingsHive& hive, std::unique_ptr<Key> key,
                        const std::string& hash)
{
    const std::string name = key->name();
    ForgetHashes(hive, {hash});
    if (!Release(std::move(key), hive, hash))
        return false;
    ForgetHashes(hive, {hash});
    return Release(std::make_unique<Key>(provider, name), hive, hash);
}

Failure NotPublished(const std::string& name, const StoredCertificate& certificate, const std::string& record)
{
    Failure failure(ExitCode::Refused, "not_published",
                    "the vault does not have the certificate of '" + name +
                        "' that is in the store: it refused it, or could not be reached; the log says which. If a "
                        "request is left pending there, delete it before you try again: az keyvault certificate "
                        "pending delete");
    failure.partial =
        std::make_shared<Json>(Json{{"key", name}, {"certificate", CertificateObject(certificate, record)}});
    return failure;
}

}  // namespace

Answer PublishCertificate(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const auto provider = tool.OpenProvider();
    auto key = std::make_unique<Key>(*provider, tool.name);
    const StoredCertificate certificate = FindToPublish(hive, tool.name);
    const bool known = !tool.again && Knows(ReadRecord(hive), certificate.thumbprint);
    if (!known && !PublishAndReadBack(*provider, hive, std::move(key), certificate.thumbprint))
        throw NotPublished(tool.name, certificate, ReadRecord(hive));
    const std::string record = ReadRecord(hive);
    Answer answer = {
        {{"key", tool.name}, {"outcome", known ? "known" : "published"}},
        known ? "already recorded as in step with the vault: nothing was sent; --again compares with the vault\n"
              : "the vault has it\n"};
    AddCertificate(certificate, record, &answer);
    return answer;
}

}  // namespace kelvaroctl
