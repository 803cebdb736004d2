#include <algorithm>

#include "kelvaroctl/certificate_report.h"
#include "kelvaroctl/commands.h"

namespace kelvaroctl {

namespace {

// The vault should not have it.
constexpr char kSyncKeyName[] = "kelvaroctl-certs-sync";
constexpr char kStampValue[] = "FromKVLastSyncTime";

// The module syncs when a machine key is first opened, even if the key does not exist.
void RunSync(const Tool& tool, const SettingsHive& hive)
{
    // Without the stamp, the module doesn't wait until twenty minutes have passed since the last sync.
    hive.Remove(kStampValue);
    const auto provider = tool.OpenProvider();
    try {
        const Key key(*provider, kSyncKeyName);
    } catch (const Failure& failure) {
        if (failure.status != NTE_NOT_FOUND)
            throw;
    }
    if (!hive.Read(kStampValue))
        throw ConfigurationFailure("the module did not start the sync, or could not write its time to the settings");
}

void CheckSyncIsOn(const Tool& tool, const SettingsHive& hive)
{
    if (tool.user)
        throw UsageFailure("the vault's certificates are only copied to the machine's store");
    if (ReadSetting(hive, "CertificatesOrKeys").number != 0)
        throw ConfigurationFailure(
            "CertificatesOrKeys is set to plain keys, so the module copies no certificates: run kelvaroctl config set "
            "CertificatesOrKeys 0");
}

// Syncs without these certificates in the record, and records those again that the module didn't. Returns the record of
// the sync.
std::string SyncWithout(const std::vector<std::string>& hashes, const Tool& tool, const SettingsHive& hive)
{
    std::optional<Failure> failed;
    ForgetHashes(hive, hashes);
    try {
        RunSync(tool, hive);
    } catch (const Failure& failure) {
        failed = failure;
    }
    std::string record = ReadRecord(hive);
    RememberHashes(hive, hashes);
    if (failed)
        throw Failure(*failed);
    return record;
}

// A sync that finds nothing new looks like one whose listing was refused, or that another program ran first. So known
// certificates are forgotten and the next sync must record one again: the newest, then a few more, since some may have
// been deleted from the vault.
bool VaultListsAny(const Tool& tool, const SettingsHive& hive)
{
    const std::vector<std::string> known = HashesOf(ReadRecord(hive));
    for (const size_t count : {size_t{1}, size_t{20}}) {
        const size_t taken = std::min(count, known.size());
        const std::vector<std::string> asked(known.end() - static_cast<std::ptrdiff_t>(taken), known.end());
        const std::string record = SyncWithout(asked, tool, hive);
        const bool listed =
            HashesOf(record).size() > known.size() ||
            std::any_of(asked.begin(), asked.end(), [&](const std::string& hash) { return Knows(record, hash); });
        if (listed)
            return true;
    }
    return false;
}

bool IsAmong(const std::vector<StoredCertificate>& certificates, const StoredCertificate& wanted)
{
    return std::any_of(certificates.begin(), certificates.end(), [&](const StoredCertificate& certificate) {
        return certificate.thumbprint == wanted.thumbprint && certificate.container == wanted.container &&
               certificate.provider == wanted.provider;
    });
}

}  // namespace

Answer SyncCertificates(Tool& tool)
{
    const SettingsHive hive = tool.hive();
    CheckSyncIsOn(tool, hive);
    const auto before = ReadPersonalStore(true);
    const size_t knownBefore = HashesOf(ReadRecord(hive)).size();
    RunSync(tool, hive);
    const std::string record = ReadRecord(hive);
    const size_t known = HashesOf(record).size();
    const size_t recorded = known > knownBefore ? known - knownBefore : 0;
    if (!recorded && !VaultListsAny(tool, hive)) {
        throw Failure(ExitCode::Refused, "not_listed",
                      "the vault refused to list its certificates, or could not be reached, or has none: the account "
                      "needs the certificate permissions list and get; at LoggingLevel 1 the log says which");
    }
    Answer answer;
    answer.object["added"] = Json::array();
    std::vector<std::vector<std::string>> rows;
    for (const StoredCertificate& certificate : ReadPersonalStore(true)) {
        if (!certificate.IsBound() || IsAmong(before, certificate))
            continue;
        answer.object["added"].push_back(CertificateObject(certificate, record));
        rows.push_back(CertificateRow(certificate, record));
    }
    answer.object["recorded"] = recorded;
    answer.text = rows.empty() ? "nothing new for this machine\n"
                               : std::to_string(rows.size()) + " added to the machine's store\n" + Columns(rows, 2);
    if (recorded > rows.size())
        answer.text += std::to_string(recorded - rows.size()) +
                       " seen for the first time but not added: already here, or of keys that don't have their own "
                       "certificate yet\n";
    return answer;
}

}  // namespace kelvaroctl
