#include "kelvaroctl/commands.h"
#include "kelvaroctl/public_key.h"
#include "kelvaroctl/terminal.h"

namespace kelvaroctl {

static const std::vector<std::string> kAlgorithms = {"RSA",       "ECDSA_P256", "ECDSA_P384", "ECDSA_P521",
                                                     "ECDH_P256", "ECDH_P384",  "ECDH_P521"};

// Whether the module reads `number` for the setting.
static bool SettingIs(const Tool& tool, const char* name, DWORD number)
{
    return ReadSetting(tool.hive(), *FindSetting(name)).number == number;
}

namespace {
struct CreateArguments {
    std::string name;
    std::string algorithm;
    DWORD length = 0;
    bool overwrite = false;
};

struct DeleteArguments {
    std::string name;
    bool yes = false;
};
}  // namespace

static Answer CreateKey(const Tool& tool, const CreateArguments& arguments)
{
    const auto provider = tool.OpenProvider();
    Key key = Key::Create(*provider, arguments.name, arguments.algorithm, arguments.overwrite);
    if (arguments.length)
        key.SetLength(arguments.length);
    key.Finalize();
    const PublicKey publicKey = ParsePublicBlob(key.PublicBlob());
    const bool hasCertificate = SettingIs(tool, "CertificatesOrKeys", 0);
    Answer answer;
    answer.object = {{"name", arguments.name}, {"scope", tool.hive().scope()}, {"algorithm", arguments.algorithm}};
    AddFacts(publicKey, &answer.object);
    answer.object["certificate"] = hasCertificate;
    answer.text = "'" + Printable(arguments.name) + "' was created" +
                  (hasCertificate ? " as the key of a certificate: " : ": ") + Describe(publicKey) + ", SHA-256 " +
                  Fingerprint(publicKey) + "\n";
    return answer;
}

static std::string Question(const std::string& name, bool purges)
{
    return "Delete the key '" + Printable(name) + "' in the vault" +
           (purges ? " and purge it, so that it cannot be recovered" : "; it can be recovered there for a time") + "?";
}

static Answer DeleteKey(const Tool& tool, const DeleteArguments& arguments)
{
    const bool purges = SettingIs(tool, "DoDeletePurge", 0);
    const bool confirmed = arguments.yes || Confirmed(Question(arguments.name, purges));
    Answer answer;
    answer.object = {{"name", arguments.name}, {"scope", tool.hive().scope()}, {"deleted", confirmed}};
    if (!confirmed) {
        answer.text = "'" + Printable(arguments.name) + "' was not deleted\n";
        answer.exit = ExitCode::Negative;
        return answer;
    }
    const auto provider = tool.OpenProvider();
    Key(*provider, arguments.name).Delete();
    // Only the module's log says whether the vault purged it.
    answer.object["purgeRequested"] = purges;
    answer.text = "'" + Printable(arguments.name) + "' was deleted" + (purges ? ", and its purge requested\n" : "\n");
    return answer;
}

Command CreateCommand()
{
    const auto to = std::make_shared<CreateArguments>();
    return {"create",
            "create a key in the vault, with a certificate if CertificatesOrKeys is 0",
            {{"NAME", &to->name, "the key's name", nullptr, kRequired},
             {"--alg", &to->algorithm, "RSA, or ECDSA or ECDH with a curve, like ECDSA_P256", "ALG", kRequired,
              kAlgorithms},
             {"--length", &to->length, "bits of an RSA key, 2048 to 4096; default: 2048", "N"},
             {"--overwrite", &to->overwrite, "create a new version if the key exists"}},
            [to](Tool& tool) { return CreateKey(tool, *to); }};
}

Command DeleteCommand()
{
    const auto to = std::make_shared<DeleteArguments>();
    return {"delete",
            "delete a key in the vault, and purge it unless DoDeletePurge is 1; asks for confirmation",
            {{"NAME", &to->name, "the key's name", nullptr, kRequired}, {"--yes", &to->yes, "don't ask, for programs"}},
            [to](Tool& tool) { return DeleteKey(tool, *to); }};
}

}  // namespace kelvaroctl
