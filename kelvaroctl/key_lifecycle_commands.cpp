#include "kelvaroctl/commands.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

// Whether the module reads `number` for the setting.
static bool SettingIs(const Tool& tool, const char* name, DWORD number)
{
    return ReadSetting(tool.hive(), *FindSetting(name)).number == number;
}

Answer CreateKey(Tool& tool)
{
    const auto provider = tool.OpenProvider();
    Key key = Key::Create(*provider, tool.name, tool.algorithm, tool.overwrite);
    if (tool.length)
        key.SetLength(tool.length);
    key.Finalize();
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    const bool hasCertificate = SettingIs(tool, "CertificatesOrKeys", 0);
    Answer answer;
    answer.object = {{"name", tool.name}, {"scope", tool.hive().scope()}, {"algorithm", tool.algorithm}};
    AddFacts(publicKey, &answer.object);
    answer.object["certificate"] = hasCertificate;
    answer.text = "'" + Printable(tool.name) + "' was created" +
                  (hasCertificate ? " as the key of a certificate: " : ": ") + Describe(publicKey) + ", SHA-256 " +
                  Fingerprint(publicKey) + "\n";
    return answer;
}

static std::string Question(const std::string& name, bool purges)
{
    return "Delete the key '" + Printable(name) + "' in the vault" +
           (purges ? " and purge it, so that it cannot be recovered" : "; it can be recovered there for a time") + "?";
}

Answer DeleteKey(Tool& tool)
{
    const bool purges = SettingIs(tool, "DoDeletePurge", 0);
    const bool confirmed = tool.yes || Confirmed(Question(tool.name, purges));
    Answer answer;
    answer.object = {{"name", tool.name}, {"scope", tool.hive().scope()}, {"deleted", confirmed}};
    if (!confirmed) {
        answer.text = "'" + Printable(tool.name) + "' was not deleted\n";
        answer.exit = ExitCode::Negative;
        return answer;
    }
    const auto provider = tool.OpenProvider();
    Key(*provider, tool.name).Delete();
    // Only the module's log says whether the vault purged it.
    answer.object["purgeRequested"] = purges;
    answer.text = "'" + Printable(tool.name) + "' was deleted" + (purges ? ", and its purge requested\n" : "\n");
    return answer;
}

}  // namespace kelvaroctl
