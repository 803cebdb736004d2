#include "kelvaroctl/cert_commands.h"

#include <algorithm>

#include "kelvaroctl/certificate_file.h"
#include "kelvaroctl/personal_store.h"

namespace kelvaroctl {

namespace {

// The property that a host names to have the key's certificate published when the handle is released.
constexpr WCHAR kCertificateProperty[] = TEXT("SmartCardKeyCertificate");
// Opened by `certs sync`; the vault is not expected to hold it.
constexpr char kSyncKeyName[] = "kelvaroctl-certs-sync";
constexpr char kStampValue[] = "FromKVLastSyncTime";

// The hashes of the certificates that the module takes to be in step with the vault.
std::string KnownHashes(const SettingsHive& hive)
{
    const auto value = hive.Read("CertSync");
    return value && value->type == REG_SZ ? ToNarrow(TextOf(*value)) : "";
}

bool Knows(const std::string& hashes, const StoredCertificate& certificate)
{
    return hashes.find(certificate.thumbprint) != std::string::npos;
}

Json CertificateObject(const StoredCertificate& certificate, const std::string& hashes)
{
    return {{"subject", certificate.subject},
            {"thumbprint", certificate.thumbprint},
            {"notBefore", certificate.notBefore},
            {"notAfter", certificate.notAfter},
            {"container", certificate.container.empty() ? Json(nullptr) : Json(certificate.container)},
            {"provider", certificate.provider.empty() ? Json(nullptr) : Json(certificate.provider)},
            {"bound", certificate.IsBound()},
            {"inStep", Knows(hashes, certificate)}};
}

std::string KeyWords(const StoredCertificate& certificate)
{
    if (certificate.IsBound())
        return "bound to '" + Printable(certificate.container) + "'";
    return certificate.provider.empty() ? "no key" : "key of another provider";
}

std::vector<std::string> CertificateRow(const StoredCertificate& certificate, const std::string& hashes)
{
    const size_t kDay = sizeof("2026-01-31") - 1;
    return {certificate.thumbprint,
            certificate.notBefore.substr(0, kDay) + " to " + certificate.notAfter.substr(0, kDay),
            KeyWords(certificate), Knows(hashes, certificate) ? "in step" : "-", Printable(certificate.subject)};
}

Answer ListCertificates(const Tool& tool)
{
    const SettingsHive hive = tool.hive();
    const std::string hashes = KnownHashes(hive);
    Answer answer;
    answer.object = {{"scope", hive.scope()}, {"certificates", Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const StoredCertificate& certificate : ReadPersonalStore(hive.isMachine())) {
        answer.object["certificates"].push_back(CertificateObject(certificate, hashes));
        rows.push_back(CertificateRow(certificate, hashes));
    }
    answer.text = Columns(rows);
    return answer;
}

struct InstallArguments {
    std::string file;
    std::string key;
    bool force = false;
};

// The certificate of the key, or the first one where none is.
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
                           arguments.key + "'; --force installs it all the same");
    }
    const SettingsHive hive = tool.hive();
    const StoredCertificate installed = InstallCertificate(hive.isMachine(), certificate, arguments.key);
    Answer answer;
    answer.object = {{"scope", hive.scope()},
                     {"key", arguments.key},
                     {"publicKeyMatches", isKeys},
                     {"certificate", CertificateObject(installed, KnownHashes(hive))}};
    if (!isKeys)
        tool.Warn("the certificate's public key is not that of '" + arguments.key + "'");
    answer.text = "installed in the " + hive.scope() + " store and bound to '" + Printable(arguments.key) +
                  (isKeys ? "', whose public key it has\n" : "', whose public key it does not have\n") +
                  Columns({CertificateRow(installed, KnownHashes(hive))}, 2);
    return answer;
}

// The one that a release of the key would publish.
StoredCertificate FindToPublish(const SettingsHive& hive, const std::string& key)
{
    bool tooLarge = false;
    const auto found = CertificateToPublish(hive.isMachine(), key, &tooLarge);
    if (found)
        return *found;
    throw Failure(ExitCode::NotFound, "no_certificate",
                  tooLarge ? "the certificate of '" + key + "' has 5000 bytes or more, which the provider passes over"
                           : "no certificate of the " + hive.scope() + " store is bound to '" + key +
                                 "'; install one with kelvaroctl certs install");
}

