#include "kelvaroctl/certificate_file.h"
#include "kelvaroctl/certificate_report.h"
#include "kelvaroctl/commands.h"

namespace kelvaroctl {

namespace {

// The vault's key that a certificate is bound to.
struct VaultKey {
    const char* word;  // for programs
    const char* text;
};
constexpr VaultKey kMatches = {"matches", "the vault's key"};
constexpr VaultKey kOther = {"other", "the vault has another key of this name"};
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

Answer ListCertificates(const Tool& tool, bool check)
{
    const SettingsHive hive = tool.hive();
    const std::string record = ReadRecord(hive);
    const auto provider = check ? tool.OpenProvider() : nullptr;
    Answer answer;
    answer.object = {{"scope", hive.scope()}, {"certificates", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const StoredCertificate& certificate : ReadPersonalStore(hive.isMachine())) {
        Json object = CertificateObject(certificate, record);
        std::vector<std::string> row = CertificateRow(certificate, record);
        if (check && certificate.IsBound()) {
            const VaultKey& found = Compare(*provider, certificate);
            object["vaultKey"] = found.word;
            row.insert(row.end() - 1, found.text);
            if (&found != &kMatches)
                answer.exit = ExitCode::Negative;
        } else if (check) {
            row.insert(row.end() - 1, "-");
        }
        answer.object["certificates"].push_back(std::move(object));
        rows.push_back(std::move(row));
    }
    answer.text = rows.empty() ? "no certificates in the " + hive.scope() + " store\n" : Columns(rows);
    return answer;
}

struct InstallArguments {
    std::string file;
    std::string key;
    bool force = false;
};

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

Answer Install(Tool& tool, const InstallArguments& arguments)
{
    const std::vector<Bytes> certificates = ReadCertificateFile(arguments.file);
    const auto provider = tool.OpenProvider();
    const Key key(*provider, arguments.key);
    bool isKeys = false;
    const Bytes& certificate = Choose(certificates, ParsePublicBlob(key.PublicBlob()), &isKeys);
    if (!isKeys && !arguments.force) {
        throw UsageFailure("the public key of the certificate in " + arguments.file + " is not that of '" +
                           arguments.key + "'; --force installs it anyway");
    }
    const SettingsHive hive = tool.hive();
    const StoredCertificate installed = InstallCertificate(hive.isMachine(), certificate, arguments.key);
    const std::string record = ReadRecord(hive);
    Answer answer;
    answer.object = {{"scope", hive.scope()}, {"key", arguments.key}, {"publicKeyMatches", isKeys}};
    if (!isKeys)
        tool.Warn("the certificate's public key is not that of '" + arguments.key + "'");
    if (installed.IsExpired())
        tool.Warn("the certificate expired on " + installed.notAfter +
                  ": once published, the vault will refuse to sign with its key");
    answer.text = "installed in the " + hive.scope() + " store and bound to '" + Printable(arguments.key) +
                  (isKeys ? "', whose public key it has\n" : "', whose public key it does not have\n");
    AddCertificate(installed, record, &answer);
    return answer;
}

}  // namespace

Command CertsCommand()
{
    const auto check = std::make_shared<bool>(false);
    const Command list = {
        "list",
        "the certificates of the machine's (or with --user the user's) store",
        {{"--check", check.get(),
          "compare each with its key in the vault, one request per certificate; exit code 1 if one doesn't match"}},
        [check](Tool& tool) { return ListCertificates(tool, *check); }};
    const auto to = std::make_shared<InstallArguments>();
    const Command install = {
        "install",
        "install a key's certificate in the store, bound to the key",
        {{"FILE", &to->file, "the certificate, PEM or DER; the key's own is chosen among several", nullptr, kRequired},
         {"--key", &to->key, "the key's name", "NAME", kRequired},
         {"--force", &to->force, "even if it has another public key"}},
        [to](Tool& tool) { return Install(tool, *to); }};
    return {"certs",
            "certificates of keys, in the store and in the vault",
            {},
            {},
            {list, install, PublishCommand(), RemoveCommand(), SyncCommand()}};
}

}  // namespace kelvaroctl
