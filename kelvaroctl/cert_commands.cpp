#include <algorithm>

#include "kelvaroctl/certificate_file.h"
#include "kelvaroctl/certificate_report.h"
#include "kelvaroctl/commands.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

namespace {

// The vault's key that a certificate is bound to.
struct VaultKey {
    const char* word;  // in the JSON answer
    const char* text;
};
constexpr VaultKey kMatches = {"matches", "the vault's key"};
constexpr VaultKey kOther = {"other", "the vault has a different key of this name"};
constexpr VaultKey kMissing = {"missing", "the vault has no such key"};

const VaultKey& Compare(const Provider& provider, const StoredCertificate& certificate)
{
    try {
        const Key key(provider, certificate.container);
        return IsCertificateOf(certificate.der, ParsePublicBlob(key.PublicBlob())) ? kMatches : kOther;
    } catch (const Failure& failure) {
        if (failure.exit() != ExitCode::NotFound)
            throw;
        return kMissing;
    }
}

// The key's certificate, or the first one if none is.
const Bytes& Choose(const std::vector<Bytes>& certificates, const PublicKey& key, bool* isKeys)
{
    for (const Bytes& certificate : certificates) {
        *isKeys = IsCertificateOf(certificate, key);
        if (*isKeys)
            return certificate;
    }
    return certificates.front();
}

}  // namespace

Answer ListCertificates(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const std::string record = ReadRecord(hive);
    const auto provider = tool.check ? tool.OpenProvider() : nullptr;
    Answer answer = {{{"scope", hive.scope()}, {"certificates", Json::array()}}};
    std::vector<std::vector<std::string>> rows;
    for (const StoredCertificate& certificate : ReadPersonalStore(hive.isMachine())) {
        Json object = CertificateObject(certificate, record);
        std::vector<std::string> row = CertificateRow(certificate, record);
        if (tool.check && certificate.IsBound()) {
            const VaultKey& found = Compare(*provider, certificate);
            object["vaultKey"] = found.word;
            row.insert(row.end() - 1, found.text);
            if (&found != &kMatches)
                answer.exit = ExitCode::Negative;
        } else if (tool.check) {
            row.insert(row.end() - 1, "-");
        }
        answer.object["certificates"].push_back(std::move(object));
        rows.push_back(std::move(row));
    }
    answer.text = rows.empty() ? "no certificates in the " + hive.scope() + " store\n" : Columns(rows);
    return answer;
}

Answer InstallCertificateFile(Tool& tool)
{
    const std::vector<Bytes> certificates = ReadCertificateFile(tool.input);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, tool.key);
    bool isKeys = false;
    const Bytes& certificate = Choose(certificates, ParsePublicBlob(key.PublicBlob()), &isKeys);
    if (!isKeys && !tool.force) {
        throw UsageFailure("the public key of the certificate in " + tool.input + " is not that of '" + tool.key +
                           "'; --force installs it anyway");
    }
    const SettingsHive hive = tool.hive();
    const StoredCertificate installed = InstallCertificate(hive.isMachine(), certificate, tool.key);
    const std::string record = ReadRecord(hive);
    Answer answer = {{{"scope", hive.scope()}, {"key", tool.key}, {"publicKeyMatches", isKeys}}};
    if (!isKeys)
        tool.Warn("the certificate's public key is not that of '" + tool.key + "'");
    if (installed.IsExpired())
        tool.Warn("the certificate expired on " + installed.notAfter +
                  ": once published, the vault will refuse to sign with its key");
    answer.text = "installed in the " + hive.scope() + " store and bound to '" + Printable(tool.key) +
                  (isKeys ? "', whose public key it has\n" : "', whose public key it does not have\n");
    AddCertificate(installed, record, &answer);
    return answer;
}

// In the store's form; people paste it with spaces or colons.
static std::string Thumbprint(const std::string& text)
{
    constexpr size_t kSha1 = 20;
    std::string digits = text;
    digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());
    Bytes bytes;
    if (!ParseHex(digits, &bytes) || bytes.size() != kSha1)
        throw UsageFailure("'" + text +
                           "' is not a thumbprint: 40 hexadecimal digits, as 'kelvaroctl certs list' has them");
    return HexText(bytes, kUpperHex);
}

Answer RemoveStoredCertificate(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const std::string thumbprint = Thumbprint(tool.thumbprint);
    Json object = {{"scope", hive.scope()}, {"thumbprint", thumbprint}, {"removed", false}};
    if (!tool.yes && !Confirmed("Remove the certificate from the " + hive.scope() + " store?"))
        return {object, "not removed\n", ExitCode::Negative};
    const std::string record = ReadRecord(hive);
    const auto removed = RemoveCertificate(hive.isMachine(), thumbprint);
    if (!removed)
        throw Failure(ExitCode::NotFound, "no_certificate",
                      "the " + hive.scope() + " store has no certificate " + thumbprint);
    object["removed"] = true;
    Answer answer = {object, "removed from the " + hive.scope() + " store\n"};
    AddCertificate(*removed, record, &answer);
    if (Knows(record, thumbprint))
        answer.text += "the vault keeps it; kelvaroctl certs sync may bring it back, the provider's own sync doesn't\n";
    return answer;
}

}  // namespace kelvaroctl