Answer Publish(const Tool& tool, const std::string& name)
{
    const SettingsHive hive = tool.hive();
    const auto provider = tool.OpenProvider();
    auto key = std::make_unique<Key>(*provider, name);
    const StoredCertificate certificate = FindToPublish(hive, name);
    const bool known = Knows(KnownHashes(hive), certificate);
    key->Property(kCertificateProperty);
    key.reset();  // publishes
    const std::string hashes = KnownHashes(hive);
    if (!Knows(hashes, certificate)) {
        Failure failure(ExitCode::Refused, "not_published",
                        "the certificate of '" + name + "' was not published: the vault refused it, or could not be " +
                            "reached; only the log tells which");
        failure.partial = {{"key", name}, {"certificate", CertificateObject(certificate, hashes)}};
        throw failure;
    }
    Answer answer;
    answer.object = {{"key", name},
                     {"outcome", known ? "known" : "published"},
                     {"certificate", CertificateObject(certificate, hashes)}};
    answer.text = known ? "already in step with the vault: nothing was sent\n"
                        : "handed to the vault and recorded as in step; a merge that the vault refused shows in the "
                          "log only\n";
    answer.text += Columns({CertificateRow(certificate, hashes)}, 2);
    return answer;
}

// The module syncs on the first open of a machine key, whether or not there is such a key.
void RunSync(const Tool& tool, const SettingsHive& hive)
{
    // Its own rule of once in twenty minutes is for hosts; an administrator means now.
    hive.Remove(kStampValue);
    const auto provider = tool.OpenProvider();
    try {
        const Key key(*provider, kSyncKeyName);
    } catch (const Failure& failure) {
        if (failure.status != NTE_NOT_FOUND)
            throw;
    }
    if (!hive.Read(kStampValue))
        throw ConfigurationFailure("the module did not start the sync, or could not note its time in the settings");
}

void CheckSyncIsOn(const Tool& tool, const SettingsHive& hive)
{
    if (tool.user)
        throw UsageFailure("certificates of the vault come to the machine's store alone");
    if (ReadSetting(hive, *FindSetting("CertificatesOrKeys")).number != 0)
        throw ConfigurationFailure(
            "CertificatesOrKeys is set to plain keys, and then the module brings no certificates: kelvaroctl config "
            "set CertificatesOrKeys 0");
}

bool IsAmong(const std::vector<StoredCertificate>& certificates, const StoredCertificate& wanted)
{
    return std::any_of(certificates.begin(), certificates.end(), [&](const StoredCertificate& certificate) {
        return certificate.thumbprint == wanted.thumbprint && certificate.container == wanted.container &&
               certificate.provider == wanted.provider;
    });
}

Answer Sync(const Tool& tool)
{
    const SettingsHive hive = tool.hive();
    CheckSyncIsOn(tool, hive);
    const auto before = ReadPersonalStore(true);
    const std::string hashesBefore = KnownHashes(hive);
    RunSync(tool, hive);
    const std::string hashes = KnownHashes(hive);
    Answer answer;
    answer.object["added"] = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const StoredCertificate& certificate : ReadPersonalStore(true)) {
        if (!certificate.IsBound() || IsAmong(before, certificate))
            continue;
        answer.object["added"].push_back(CertificateObject(certificate, hashes));
        rows.push_back(CertificateRow(certificate, hashes));
    }
    constexpr size_t kEntry = 41;  // digits and comma
    const size_t recorded = hashes.size() > hashesBefore.size() ? (hashes.size() - hashesBefore.size()) / kEntry : 0;
    answer.object["recorded"] = recorded;
    answer.text = rows.empty() ? "nothing new for this machine, or the vault refused to list its certificates; the log "
                                 "tells which\n"
                               : std::to_string(rows.size()) + " added to the machine's store\n" + Columns(rows, 2);
    if (recorded > rows.size())
        answer.text += std::to_string(recorded - rows.size()) +
                       " seen for the first time but not added: here already, or of keys that have no certificate of "
                       "their own yet\n";
    return answer;
}

}  // namespace

void AddCertCommands(CLI::App& app, Tool& tool)
{
    CLI::App* const certs = app.add_subcommand("certs", "certificates of keys, in the store and in the vault");
    certs->require_subcommand(1);
    CLI::App* const list =
        certs->add_subcommand("list", "the certificates of the machine's (or with --user the user's) store");
    list->callback([&tool] { tool.action = [&tool] { return ListCertificates(tool); }; });

    const auto arguments = std::make_shared<InstallArguments>();
    CLI::App* const install =
        certs->add_subcommand("install", "put a key's certificate into the store, bound to the key");
    install->add_option("FILE", arguments->file, "the certificate, PEM or DER; of several the key's own")->required();
    install->add_option("--key", arguments->key, "the key's name")->required()->type_name("NAME");
    install->add_flag("--force", arguments->force, "even when its public key is another one");
    install->callback([&tool, arguments] { tool.action = [&tool, arguments] { return Install(tool, *arguments); }; });

    const auto name = std::make_shared<std::string>();
    CLI::App* const publish =
        certs->add_subcommand("publish", "bring a key's certificate from the store into the vault");
    publish->add_option("NAME", *name, "the key's name")->required();
    publish->callback([&tool, name] { tool.action = [&tool, name] { return Publish(tool, *name); }; });

    CLI::App* const sync =
        certs->add_subcommand("sync", "bring the vault's new certificates into the machine's store, now");
    sync->callback([&tool] { tool.action = [&tool] { return Sync(tool); }; });
}

}  // namespace kelvaroctl
